// SPDX-License-Identifier: MIT

// The network channel: UDP request frames to the printer's command port, and the four queries.

#include "mainwindow.h"

#include <QDebug>

#include <arpa/inet.h>
#include <cmath>
#include <cstring>
#include <ctime>
#include <fcntl.h>
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
// are the name; in the other answers byte 4 is a result byte, and the printer's data follow it.
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

enum Command {
    kModelNameCommand = 0x01, // has no payload; the payload of the others is the model name
    kHardwareStateCommand = 0x12,
    kPageCountersCommand = 0x13,
    kPrinterStateCommand = 0x14
};

const int kRequestSize = 64;
const int kMaxPayload = kRequestSize - kFrameOverhead;
const int kAnswerSize = 250;
const int kHardwareStateAnswerSize = 500;

} // namespace

struct MainWindow::NetworkQuery {
    Command command;
    unsigned int pause;   // s, between the request and the first look for its answer
    double waitLimit;     // s; the clock counts whole seconds, so its next change ends the wait
    const char* sentLine; // debug line
};

/// Opens the UDP socket. It does not block: a query watches the clock while it waits.
void MainWindow::OpenSocket()
{
    m_nSocket = socket(AF_INET, SOCK_DGRAM, 0);
    fcntl(m_nSocket, F_SETFL, fcntl(m_nSocket, F_GETFL) | O_NONBLOCK);
}

/// Closes the UDP socket. Does nothing when there is none.
void MainWindow::CloseSocket()
{
    if (m_nSocket > 0) { // 0 to 2 are the standard descriptors, which main makes sure are open
        ::close(m_nSocket);
        m_nSocket = -1;
    }
}

int MainWindow::SendSockCmd(char* cmd, unsigned char* buf)
{
    sockaddr_in printer = {};
    printer.sin_family = AF_INET;
    printer.sin_port = htons(kCommandPort);
    // A host name, or no address, becomes the broadcast address, to which sendto refuses to send.
    printer.sin_addr.s_addr = inet_addr(m_strPrinterIp.toLatin1().constData());

    int payloadSize = 0;
    if (cmd) {
        payloadSize = static_cast<int>(qMin(strlen(cmd), size_t(kMaxPayload)));
        memcpy(buf + kPayloadOffset, cmd, payloadSize);
    }
    const int frameSize = payloadSize + kFrameOverhead;
    buf[kStartOffset] = kRequestStart;
    buf[kZeroOffset] = 0; // not left to the caller
    buf[kLengthOffset] = static_cast<unsigned char>(frameSize);

    unsigned char checksum = 0;
    for (int i = 0; i < frameSize - 1; ++i)
        checksum += buf[i];
    buf[frameSize - 1] = checksum;

    return static_cast<int>(sendto(m_nSocket, buf, frameSize, 0,
                                   reinterpret_cast<const sockaddr*>(&printer), sizeof printer));
}

/// Sends a query's request and waits for one answer frame. The first datagram that is not empty is
/// taken as the answer, whoever sent it.
/// @param answer  `answerSize` zero bytes; receives the datagram
/// @return whether an answer came in time and is a valid one to this query
bool MainWindow::Ask(const NetworkQuery& query, unsigned char* answer, size_t answerSize)
{
    const time_t start = time(nullptr);
    const bool asksForName = query.command == kModelNameCommand;
    unsigned char request[kRequestSize] = {};
    request[kCommandOffset] = static_cast<unsigned char>(query.command);
    if (SendSockCmd(asksForName ? nullptr : m_szModelName, request) <= 0)
        return false;
    if (query.pause > 0)
        sleep(query.pause);
    qDebug() << query.sentLine;

    sockaddr_in source = {}; // filled, not read
    socklen_t sourceSize = sizeof source;
    while (recvfrom(m_nSocket, answer, answerSize, 0, reinterpret_cast<sockaddr*>(&source),
                    &sourceSize) <= 0) {
        // A clock that is set back also ends the wait.
        if (fabs(difftime(time(nullptr), start)) > query.waitLimit)
            return false;
    }
    return answer[kStartOffset] == kAnswerStart && answer[kCommandOffset] == query.command &&
           (asksForName || answer[kResultOffset] == kResultOk);
}

int MainWindow::GetPrinterType_net(char* name)
{
    static const NetworkQuery kQuery = {kModelNameCommand, 0, 0.3, "send name\n"};
    unsigned char answer[kAnswerSize] = {};
    if (!Ask(kQuery, answer, sizeof answer) || answer[kLengthOffset] < kFrameOverhead)
        return -1;
    qDebug() << "recvfrom name\n";
    const int size = answer[kLengthOffset] - kFrameOverhead;
    const int longest = kModelNameSize - 1;
    memcpy(name, answer + kNameOffset, qMin(size, longest));
    if (size > longest) // only the first byte of `name` is known to be zero
        name[longest] = '\0';
    return 1;
}

int MainWindow::GetPrinterStatus_net()
{
    static const NetworkQuery kQuery = {kPrinterStateCommand, 0, 0.3, "send status\n"};
    unsigned char answer[kAnswerSize] = {};
    if (!Ask(kQuery, answer, sizeof answer))
        return -1;
    qDebug() << "recvfrom Status\n";
    SetPrinterState(answer[kDataOffset]);
    return 1;
}

int MainWindow::GetPrinterPageNumber_net()
{
    static const NetworkQuery kQuery = {kPageCountersCommand, 0, 0.6, "send PageNumber\n"};
    unsigned char answer[kAnswerSize] = {};
    if (!Ask(kQuery, answer, sizeof answer))
        return -1;
    qDebug() << "recvfrom PageNumber\n";
    ShowPageCounters(answer + kDataOffset);
    return 1;
}

int MainWindow::GetPrinterDetailError_net()
{
    static const NetworkQuery kQuery = {kHardwareStateCommand, 1, 0.5, "send DetailError\n"};
    unsigned char answer[kHardwareStateAnswerSize] = {};
    if (!Ask(kQuery, answer, sizeof answer))
        return -1;
    qDebug() << "recvfrom detailError\n";
    ParseHardwareState(answer + kDataOffset, kHardwareStateAnswerSize - kDataOffset);
    return 1;
}
