// SPDX-License-Identifier: MIT

#include "support.h"

#include <libusb.h>
#include <unistd.h>

FakeUsb fakeUsb;
FakeClock fakeClock;

extern "C" time_t time(time_t*) noexcept { return ++fakeClock.reads * fakeClock.step; }

extern "C" unsigned int sleep(unsigned int seconds) {
    fakeClock.slept += seconds;
    return 0;
}

namespace {
bool Acquire(const QString& call) {
    fakeUsb.calls += call;
    const bool succeeds = fakeUsb.fails.isEmpty() || !call.startsWith(fakeUsb.fails);
    fakeUsb.alive += succeeds ? 1 : 0;
    return succeeds;
}

void Release(const QString& call) {
    fakeUsb.calls += call;
    --fakeUsb.alive;
}

char token; // what all handles point at
} // namespace

int libusb_init(libusb_context** ctx) {
    *ctx = reinterpret_cast<libusb_context*>(&token);
    return Acquire("init") ? 0 : LIBUSB_ERROR_OTHER;
}

void libusb_set_debug(libusb_context*, int level) { fakeUsb.calls += QString("debug %1").arg(level); }

ssize_t libusb_get_device_list(libusb_context*, libusb_device*** list) {
    *list = reinterpret_cast<libusb_device**>(&token);
    return Acquire("list") ? 1 : LIBUSB_ERROR_NO_MEM;
}

void libusb_free_device_list(libusb_device**, int unref) { Release(QString("free %1").arg(unref)); }

libusb_device_handle* libusb_open_device_with_vid_pid(libusb_context*, uint16_t vendor_id,
                                                      uint16_t product_id) {
    return Acquire(QString("open %1:%2").arg(vendor_id, 0, 16).arg(product_id, 0, 16))
               ? reinterpret_cast<libusb_device_handle*>(&token)
               : nullptr;
}

void libusb_close(libusb_device_handle*) { Release("close"); }

void libusb_exit(libusb_context*) { Release("exit"); }

int libusb_control_transfer(libusb_device_handle*, uint8_t type, uint8_t request, uint16_t value,
                            uint16_t index, unsigned char* data, uint16_t length, unsigned int timeout) {
    fakeUsb.calls += QString::asprintf("%X/%d/%d/%d/%d %ums", type, request, value, index, length, timeout);
    const auto answer = fakeUsb.answers.find(request);
    if (answer == fakeUsb.answers.end()) return LIBUSB_ERROR_TIMEOUT;
    memcpy(data, answer->second.constData(), answer->second.size());
    return answer->second.size();
}
