// SPDX-License-Identifier: MIT

#include <umockdev.h> // before Qt, which gives the word "signals" another meaning

#include "usbbus.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

namespace
{

const char kSysPath[] = "/sys/devices/1-1";
const char kDeviceNode[] = "/dev/bus/usb/001/002";

// The device as sysfs shows it. Its descriptors: the device with vendor 0x3A7C and product 0x5E21;
// one configuration; interface 0, a printer; its bulk endpoints 1 (out) and 2 (in).
const char kDevice[] = "P: /devices/1-1\n"
                       "N: bus/usb/001/002\n"
                       "E: SUBSYSTEM=usb\n"
                       "E: DEVTYPE=usb_device\n"
                       "E: DEVNAME=/dev/bus/usb/001/002\n"
                       "E: BUSNUM=001\n"
                       "E: DEVNUM=002\n"
                       "A: busnum=1\n"
                       "A: devnum=2\n"
                       "A: speed=480\n"
                       "A: bConfigurationValue=1\n"
                       "A: idVendor=3a7c\n"
                       "A: idProduct=5e21\n"
                       "H: descriptors="
                       "12010002000000407C3A215E000100000001"
                       "09022000010100C000"
                       "090400000207010200"
                       "07050102000200"
                       "07058202000200\n";

const int kSetupSize = 8;               // a control transfer begins with its setup packet
const quint8 kVendorRequestType = 0xC1; // to the host, vendor, recipient interface

} // namespace

UsbBus::UsbBus(const Printer& printer, QMutex& lock)
    : m_printer(printer), m_lock(lock), m_testbed(umockdev_testbed_new()),
      m_usbfs(umockdev_ioctl_base_new())
{
    // Both are called on the test bed's own thread.
    const auto onIoctl = +[](UMockdevIoctlBase*, UMockdevIoctlClient* client, UsbBus* bus) {
        const QMutexLocker guard(&bus->m_lock);
        if (umockdev_ioctl_client_get_request(client) == USBDEVFS_SUBMITURB)
            bus->m_client = client;
        const int error = bus->Ioctl(umockdev_ioctl_client_get_request(client),
                                     umockdev_ioctl_client_get_arg(client));
        umockdev_ioctl_client_complete(client, error == 0 ? 0 : -1, error);
        return TRUE;
    };
    const auto onVanished = +[](UMockdevIoctlBase*, UMockdevIoctlClient* client, UsbBus* bus) {
        const QMutexLocker guard(&bus->m_lock);
        // A late notice about an earlier program must not drop the current program's transfer.
        if (client == bus->m_client)
            bus->m_transfer.reset();
    };
    g_signal_connect(m_usbfs, "handle-ioctl", G_CALLBACK(onIoctl), this);
    g_signal_connect(m_usbfs, "client-vanished", G_CALLBACK(onVanished), this);
    umockdev_testbed_attach_ioctl(m_testbed, kDeviceNode, m_usbfs, nullptr);
    Update();
}

UsbBus::~UsbBus()
{
    m_lock.lock(); // which waits for what is being served
    g_signal_handlers_disconnect_by_data(m_usbfs, this);
    m_lock.unlock();
    g_object_unref(m_testbed);
    g_object_unref(m_usbfs);
}

void UsbBus::Update()
{
    if (m_printer.on == m_onBus)
        return;
    m_onBus = m_printer.on;
    if (m_onBus)
        umockdev_testbed_add_from_string(m_testbed, kDevice, nullptr);
    else
        umockdev_testbed_remove_device(m_testbed, kSysPath);
}

/// Fetches `size` bytes at the address stored at `offset` in `from`.
UsbBus::Data UsbBus::Fetch(UMockdevIoctlData* from, size_t offset, size_t size)
{
    return Data(umockdev_ioctl_data_resolve(from, offset, size, nullptr), [](auto* data) {
        if (data)
            umockdev_ioctl_data_unref(data);
    });
}

/// Serves one ioctl; 0 or an errno value.
int UsbBus::Ioctl(unsigned long request, UMockdevIoctlData* argument)
{
    switch (request) {
    case USBDEVFS_SUBMITURB: return m_printer.on ? Submit(argument) : ENODEV;
    case USBDEVFS_DISCARDURB: return Discard();
    case USBDEVFS_REAPURB:
    case USBDEVFS_REAPURBNDELAY: return Reap(argument);
    case USBDEVFS_CLAIMINTERFACE:
    case USBDEVFS_SETCONFIGURATION:
        qWarning("usb: bad request: the printer's own driver holds the interface");
        return EBUSY;
    case USBDEVFS_IOCTL: // takes a driver away, say
    case USBDEVFS_RESET:
        qWarning("usb: bad request: the printer is not the monitor's alone");
        return ENOTTY;
    default: return ENOTTY;
    }
}

/// Takes a transfer ("URB"): a control request, with its setup packet first.
int UsbBus::Submit(UMockdevIoctlData* argument)
{
    const Data transfer = Fetch(argument, 0, sizeof(usbdevfs_urb));
    if (!transfer)
        return EFAULT;
    usbdevfs_urb fields;
    memcpy(&fields, transfer->data, sizeof fields);
    if (fields.type != USBDEVFS_URB_TYPE_CONTROL || fields.buffer_length < kSetupSize)
        return EINVAL;
    const Data buffer = Fetch(transfer.get(), offsetof(usbdevfs_urb, buffer), fields.buffer_length);
    if (!buffer)
        return EFAULT;

    QByteArray answer;
    if (buffer->data[0] == kVendorRequestType)
        answer = m_printer.UsbAnswer(buffer->data[1]);
    if (m_printer.meddle)
        m_printer.meddle(QByteArray(reinterpret_cast<char*>(buffer->data), kSetupSize), answer);
    QByteArray bytes = answer.left(fields.buffer_length - kSetupSize);
    const int size = static_cast<int>(bytes.size());
    umockdev_ioctl_data_update(buffer.get(), kSetupSize, reinterpret_cast<guint8*>(bytes.data()),
                               size);
    m_transfer = transfer;
    m_completed = false;
    if (!m_printer.hangs)
        Complete(answer.isNull() ? -EPIPE : 0, size);
    return 0;
}

/// Cancels the transfer, if it is pending.
int UsbBus::Discard()
{
    if (!m_transfer || m_completed)
        return EINVAL;
    Complete(-ENOENT, 0);
    return 0;
}

/// Hands the transfer back, if it is completed.
int UsbBus::Reap(UMockdevIoctlData* argument)
{
    if (!m_transfer || !m_completed)
        return m_printer.on ? EAGAIN : ENODEV;
    const Data slot = Fetch(argument, 0, sizeof(void*));
    if (!slot)
        return EFAULT;
    umockdev_ioctl_data_set_ptr(slot.get(), 0, m_transfer.get());
    m_transfer.reset();
    return 0;
}

void UsbBus::Complete(int status, int length)
{
    umockdev_ioctl_data_update(m_transfer.get(), offsetof(usbdevfs_urb, status),
                               reinterpret_cast<guint8*>(&status), sizeof status);
    umockdev_ioctl_data_update(m_transfer.get(), offsetof(usbdevfs_urb, actual_length),
                               reinterpret_cast<guint8*>(&length), sizeof length);
    m_completed = true;
}
