// SPDX-License-Identifier: MIT

// The USB channel: finding and opening the printer, and its vendor control requests.

#include "mainwindow.h"

#include <QDebug>

#include <cstring>
#include <libusb.h>

namespace
{

const unsigned short kVendorId = 0x3A7C;
const unsigned short kProductId = 0x5E21;

// Setup packet of every request; only bRequest differs. wLength is kUsbAnswerSize.
const unsigned char kRequestType =
    LIBUSB_ENDPOINT_IN | LIBUSB_REQUEST_TYPE_VENDOR | LIBUSB_RECIPIENT_INTERFACE;
const unsigned short kValue = 0;      // wValue, not used
const unsigned short kInterface = 0;  // wIndex
const unsigned int kTimeLimit = 1000; // ms

} // namespace

int MainWindow::GetUsbPrinterHandle()
{
    m_pUsbContext = nullptr; // the last one has ended
    if (libusb_init(&m_pUsbContext) < 0)
        return -1;
// Deprecated in favour of libusb_set_option, which libusb has only since 1.0.22.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    libusb_set_debug(m_pUsbContext, LIBUSB_LOG_LEVEL_INFO);
#pragma GCC diagnostic pop

    // The opening call makes its own list; this one shows whether the bus can be read at all.
    libusb_device** list = nullptr;
    if (libusb_get_device_list(m_pUsbContext, &list) < 0) {
        qDebug("libusb_get_device_list failed");
        libusb_exit(m_pUsbContext);
        return -1;
    }
    m_pUsbHandle = libusb_open_device_with_vid_pid(m_pUsbContext, kVendorId, kProductId);
    if (m_pUsbHandle) {
        libusb_free_device_list(list, 1);
        return 1;
    }
    qDebug("open device failed");
    libusb_free_device_list(list, 1);
    libusb_exit(m_pUsbContext);
    return -1;
}

/// Closes the printer and ends its context. Does nothing when no printer is open.
void MainWindow::CloseUsbPrinter()
{
    if (!m_pUsbHandle)
        return;
    libusb_close(m_pUsbHandle);
    libusb_exit(m_pUsbContext);
    m_pUsbHandle = nullptr;
}

/// Issues a vendor request to the open printer. The answer goes to the start of the kUsbAnswerSize
/// bytes of `answer`; the bytes after it stay as they are.
/// @return the number of bytes answered, or a negative libusb error
int MainWindow::RequestUsb(UsbRequest request, unsigned char* answer)
{
    return libusb_control_transfer(m_pUsbHandle, kRequestType, static_cast<unsigned char>(request),
                                   kValue, kInterface, answer, kUsbAnswerSize, kTimeLimit);
}

/// Keeps the first 63 bytes of a model-name answer. Adds a zero byte if they hold none; after a
/// shorter answer, the rest of the buffer is kept.
void MainWindow::StoreModelName(const unsigned char* answer, int received)
{
    const size_t size = qMin(received, kModelNameSize - 1);
    memcpy(m_szModelName, answer, size);
    if (!memchr(m_szModelName, '\0', size))
        m_szModelName[size] = '\0';
}
