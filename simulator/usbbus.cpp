// SPDX-License-Identifier: MIT

#include "usbbus.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <iomanip>
#include <iostream>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <umockdev.h>

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

const size_t kSetupSize = 8;                  // a control transfer begins with its setup packet
const std::uint8_t kVendorRequestType = 0xC1; // to the host, vendor, recipient interface

} // namespace

/// The test bed, and the transfers ("URBs") that a program has submitted and not yet got back.
struct UsbBus::Bed {
    const Printer& printer;
    std::mutex& lock;
    UMockdevTestbed* testbed = umockdev_testbed_new();
    UMockdevIoctlBase* usbfs = umockdev_ioctl_base_new();
    bool plugged = false;
    std::deque<UMockdevIoctlData*> pending;   // accepted, never to be completed
    std::deque<UMockdevIoctlData*> completed; // to be reaped

    Bed(const Printer& thePrinter, std::mutex& theLock) : printer(thePrinter), lock(theLock) {}

    void Forget()
    {
        for (std::deque<UMockdevIoctlData*>* urbs : {&pending, &completed}) {
            for (UMockdevIoctlData* urb : *urbs)
                umockdev_ioctl_data_unref(urb);
            urbs->clear();
        }
    }

    void Complete(UMockdevIoctlData* urb, int status, int length)
    {
        umockdev_ioctl_data_update(urb, offsetof(usbdevfs_urb, status),
                                   reinterpret_cast<guint8*>(&status), sizeof status);
        umockdev_ioctl_data_update(urb, offsetof(usbdevfs_urb, actual_length),
                                   reinterpret_cast<guint8*>(&length), sizeof length);
        completed.push_back(urb);
    }

    int Submit(UMockdevIoctlData* arg);
    int Reap(UMockdevIoctlData* arg);
    int Discard(UMockdevIoctlData* arg);
    int Ioctl(unsigned long request, UMockdevIoctlData* arg);

    static gboolean OnIoctl(UMockdevIoctlBase* handler, UMockdevIoctlClient* client, gpointer bed);
    static void OnVanished(UMockdevIoctlBase* handler, UMockdevIoctlClient* client, gpointer bed);
};

/// USBDEVFS_SUBMITURB: a control transfer, setup packet first. 0 or an errno value.
int UsbBus::Bed::Submit(UMockdevIoctlData* arg)
{
    UMockdevIoctlData* urb = umockdev_ioctl_data_resolve(arg, 0, sizeof(usbdevfs_urb), nullptr);
    if (!urb)
        return EFAULT;
    usbdevfs_urb fields;
    memcpy(&fields, urb->data, sizeof fields);
    UMockdevIoctlData* buffer = nullptr;
    if (fields.type == USBDEVFS_URB_TYPE_CONTROL &&
        fields.buffer_length >= static_cast<int>(kSetupSize))
        buffer = umockdev_ioctl_data_resolve(urb, offsetof(usbdevfs_urb, buffer),
                                             fields.buffer_length, nullptr);
    if (!buffer) {
        umockdev_ioctl_data_unref(urb);
        return EINVAL;
    }

    const std::uint8_t* setup = buffer->data;
    std::cout << "setup" << std::hex << std::setfill('0') << std::uppercase;
    for (size_t i = 0; i < kSetupSize; ++i)
        std::cout << ' ' << std::setw(2) << unsigned(setup[i]);
    std::cout << std::dec << std::endl;

    const std::optional<Bytes> answer =
        setup[0] == kVendorRequestType ? printer.UsbAnswer(setup[1]) : std::nullopt;
    if (printer.drop) {
        pending.push_back(urb);
    } else if (!answer) {
        Complete(urb, -EPIPE, 0);
    } else {
        Bytes bytes = *answer;
        bytes.resize(std::min(bytes.size(), fields.buffer_length - kSetupSize));
        umockdev_ioctl_data_update(buffer, kSetupSize, bytes.data(),
                                   static_cast<int>(bytes.size()));
        Complete(urb, 0, static_cast<int>(bytes.size()));
    }
    umockdev_ioctl_data_unref(buffer);
    return 0;
}

