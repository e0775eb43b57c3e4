// SPDX-License-Identifier: MIT

#include "networkport.h"

#include <QNetworkDatagram>
#include <QTimer>

#include <utility>

namespace
{

const quint16 kCommandPort = 12105;
const int kRemembered = 100; // requests

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
        if (m_requests.size() == kRemembered)
            m_requests.removeFirst();
        m_requests += request.data().toHex().toUpper();
        QString problem;
        const QByteArray answer = m_printer.AnswerFrame(request.data(), problem);
        if (answer.isEmpty())
            qWarning("%s: bad request: %s", qPrintable(m_printer.name), qPrintable(problem));
        if (answer.isEmpty() || m_printer.drop)
            continue;
        const auto send = [this, answer, request] {
            writeDatagram(answer, request.senderAddress(), quint16(request.senderPort()));
        };
        if (m_printer.delay > 0)
            QTimer::singleShot(m_printer.delay, Qt::PreciseTimer, this, send);
        else
            send();
        answered = true;
    }
    return answered;
}

QStringList NetworkPort::TakeRequests() { return std::exchange(m_requests, QStringList()); }
