// SPDX-License-Identifier: MIT

#ifndef USBBUS_H
#define USBBUS_H

#include "printer.h"

#include <memory>
#include <mutex>

/// A USB bus that only the programs started under it see, with one simulated printer on it.
class UsbBus
{
public:
    /// Sets the bus up, and with it the environment of the programs started from then on.
    /// @param printer  the printer on the bus; read under `lock` whenever a request comes in
    UsbBus(const Printer& printer, std::mutex& lock);
    ~UsbBus();

    /// Puts the printer on the bus, or takes it off, as its `plugged` says.
    void Update();

private:
    struct Bed;
    std::unique_ptr<Bed> m_bed;
};

#endif // USBBUS_H
