// SPDX-FileCopyrightText: The oriole-monitor authors
// SPDX-License-Identifier: MIT

#include "support.h"

#include <libusb.h>

namespace
{
int acquire(const QString& call, bool succeeds)
{
    fakeUsb.calls += call;
    fakeUsb.alive += succeeds ? 1 : 0;
    return succeeds ? 0 : LIBUSB_ERROR_OTHER;
}

void release(const QString& call)
{
    fakeUsb.calls += call;
    --fakeUsb.alive;
}

template <typename T>
T* Token()
{
    static char token;
    return reinterpret_cast<T*>(&token);
}
} // namespace

int libusb_init(libusb_context** ctx)
{
    *ctx = fakeUsb.initFails ? nullptr : Token<libusb_context>();
    return acquire("init", !fakeUsb.initFails);
}

void libusb_set_debug(libusb_context*, int level)
{
    fakeUsb.calls += QString("debug %1").arg(level);
}

ssize_t libusb_get_device_list(libusb_context*, libusb_device*** list)
{
    *list = Token<libusb_device*>();
    return acquire("list", !fakeUsb.listFails);
}

void libusb_free_device_list(libusb_device**, int unref)
{
    release(QString("free %1").arg(unref));
}

libusb_device_handle* libusb_open_device_with_vid_pid(libusb_context*, uint16_t vendor_id,
                                                      uint16_t product_id)
{
    const QString call =
        QString("open %1:%2").arg(vendor_id, 4, 16, QChar('0')).arg(product_id, 4, 16, QChar('0'));
    return acquire(call, fakeUsb.attached) == 0 ? Token<libusb_device_handle>() : nullptr;
}

void libusb_close(libusb_device_handle*)
{
    release("close");
}

void libusb_exit(libusb_context*)
{
    release("exit");
}

int libusb_control_transfer(libusb_device_handle*, uint8_t type, uint8_t request, uint16_t value,
                            uint16_t index, unsigned char* data, uint16_t length,
                            unsigned int timeout)
{
    fakeUsb.calls += QString("%1/%2/%3/%4/%5 %6ms")
                         .arg(type, 0, 16)
                         .arg(request)
                         .arg(value)
                         .arg(index)
                         .arg(length)
                         .arg(timeout);
    const auto answer = fakeUsb.answers.find(request);
    if (answer == fakeUsb.answers.end())
        return LIBUSB_ERROR_TIMEOUT;
    memcpy(data, answer->second.constData(), answer->second.size());
    return answer->second.size();
}
