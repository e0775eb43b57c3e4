// SPDX-License-Identifier: MIT

// Polling over both channels, with libusb played and the network's answers there beforehand.

#include "support.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <unistd.h>

typedef QVector<QByteArray> Frames;
Q_DECLARE_METATYPE(Frames)

namespace {
const QString kOpen = "init, debug 3, list, open 3a7c:5e21, free 1";
const QString kRead = "C1/17/0/0/500 1000ms, C1/51/0/0/500 1000ms, C1/68/0/0/500 1000ms, "
                      "C1/0/0/0/500 1000ms";
const QString kClose = "close, exit";
const std::map<int, QByteArray> kAnswers = {{17, QByteArray("ORIOLE", 7)},
                                            {51, QByteArray::fromHex("0001E240 AAAAAAAA FFFFFFFF 00000007")},
                                            {68, "\x04\x02"},
                                            {0, QByteArray::fromHex("00000000 0100 0E00030000000100")}};

/// A desk with a USB printer that is not yet open.
struct UsbDesk : Desk {
    UsbDesk() { Select(1); }
};

QByteArray Hex(const char* hex) { return QByteArray::fromHex(hex); }

/// A printer's end of the network channel, and the first tick of a window that polls it. Answers
/// stand on the monitor's socket before they are asked for, so that nothing waits.
struct Peer {
    Desk desk;
    MainWindow& window = *desk.window;
    int printer = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in monitor;

    explicit Peer(const char* address = "127.0.0.11") {
        Bind(printer, address, 12105);
        desk.Select(2, address);
        desk.Tick();
        monitor = Bind(window.m_nSocket, "127.0.0.1", 0);
    }
    ~Peer() { close(printer); }

    static sockaddr_in Bind(int socket, const char* address, quint16 port) {
        sockaddr_in local = {AF_INET, htons(port), {inet_addr(address)}, {}};
        socklen_t size = sizeof local;
        if (bind(socket, reinterpret_cast<sockaddr*>(&local), size) != 0) qFatal("cannot bind %s", address);
        getsockname(socket, reinterpret_cast<sockaddr*>(&local), &size);
        return local;
    }

    void Answer(const Frames& frames) const {
        for (const QByteArray& frame : frames)
            sendto(printer, frame.constData(), frame.size(), 0, reinterpret_cast<const sockaddr*>(&monitor),
                   sizeof monitor);
    }

    /// The requests that have come in, in hexadecimal, with " " between them.
    QString Requests() const {
        QStringList requests;
        char bytes[512];
        for (ssize_t got = 0; (got = recv(printer, bytes, sizeof bytes, MSG_DONTWAIT)) > 0;)
            requests += QByteArray(bytes, int(got)).toHex().toUpper();
        return requests.join(" ");
    }
};

const QByteArray kName = Hex("C2000B01 4F52494F4C45 99");
const QByteArray kState = Hex("C2000714 01 02 00");
const QByteArray kCounters = Hex("C2001613 01 0001E240 FFFFFFFF 00000002 FFFFFFFF 00");
const QByteArray kDetail = Hex("C2001412 01 00000000 0100 0E00030000000100 00");
const QString kShown = "打印中|ORIOLE|123456|2|-1|墨粉较少 ";

QByteArray Spoilt(QByteArray frame, int offset, char byte) {
    frame[offset] = byte;
    return frame;
}
} // namespace

class ChannelsTest : public QObject {
    Q_OBJECT

private slots:
    void init() {
        fakeUsb = FakeUsb();
        fakeClock = FakeClock();
    }

    void opensOnOneTickAndReadsOnTheNext() {
        UsbDesk desk;
        fakeUsb.answers = kAnswers;
        for (int poll = 0; poll < 2; ++poll) {
            const QString before = desk.Shown();
            desk.Tick();
            QCOMPARE(fakeUsb.Calls(), kOpen);
            QCOMPARE(desk.Shown(), before);
            desk.Tick();
            QCOMPARE(fakeUsb.Calls(), kRead + ", " + kClose);
            QCOMPARE(desk.Shown(), QString("空闲|ORIOLE|123456|-1|7|墨粉较少 "));
            QCOMPARE(DebugLines(), QString("\"123456\"|nRecvLen:14"));
        }
    }

    void whatFailsToOpenIsReleasedAndTriedAgain_data() {
        Columns<QString, QString>({"calls", "line"});
        Row("init", "init", "");
        Row("list", "init, debug 3, list, exit", "libusb_get_device_list failed");
        Row("open", kOpen + ", exit", "open device failed");
    }

