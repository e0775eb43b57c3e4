// SPDX-License-Identifier: MIT

// The network channel: UDP request frames to the printer's command port, and the four queries.

#include "mainwindow.h"

#include <QDebug>

#include <arpa/inet.h>
#include <cmath>
#include <cstring>
#include <ctime>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

const unsigned short kCommandPort = 12105;

// Request frame with n payload bytes:
//   0 start 0xC1 | 1 zero | 2 frame length n + 5 | 3 command | 4... payload | 4 + n checksum
// Answer frame of length L:
//   0 start 0xC2 | 1 any  | 2 frame length L     | 3 command | 4... data    | L - 1 any
// The checksum is the sum of all bytes before it, modulo 256. The data of the model-name answer
// are the name; in the other answers byte 4 is a result byte and the printer's data follow it.
const unsigned char kRequestStart = 0xC1;
const unsigned char kAnswerStart = 0xC2;
const unsigned char kResultOk = 0x01;
const int kStartOffset = 0;
const int kZeroOffset = 1;
const int kLengthOffset = 2;
const int kCommandOffset = 3;
const int kPayloadOffset = 4;
const int kNameOffset = 4;
const int kResultOffset = 4;
const int kDataOffset = 5;
const int kFrameOverhead = 5; // bytes of a frame around its payload or name

const int kRequestSize = 64;
const int kMaxPayload = kRequestSize - kFrameOverhead;
const int kAnswerSize = 250;
const int kDetailAnswerSize = 500;

} // namespace

struct MainWindow::NetworkQuery {
    unsigned char command;
    bool toKnownModel;    // carries the model name, and is answered with a result byte
    unsigned int pause;   // s, between the send and the first look for an answer
    double waitLimit;     // s on a clock of whole seconds: the wait ends as the count changes
    const char* sentLine; // debug line
};

int MainWindow::SendSockCmd(char* cmd, unsigned char* buf)
{
    sockaddr_in printer = {};
    printer.sin_family = AF_INET;
    printer.sin_port = htons(kCommandPort);
    printer.sin_addr.s_addr = inet_addr(m_strPrinterIp.toLatin1().constData());

    int payloadSize = 0;
    if (cmd) {
        payloadSize = static_cast<int>(qMin(strlen(cmd), size_t(kMaxPayload)));
        memcpy(buf + kPayloadOffset, cmd, payloadSize);
    }
    const int frameSize = payloadSize + kFrameOverhead;
    buf[kStartOffset] = kRequestStart;
    buf[kZeroOffset] = 0;
    buf[kLengthOffset] = static_cast<unsigned char>(frameSize);

    unsigned char checksum = 0;
    for (int i = 0; i < frameSize - 1; ++i)
        checksum += buf[i];
    buf[frameSize - 1] = checksum;

    return static_cast<int>(sendto(m_nSocket, buf, frameSize, 0,
                                   reinterpret_cast<const sockaddr*>(&printer), sizeof printer));
}

/// Sends a query and waits for one answer frame. The first datagram that comes is the answer,
/// whoever sent it.
/// @param answer  `answerSize` zero bytes, which the answer overwrites from the start
/// @return whether the answer came in time and is one to this query
bool MainWindow::Exchange(const NetworkQuery& query, unsigned char* answer, size_t answerSize)
{
    unsigned char request[kRequestSize] = {};
    sockaddr_in source = {};
    socklen_t sourceSize = sizeof source;
    const time_t start = time(nullptr);
    request[kCommandOffset] = query.command;
    if (SendSockCmd(query.toKnownModel ? m_szModelName : nullptr, request) <= 0)
        return false;
    if (query.pause > 0)
        sleep(query.pause);
    qDebug() << query.sentLine;

    while (recvfrom(m_nSocket, answer, answerSize, 0, reinterpret_cast<sockaddr*>(&source),
                    &sourceSize) <= 0) {
        // A clock that is set back ends the wait like one that moves on.
        if (fabs(difftime(time(nullptr), start)) > query.waitLimit)
            break;
    }
    return answer[kStartOffset] == kAnswerStart && answer[kCommandOffset] == query.command &&
           (!query.toKnownModel || answer[kResultOffset] == kResultOk);
}

int MainWindow::GetPrinterType_net(char* name)
{
    static const NetworkQuery kQuery = {0x01, false, 0, 0.3, "send name\n"};
    unsigned char answer[kAnswerSize] = {};
    if (!Exchange(kQuery, answer, sizeof answer) || answer[kLengthOffset] < kFrameOverhead)
        return -1;
    qDebug() << "recvfrom name\n";
    memcpy(name, answer + kNameOffset,
           qMin(answer[kLengthOffset] - kFrameOverhead, kModelNameSize - 1));
    return 1;
}

int MainWindow::GetPrinterStatus_net()
{
    static const NetworkQuery kQuery = {0x14, true, 0, 0.3, "send status\n"};
    unsigned char answer[kAnswerSize] = {};
    if (!Exchange(kQuery, answer, sizeof answer))
        return -1;
    qDebug() << "recvfrom Status\n";
    SetPrinterState(answer[kDataOffset]);
    return 1;
}

int MainWindow::GetPrinterPageNumber_net()
{
    static const NetworkQuery kQuery = {0x13, true, 0, 0.6, "send PageNumber\n"};
    unsigned char answer[kAnswerSize] = {};
    if (!Exchange(kQuery, answer, sizeof answer))
        return -1;
    qDebug() << "recvfrom PageNumber\n";
    ShowPageCounters(ReadPageCounters(answer + kDataOffset));
    return 1;
}

int MainWindow::GetPrinterDetailError_net()
{
    static const NetworkQuery kQuery = {0x12, true, 1, 0.5, "send DetailError\n"};
    unsigned char answer[kDetailAnswerSize] = {};
    if (!Exchange(kQuery, answer, sizeof answer))
        return -1;
    qDebug() << "recvfrom detailError\n";
    ParseHardwareState(answer + kDataOffset, kDetailAnswerSize - kDataOffset);
    return 1;
}

/// Closes the UDP socket. Does nothing when there is none.
void MainWindow::CloseSocket()
{
    if (m_nSocket > 0) {
        ::close(m_nSocket);
        m_nSocket = -1;
    }
}
