// SPDX-License-Identifier: MIT

#ifndef USBBUS_H
#define USBBUS_H

#include "printer.h"

#include <QMutex>

#include <memory>

typedef struct _UMockdevTestbed UMockdevTestbed;
typedef struct _UMockdevIoctlBase UMockdevIoctlBase;
typedef struct _UMockdevIoctlClient UMockdevIoctlClient;
typedef struct _UMockdevIoctlData UMockdevIoctlData;

/// A USB bus with one simulated printer on it. Only a program that runs under umockdev-wrapper,
/// with the UMOCKDEV_DIR of this one, sees it: one program at a time.
class UsbBus
{
public:
    /// Sets the bus up, and UMOCKDEV_DIR.
    /// @param printer  the printer on the bus; read under `lock` whenever a request comes in
    UsbBus(const Printer& printer, QMutex& lock);
    ~UsbBus();
    Q_DISABLE_COPY(UsbBus)

    /// Puts the printer on the bus, or takes it off, as its `on` says.
    void Update();

private:
    /// A copy of a piece of the client's memory, shared with umockdev.
    typedef std::shared_ptr<UMockdevIoctlData> Data;

    static Data Fetch(UMockdevIoctlData* from, size_t offset, size_t size);
    int Ioctl(unsigned long request, UMockdevIoctlData* argument);
    int Submit(UMockdevIoctlData* argument);
    int Discard();
    int Reap(UMockdevIoctlData* argument);
    void Complete(int status, int length);

    const Printer& m_printer;
    QMutex& m_lock;
    UMockdevTestbed* m_testbed;
    UMockdevIoctlBase* m_usbfs;
    bool m_onBus = false;
    UMockdevIoctlClient* m_client = nullptr; // the program that submitted the last transfer
    Data m_transfer;                         // submitted and not handed back yet: one at a time
    bool m_completed = false;
};

#endif // USBBUS_H