    void whatFailsToOpenIsReleasedAndTriedAgain() {
        UsbDesk desk;
        fakeUsb.fails = QTest::currentDataTag();
        for (int tick = 0; tick < 2; ++tick) {
            desk.window->ui->DetailError->setText("stale");
            desk.Tick();
            QTEST(fakeUsb.Calls(), "calls");
            QTEST(DebugLines(), "line");
            QCOMPARE(desk.Shown(), kOffline);
        }
    }

    void aFailingRequestKeepsItsFieldAndTheLastOneTheDisplay_data() {
        Columns<int, QString>({"request", "shown"});
        Row("model name", 17, "空闲|old|123456|-1|7|墨粉较少 ");
        Row("page counters", 51, "空闲|ORIOLE|old|old|old|墨粉较少 ");
        Row("state", 68, "old|ORIOLE|123456|-1|7|墨粉较少 ");
        Row("hardware state", 0, kOffline);
    }

    void aFailingRequestKeepsItsFieldAndTheLastOneTheDisplay() {
        QFETCH(int, request);
        for (const bool answersNothing : {false, true}) {
            UsbDesk desk;
            for (QLineEdit* field : desk.window->findChildren<QLineEdit*>()) field->setText("old");
            fakeUsb.answers = kAnswers;
            fakeUsb.answers.erase(request);
            if (answersNothing) fakeUsb.answers[request] = "";
            desk.Tick(2);
            QTEST(desk.Shown(), "shown");
            QCOMPARE(fakeUsb.Calls(), QStringList({kOpen, kRead, kClose}).join(", "));
        }
    }

    void shortAnswersAreReadOnWithTheOnesBefore() {
        UsbDesk desk;
        // Left of the name are bytes 14 on, of the counters bytes 1 to 13, of the state nothing.
        fakeUsb.answers = {{17, QByteArray(14, '\0') + QByteArray::fromHex("0300 030000000100")},
                           {51, QByteArray::fromHex("00000001 02000E00 03000000 0100")},
                           {68, "\x01"},
                           {0, "\x07"}};
        desk.Tick(2);
        QCOMPARE(desk.Shown(), QString("热机中||1|50331648|16777984|墨粉较少 双面单元不存在 "));
    }

    void modelNamesAreCutAndEnded() {
        UsbDesk desk;
        for (const int size : {1, 62, 63, 64, 500}) {
            memset(desk.window->m_szModelName, '#', 63);
            fakeUsb.answers[17] = QByteArray(size, 'A');
            desk.Tick(2);
            QCOMPARE(qstrlen(desk.window->m_szModelName), uint(qMin(size, 63)));
        }
        fakeUsb.answers[17] = QByteArray("AB\0C", 4); // what stands behind it is kept
        desk.Tick(2);
        QCOMPARE(QByteArray(desk.window->m_szModelName, 8), QByteArray("AB\0CAAAA", 8));
    }

    void anOpenPrinterIsClosedOnceWhenItIsLeft() {
        // By a listing that fails, a network tick, a tick without a printer, the window's end.
        for (const int portType : {1, 2, 0, -1}) {
            UsbDesk desk;
            desk.Tick();
            fakeUsb.Calls();
            desk.Select(portType);
            if (portType == 1)
                desk.window->GetPrinterInfoByCommand();
            else if (portType >= 0)
                desk.Tick();
            desk.window.reset();
            QCOMPARE(fakeUsb.Calls(), kClose);
        }
    }

    void fromTheFirstTickToLiveValues() {
        Peer peer;
        QCOMPARE(peer.Requests(), QString());
        peer.Answer({kName});
        peer.desk.Tick();
        QCOMPARE(peer.Requests(), QString("C1000501C7"));
        QCOMPARE(peer.desk.Shown(), kOffline);
        QCOMPARE(DebugLines(), QString("send name\n|recvfrom name\n"));
        peer.Answer({kState, kCounters, kDetail});
        peer.desk.Tick();
        QCOMPARE(peer.Requests(), QString("C1000B144F52494F4C45AA C1000B134F52494F4C45A9 "
                                          "C1000B124F52494F4C45A8"));
        QCOMPARE(peer.desk.Shown(), kShown);
        QCOMPARE(DebugLines(), QString("ORIOLE|send status\n|recvfrom Status\n|send PageNumber\n|"
                                       "recvfrom PageNumber\n|send DetailError\n|"
                                       "recvfrom detailError\n"));
        QCOMPARE(fakeClock.slept, 1U);
    }

