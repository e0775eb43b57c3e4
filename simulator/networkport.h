// SPDX-License-Identifier: MIT

#ifndef NETWORKPORT_H
#define NETWORKPORT_H

#include "printer.h"

#include <QUdpSocket>

/// The command port of one simulated network printer. Answers requests, and warns of bad ones.
class NetworkPort : public QUdpSocket
{
public:
    /// @param printer  the printer at the port, whose name is its IPv4 address
    /// @throws std::runtime_error when the port cannot be opened
    explicit NetworkPort(const Printer& printer);

private:
    void Answer();

    const Printer& m_printer;
};

#endif // NETWORKPORT_H
