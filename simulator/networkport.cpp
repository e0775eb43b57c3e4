// SPDX-License-Identifier: MIT

#include "networkport.h"

#include <QNetworkDatagram>

#include <stdexcept>

NetworkPort::NetworkPort(const Printer& printer) : m_printer(printer)
{
    const quint16 commandPort = 12105;
    const QHostAddress address(printer.name);
    if (address.protocol() != QAbstractSocket::IPv4Protocol ||
        !bind(address, commandPort, QUdpSocket::DontShareAddress))
        throw std::runtime_error("cannot listen at " + printer.name.toStdString() +
                                 ": other simulated printers use it, or it is not an IPv4 address "
                                 "of this machine");
    connect(this, &NetworkPort::readyRead, this, &NetworkPort::Answer);
}

void NetworkPort::Answer()
{
    while (hasPendingDatagrams()) {
        const QNetworkDatagram request = receiveDatagram();
        QByteArray answer = m_printer.AnswerFrame(request.data());
        if (answer.isNull())
            qWarning("%s: bad request: %s", qPrintable(m_printer.name),
                     request.data().toHex(' ').constData());
        if (m_printer.meddle)
            m_printer.meddle(request.data(), answer);
        if (!answer.isNull() && m_printer.on)
            writeDatagram(answer, request.senderAddress(), request.senderPort());
    }
}