/// USBDEVFS_REAPURB(NDELAY): hands the oldest completed transfer back. Those that were pending when
/// the printer was unplugged come back, too.
int UsbBus::Bed::Reap(UMockdevIoctlData* arg)
{
    if (!printer.plugged) {
        for (UMockdevIoctlData* urb : pending)
            Complete(urb, -ESHUTDOWN, 0);
        pending.clear();
    }
    if (completed.empty())
        return printer.plugged ? EAGAIN : ENODEV;
    UMockdevIoctlData* slot = umockdev_ioctl_data_resolve(arg, 0, sizeof(void*), nullptr);
    if (!slot)
        return EFAULT;
    umockdev_ioctl_data_set_ptr(slot, 0, completed.front());
    umockdev_ioctl_data_unref(slot);
    umockdev_ioctl_data_unref(completed.front());
    completed.pop_front();
    return 0;
}

/// USBDEVFS_DISCARDURB: what is pending comes back as cancelled.
int UsbBus::Bed::Discard(UMockdevIoctlData* arg)
{
    gulong address = 0;
    memcpy(&address, arg->data, sizeof address);
    for (auto urb = pending.begin(); urb != pending.end(); ++urb) {
        if ((*urb)->client_addr == address) {
            Complete(*urb, -ENOENT, 0);
            pending.erase(urb);
            return 0;
        }
    }
    return EINVAL;
}

int UsbBus::Bed::Ioctl(unsigned long request, UMockdevIoctlData* arg)
{
    switch (request) {
    case USBDEVFS_SUBMITURB: return printer.plugged ? Submit(arg) : ENODEV;
    case USBDEVFS_REAPURB:
    case USBDEVFS_REAPURBNDELAY: return Reap(arg);
    case USBDEVFS_DISCARDURB: return Discard(arg);
    case USBDEVFS_GET_CAPABILITIES: {
        UMockdevIoctlData* data = umockdev_ioctl_data_resolve(arg, 0, sizeof(__u32), nullptr);
        if (!data)
            return EFAULT;
        __u32 none = 0;
        umockdev_ioctl_data_update(data, 0, reinterpret_cast<guint8*>(&none), sizeof none);
        umockdev_ioctl_data_unref(data);
        return 0;
    }
    default: return ENOTTY;
    }
}

/// Serves one request of a program; runs on the test bed's own thread.
gboolean UsbBus::Bed::OnIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer bed)
{
    Bed* self = static_cast<Bed*>(bed);
    const std::lock_guard<std::mutex> guard(self->lock);
    UMockdevIoctlData* arg = umockdev_ioctl_client_get_arg(client);
    const int error = self->Ioctl(umockdev_ioctl_client_get_request(client), arg);
    umockdev_ioctl_client_complete(client, error == 0 ? 0 : -1, error);
    return TRUE;
}

/// A program has closed the device: its transfers are gone.
void UsbBus::Bed::OnVanished(UMockdevIoctlBase*, UMockdevIoctlClient*, gpointer bed)
{
    Bed* self = static_cast<Bed*>(bed);
    const std::lock_guard<std::mutex> guard(self->lock);
    self->Forget();
}

UsbBus::UsbBus(const Printer& printer, std::mutex& lock) : m_bed(new Bed(printer, lock))
{
    g_signal_connect(m_bed->usbfs, "handle-ioctl", G_CALLBACK(Bed::OnIoctl), m_bed.get());
    g_signal_connect(m_bed->usbfs, "client-vanished", G_CALLBACK(Bed::OnVanished), m_bed.get());
    umockdev_testbed_attach_ioctl(m_bed->testbed, kDeviceNode, m_bed->usbfs, nullptr);
    setenv("LD_PRELOAD", "libumockdev-preload.so.0", 1);
    Update();
}

UsbBus::~UsbBus()
{
    g_object_unref(m_bed->testbed);
    g_object_unref(m_bed->usbfs);
    m_bed->Forget();
}

void UsbBus::Update()
{
    const bool plugged = m_bed->printer.plugged;
    if (plugged == m_bed->plugged)
        return;
    m_bed->plugged = plugged;
    if (!plugged) {
        umockdev_testbed_remove_device(m_bed->testbed, kSysPath);
        return;
    }
    umockdev_testbed_add_from_string(m_bed->testbed, kDevice, nullptr);
}
