// SPDX-License-Identifier: MIT

#ifndef NETWORKPORT_H
#define NETWORKPORT_H

#include "printer.h"

#include <QUdpSocket>

/// The command port of one simulated network printer.
class NetworkPort : public QUdpSocket
{
public:
    /// @param printer  the printer at the port, whose name is its IPv4 address
    explicit NetworkPort(const Printer& printer) : m_printer(printer) {}

    /// Whether the port could be opened.
    bool Open();

    /// Answers the requests that have come. Warns of bad ones.
    /// @return whether any was answered
    bool Answer();

private:
    const Printer& m_printer;
};

#endif // NETWORKPORT_H
