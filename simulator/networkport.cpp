// SPDX-License-Identifier: MIT

#include "networkport.h"

#include <QNetworkDatagram>

namespace
{

const quint16 kCommandPort = 12105;

} // namespace

bool NetworkPort::Open()
{
    const QHostAddress address(m_printer.name);
    return address.protocol() == QAbstractSocket::IPv4Protocol &&
           bind(address, kCommandPort, QUdpSocket::DontShareAddress);
}

bool NetworkPort::Answer()
{
    bool answered = false;
    while (hasPendingDatagrams()) {
        const QNetworkDatagram request = receiveDatagram();
        QByteArray answer = m_printer.AnswerFrame(request.data());
        if (answer.isNull())
            qWarning("%s: bad request: %s", qPrintable(m_printer.name),
                     request.data().toHex(' ').constData());
        if (m_printer.meddle)
            m_printer.meddle(request.data(), answer);
        if (answer.isNull() || !m_printer.on)
            continue;
        writeDatagram(request.makeReply(answer));
        answered = true;
    }
    return answered;
}