    void theChainStopsAtTheFirstQueryThatFails_data() {
        Columns<Frames, int>({"answers", "requests"});
        Row("no answer", Frames{}, 1);
        Row("one byte", Frames{"\xC2"}, 1);
        Row("start byte", Frames{Spoilt(kState, 0, '\xC1')}, 1);
        Row("state's result", Frames{Spoilt(kState, 4, 0)}, 1);
        Row("late name answer", Frames{kName}, 1);
        Row("late state answer", Frames{kState, kState}, 2);
        Row("counters' result", Frames{kState, Spoilt(kCounters, 4, 2)}, 2);
        Row("detail's code", Frames{kState, kCounters, kCounters}, 3);
        Row("detail's result", Frames{kState, kCounters, Spoilt(kDetail, 4, 0)}, 3);
    }

    void theChainStopsAtTheFirstQueryThatFails() {
        QFETCH(Frames, answers);
        Peer peer;
        strcpy(peer.window.m_szModelName, "ORIOLE");
        peer.window.ui->DetailError->setText("stale");
        peer.Answer(answers);
        peer.desk.Tick();
        QTEST(peer.Requests().split(" ").size(), "requests");
        QCOMPARE(peer.desk.Shown(), kOffline);
        // The next tick begins anew, with the name and the socket that there are.
        peer.Answer({kState, kCounters, kDetail});
        peer.desk.Tick();
        QCOMPARE(peer.desk.Shown(), kShown);
    }

    void aWaitEndsWhenTheSecondsCountChanges() {
        Peer peer;
        for (const int step : {1, -1}) { // also when the clock is set back
            fakeClock.step = step;
            fakeClock.reads = 0;
            QCOMPARE(peer.window.GetPrinterPageNumber_net(), -1);
            QCOMPARE(fakeClock.reads, 2);
        }
    }

    void namesOfEveryLengthStayWithinTheirBuffer() {
        Peer peer;
        for (int length = 0; length < 256; ++length) {
            std::vector<char> name(64);
            peer.Answer({Hex("C200") + char(length) + '\x01' + QByteArray(246, 'N')});
            QCOMPARE(peer.window.GetPrinterType_net(name.data()), length < 5 ? -1 : 1);
            QCOMPARE(qstrlen(name.data()), uint(qBound(0, length - 5, 63)));
        }
    }

    void payloadsAreCutToTheFrame() {
        Peer peer;
        for (const int size : {-1, 0, 59, 60, 500}) { // -1: none
            QByteArray payload(qMax(size, 0), 'N');
            unsigned char request[64] = {0, 0, 0, 0xFE};
            const int sent = peer.window.SendSockCmd(size < 0 ? nullptr : payload.data(), request);
            QByteArray frame = Hex("C100") + char(sent) + '\xFE' + payload.left(59);
            frame += char(std::accumulate(frame.begin(), frame.end(), 0));
            QCOMPARE(sent, frame.size());
            QCOMPARE(peer.Requests(), QString(frame.toHex().toUpper()));
        }
    }

    void whatCannotBeSentFailsAtOnce() {
        Peer peer;
        strcpy(peer.window.m_szModelName, "ORIOLE");
        for (const char* address : {"", "printer.local", "127.0.0.11"}) {
            peer.desk.Select(2, address);
            if (address == QString("127.0.0.11")) peer.window.GetPrinterInfoByCommand();
            QCOMPARE(peer.window.GetPrinterDetailError_net(), -1);
        }
        QCOMPARE(DebugLines(), QString());
        QCOMPARE(fakeClock.slept, 0U);
    }

    void answersAreReadWithTheZeroesBehindThemAndNotBeyond() {
        Peer peer;
        peer.Answer({kState.left(5)});
        QCOMPARE(peer.window.GetPrinterStatus_net(), 1);
        QCOMPARE(peer.window.ui->PrinterStatus->text(), QString("未知状态"));
        // Error codes that end at byte 494 of the block, the last but one that the buffer holds.
        QByteArray block = Hex("00000000 0200 220004007A000600 0100030000000100");
        for (const int count : {122, 123}) {
            block[10] = char(count);
            peer.Answer({Hex("C2000012 01") + block + QByteArray(600, '\0')});
            QCOMPARE(peer.window.GetPrinterDetailError_net(), 1);
            const QString shown = peer.window.ui->DetailError->toPlainText();
            QCOMPARE(shown == "双面单元错误 ", count == 123);
        }
    }

    void theSocketLivesUntilTheNextListing() {
        Peer peer;
        const int socket = peer.window.m_nSocket;
        peer.window.GetSelectPrinterInfo();
        QCOMPARE(fcntl(socket, F_GETFL) & O_NONBLOCK, O_NONBLOCK);
        peer.window.GetPrinterInfoByCommand();
        QCOMPARE(fcntl(socket, F_GETFL), -1);
        peer.desk.Tick();
        peer.desk.window.reset();
        QCOMPARE(fcntl(socket, F_GETFL), -1);
    }
};

QTEST_MAIN(ChannelsTest)
#include "tst_channels.moc"
