// SPDX-License-Identifier: MIT

#ifndef CONSOLE_H
#define CONSOLE_H

#include "usbbus.h"

#include <QStringList>

#include <vector>

/// What a person can type, and what common numbers mean.
QString ConsoleHelp();

/// The simulated printers, and what is typed for them.
class Console
{
public:
    /// @param names  IPv4 addresses; kUsbPrinter for a printer on a USB bus
    explicit Console(const QStringList& names);

    /// Carries one typed line out, on the printer that it names or on all of them.
    /// @return the reply: "ok" when a command has been carried out, else one line on what is wrong;
    ///         the help when that was asked for; nothing for an empty line
    QString Run(const QString& line);

    std::vector<Printer>& Printers() { return m_printers; }
    bool HasBus() const { return m_bus != nullptr; }

private:
    std::vector<Printer> m_printers;
    QMutex m_lock; // of m_printers, which the USB bus reads on a thread of its own
    std::unique_ptr<UsbBus> m_bus;
};

#endif // CONSOLE_H
