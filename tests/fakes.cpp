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
// What the handles point at.
char theContext;
char theList;
char theHandle;

template <typename T>
T* Handle(char& object) {
    return reinterpret_cast<T*>(&object);
}

/// Notes a call, and when it is not given what it has to be given; whether the call succeeds.
bool Note(const QString& call, const void* given, const char& object) {
    fakeUsb.calls += given == &object ? call : call + " of something else";
    return fakeUsb.fails.isEmpty() || !call.startsWith(fakeUsb.fails);
}
} // namespace

int libusb_init(libusb_context** ctx) {
    *ctx = Handle<libusb_context>(theContext);
    return Note("init", *ctx, theContext) ? 0 : LIBUSB_ERROR_OTHER;
}

void libusb_set_debug(libusb_context* ctx, int level) {
    Note(QString("debug %1").arg(level), ctx, theContext);
}

ssize_t libusb_get_device_list(libusb_context* ctx, libusb_device*** list) {
    *list = Handle<libusb_device*>(theList);
    return Note("list", ctx, theContext) ? 1 : LIBUSB_ERROR_NO_MEM;
}

void libusb_free_device_list(libusb_device** list, int unref) {
    Note(QString("free %1").arg(unref), list, theList);
}

libusb_device_handle* libusb_open_device_with_vid_pid(libusb_context* ctx, uint16_t vendor_id,
                                                      uint16_t product_id) {
    const QString call = QString("open %1:%2").arg(vendor_id, 0, 16).arg(product_id, 0, 16);
    return Note(call, ctx, theContext) ? Handle<libusb_device_handle>(theHandle) : nullptr;
}

void libusb_close(libusb_device_handle* dev_handle) { Note("close", dev_handle, theHandle); }

void libusb_exit(libusb_context* ctx) { Note("exit", ctx, theContext); }

int libusb_control_transfer(libusb_device_handle*, uint8_t type, uint8_t request, uint16_t value,
                            uint16_t index, unsigned char* data, uint16_t length, unsigned int timeout) {
    fakeUsb.calls += QString::asprintf("%X/%d/%d/%d/%d %ums", type, request, value, index, length, timeout);
    const auto answer = fakeUsb.answers.find(request);
    if (answer == fakeUsb.answers.end()) return LIBUSB_ERROR_TIMEOUT;
    memcpy(data, answer->second.constData(), answer->second.size());
    return answer->second.size();
}
