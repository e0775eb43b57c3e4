// SPDX-License-Identifier: MIT

#ifndef NETWORKPORT_H
#define NETWORKPORT_H

#include "printer.h"

#include <QStringList>
#include <QUdpSocket>

/// The command port of one simulated network printer.
class NetworkPort : public QUdpSocket
{
public:
    /// @param printer  the printer at the port, whose name is its IPv4 address
    explicit NetworkPort(const Printer& printer) : m_printer(printer) {}

    /// Whether the port could be opened.
    bool Open();

    /// Answers the requests that have come, each after the printer's delay. Warns of bad ones.
    /// @return whether any was answered
    bool Answer();

    /// The requests that have come since the last call, the last 100 of them, in hexadecimal.
    QStringList TakeRequests();

private:
    const Printer& m_printer;
    QStringList m_requests;
};

#endif // NETWORKPORT_H
