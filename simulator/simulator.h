// SPDX-License-Identifier: MIT

#ifndef SIMULATOR_H
#define SIMULATOR_H

#include "networkport.h"
#include "usbbus.h"

#include <QStringList>

#include <vector>

/// The commands to type, and what common numbers mean.
QString CommandHelp();

/// The simulated printers, with the network ports and the USB bus at which a monitor finds them.
/// Carries out commands typed for them.
class Simulator
{
public:
    /// @param names  IPv4 addresses; kUsbPrinter for a printer on a USB bus
    /// @throws std::runtime_error when a printer's port cannot be opened
    explicit Simulator(const QStringList& names);

    /// Carries out one typed line, on the printer it names or on all of them.
    /// @return the reply: "ok" when a command was carried out, the help when that was asked for,
    ///         nothing for an empty line, else one line on what is wrong
    QString Run(const QString& line);

    bool HasBus() const { return m_bus != nullptr; }

    // For tests.
    Printer& FirstPrinter() { return m_printers.front(); }
    NetworkPort& FirstPort() { return *m_ports.front(); }

private:
    std::vector<Printer> m_printers;
    QMutex m_lock; // of m_printers, which the USB bus reads on its own thread
    std::vector<std::unique_ptr<NetworkPort>> m_ports;
    std::unique_ptr<UsbBus> m_bus;
};

#endif // SIMULATOR_H
