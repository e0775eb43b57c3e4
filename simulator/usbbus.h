// SPDX-License-Identifier: MIT

#ifndef USBBUS_H
#define USBBUS_H

#include "printer.h"

#include <QByteArrayList>
#include <QMutex>
#include <QQueue>

#include <memory>

typedef struct _UMockdevTestbed UMockdevTestbed;
typedef struct _UMockdevIoctlBase UMockdevIoctlBase;
typedef struct _UMockdevIoctlData UMockdevIoctlData;

/// A USB bus with one simulated printer on it. Only programs that have umockdev's library preloaded
/// see it.
class UsbBus
{
public:
    /// Sets the bus up, and the environment by which programs find it.
    /// @param printer  the printer on the bus; read under `lock` whenever a request comes in
    UsbBus(const Printer& printer, QMutex& lock);
    ~UsbBus();
    Q_DISABLE_COPY(UsbBus)

    /// Puts the printer on the bus, or takes it off, as its `plugged` says.
    void Update();

    /// The setup packets that the printer has received since the last call, the last 100 of them.
    QByteArrayList TakeSetups();

private:
    /// A piece of a program's memory that has been fetched; shared with umockdev.
    typedef std::shared_ptr<UMockdevIoctlData> Data;

    static Data Fetch(UMockdevIoctlData* from, size_t pointer, size_t size);
    int Ioctl(unsigned long request, UMockdevIoctlData* argument);
    int Submit(UMockdevIoctlData* argument);
    int Discard(UMockdevIoctlData* argument);
    int Reap(UMockdevIoctlData* argument);
    void Complete(const Data& transfer, int status, int length);

    const Printer& m_printer;
    QMutex& m_lock;
    UMockdevTestbed* m_testbed;
    UMockdevIoctlBase* m_usbfs;
    bool m_onBus = false;
    // The transfers that a program has submitted and not got back yet.
    QList<Data> m_pending;    // never to be completed
    QQueue<Data> m_completed; // to be reaped
    QByteArrayList m_setups;
};

#endif // USBBUS_H
