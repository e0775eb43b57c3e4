// SPDX-FileCopyrightText: The oriole-monitor authors
// SPDX-License-Identifier: MIT

#include "support.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <unistd.h>

namespace
{
/// A printer's end of the network channel. Its answers are on the monitor's socket before they are
/// asked for, so that no test waits.
class Peer
{
public:
    /// Listens on the command port of `address`, and makes the window's socket, on a known port.
    Peer(Desk& desk, const char* address) : m_socket(socket(AF_INET, SOCK_DGRAM, 0))
    {
        Bind(m_socket, address, 12105);
        desk.Select(2, address);
        desk.Tick();
        m_monitor = Bind(desk.window->m_nSocket, "127.0.0.1", 0);
    }
    ~Peer() { close(m_socket); }

    void Answer(const QByteArray& frame) const
    {
        sendto(m_socket, frame.constData(), frame.size(), 0,
               reinterpret_cast<const sockaddr*>(&m_monitor), sizeof m_monitor);
    }

    /// The requests that have come in, in hexadecimal, with ", " between them.
    QString Requests() const
    {
        QStringList requests;
        char bytes[512];
        ssize_t got = 0;
        while ((got = recv(m_socket, bytes, sizeof bytes, MSG_DONTWAIT)) > 0)
            requests += QByteArray(bytes, int(got)).toHex().toUpper();
        return requests.join(", ");
    }

private:
    static sockaddr_in Bind(int socket, const char* address, quint16 port)
    {
        sockaddr_in local = {};
        local.sin_family = AF_INET;
        local.sin_port = htons(port);
        local.sin_addr.s_addr = inet_addr(address);
        socklen_t size = sizeof local;
        if (bind(socket, reinterpret_cast<sockaddr*>(&local), size) != 0)
            qFatal("cannot bind %s", address);
        getsockname(socket, reinterpret_cast<sockaddr*>(&local), &size);
        return local;
    }

    int m_socket;
    sockaddr_in m_monitor;
};

QByteArray Hex(const char* hex)
{
    return QByteArray::fromHex(hex);
}

const QByteArray kNameAnswer = Hex("C2000B01 4F52494F4C45 99");
const QByteArray kStateAnswer = Hex("C2000714 01 02 00");
const QByteArray kCountersAnswer = Hex("C2001613 01 0001E240 FFFFFFFF 00000002 FFFFFFFF 00");
const QByteArray kDetailAnswer = Hex("C2001412 01 00000000 0100 0E00030000000100 00");
const char kShown[] = "打印中|ORIOLE|123456|2|-1|墨粉较少 ";
} // namespace

class NetworkTest : public QObject
{
    Q_OBJECT

private slots:
    void fromTheFirstTickToLiveValues()
    {
        Desk desk;
        Peer peer(desk, "127.0.0.11"); // its tick has made the socket
        QVERIFY(fcntl(desk.window->m_nSocket, F_GETFL) & O_NONBLOCK);
        QCOMPARE(peer.Requests(), QString());

        peer.Answer(kNameAnswer);
        desk.Tick();
        QCOMPARE(peer.Requests(), QString("C10005 01 C7").remove(' '));
        QCOMPARE(desk.Shown(), QString(OFFLINE));
        QCOMPARE(DebugLines(), QStringList({"send name\n", "recvfrom name\n"}));

        for (const QByteArray& answer : {kStateAnswer, kCountersAnswer, kDetailAnswer})
            peer.Answer(answer);
        desk.Tick();
        QCOMPARE(peer.Requests(), QString("C1000B144F52494F4C45AA, C1000B134F52494F4C45A9, "
                                          "C1000B124F52494F4C45A8"));
        QCOMPARE(desk.Shown(), QString(kShown));
        QCOMPARE(DebugLines(), QStringList({"ORIOLE", "send status\n", "recvfrom Status\n",
                                            "send PageNumber\n", "recvfrom PageNumber\n",
                                            "send DetailError\n", "recvfrom detailError\n"}));
        QCOMPARE(fakeClock.slept, 1U);
    }

    void theChainStopsAtTheFirstQueryThatFails_data()
    {
        QTest::addColumn<QVector<QByteArray>>("answers");
        QTest::addColumn<int>("requests");
        const auto spoilt = [](QByteArray frame, int offset, char byte) {
            frame[offset] = byte;
            return frame;
        };
        typedef QVector<QByteArray> Frames;
        QTest::newRow("start byte") << Frames{spoilt(kStateAnswer, 0, '\xC1')} << 1;
        QTest::newRow("result byte") << Frames{spoilt(kStateAnswer, 4, 0)} << 1;
        QTest::newRow("late state answer") << Frames{kStateAnswer, kStateAnswer} << 2;
        QTest::newRow("late name answer") << Frames{kNameAnswer} << 1;
        QTest::newRow("counters' code")
            << Frames{kStateAnswer, spoilt(kCountersAnswer, 3, 0x12)} << 2;
        QTest::newRow("counters' result")
            << Frames{kStateAnswer, spoilt(kCountersAnswer, 4, 2)} << 2;
        QTest::newRow("detail's result")
            << Frames{kStateAnswer, kCountersAnswer, spoilt(kDetailAnswer, 4, 0)} << 3;
        QTest::newRow("one byte") << Frames{"\xC2"} << 1;
    }

    void theChainStopsAtTheFirstQueryThatFails()
    {
        QFETCH(QVector<QByteArray>, answers);
        QFETCH(int, requests);
        Desk desk;
        Peer peer(desk, "127.0.0.12");
        strcpy(desk.window->m_szModelName, "ORIOLE");
        desk.window->ui->DetailError->setText("stale");
        for (const QByteArray& answer : answers)
            peer.Answer(answer);
        desk.Tick();
        QCOMPARE(peer.Requests().split(", ").size(), requests);
        QCOMPARE(desk.Shown(), QString(OFFLINE));
        // The next tick begins anew on the same socket, with the name still known.
        for (const QByteArray& answer : {kStateAnswer, kCountersAnswer, kDetailAnswer})
            peer.Answer(answer);
        desk.Tick();
        QCOMPARE(desk.Shown(), QString(kShown));
    }

    void theWaitEndsWithTheSecondsCount_data()
    {
        QTest::addColumn<QVector<int>>("readings"); // of the clock
        QTest::newRow("next second") << QVector<int>{100, 100, 100, 101};
        QTest::newRow("clock set back") << QVector<int>{100, 100, 40};
    }

    void theWaitEndsWithTheSecondsCount()
    {
        QFETCH(QVector<int>, readings);
        Desk desk;
        Peer peer(desk, "127.0.0.13");
        fakeClock.readings.assign(readings.begin(), readings.end());
        QCOMPARE(desk.window->GetPrinterStatus_net(), -1);
        QVERIFY(fakeClock.readings.empty());
        QCOMPARE(DebugLines(), QStringList("send status\n"));
    }

    void namesAreCopiedWithinTheirBuffer_data()
    {
        QTest::addColumn<int>("length");
        QTest::addColumn<int>("result");
        QTest::addColumn<int>("copied");
        QTest::newRow("no room for a checksum") << 4 << -1 << 0;
        QTest::newRow("zero") << 0 << -1 << 0;
        QTest::newRow("empty name") << 5 << 1 << 0;
        QTest::newRow("one byte") << 6 << 1 << 1;
        QTest::newRow("63 bytes") << 68 << 1 << 63;
        QTest::newRow("64 bytes") << 69 << 1 << 63;
        QTest::newRow("more than the answer") << 255 << 1 << 63;
    }

    void namesAreCopiedWithinTheirBuffer()
    {
        QFETCH(int, length);
        QFETCH(int, result);
        QFETCH(int, copied);
        Desk desk;
        Peer peer(desk, "127.0.0.14");
        peer.Answer(Hex("C200") + char(length) + '\x01' + QByteArray(246, 'N'));
        std::vector<char> name(64);
        QCOMPARE(desk.window->GetPrinterType_net(name.data()), result);
        QCOMPARE(QByteArray(name.data(), 64),
                 QByteArray(copied, 'N') + QByteArray(64 - copied, '\0'));
    }

    void payloadsAreCutToTheFrame_data()
    {
        QTest::addColumn<QByteArray>("payload");
        QTest::addColumn<int>("sent");
        QTest::newRow("none") << QByteArray() << 5;
        QTest::newRow("empty") << QByteArray("") << 5;
        QTest::newRow("59 bytes") << QByteArray(59, 'N') << 64;
        QTest::newRow("60 bytes") << QByteArray(60, 'N') << 64;
        QTest::newRow("500 bytes") << QByteArray(500, 'N') << 64;
    }

    void payloadsAreCutToTheFrame()
    {
        QFETCH(QByteArray, payload);
        QFETCH(int, sent);
        Desk desk;
        Peer peer(desk, "127.0.0.15");
        std::vector<unsigned char> request(64);
        request[3] = 0xFE;
        QCOMPARE(
            desk.window->SendSockCmd(payload.isNull() ? nullptr : payload.data(), request.data()),
            sent);
        QByteArray frame = Hex("C100") + char(sent) + '\xFE' + payload.left(59);
        frame += char(std::accumulate(frame.begin(), frame.end(), 0));
        QCOMPARE(peer.Requests(), QString(frame.toHex().toUpper()));
    }

    void whatCannotBeSentFailsAtOnce_data()
    {
        QTest::addColumn<QString>("address");
        QTest::addColumn<bool>("hasSocket");
        QTest::newRow("empty address") << "" << true;
        QTest::newRow("host name") << "printer.local" << true;
        QTest::newRow("no socket") << "127.0.0.16" << false;
    }

    void whatCannotBeSentFailsAtOnce()
    {
        QFETCH(QString, address);
        QFETCH(bool, hasSocket);
        Desk desk;
        desk.Select(2, address);
        if (hasSocket)
            desk.Tick();
        strcpy(desk.window->m_szModelName, "ORIOLE");
        QCOMPARE(desk.window->GetPrinterStatus_net(), -1);
        QCOMPARE(desk.window->GetPrinterDetailError_net(), -1);
        QCOMPARE(DebugLines(), QStringList());
        QCOMPARE(fakeClock.slept, 0U);
    }

    void aShortStateAnswerIsReadFromTheZeroesBehindIt()
    {
        Desk desk;
        Peer peer(desk, "127.0.0.17");
        peer.Answer(kStateAnswer.left(5));
        QCOMPARE(desk.window->GetPrinterStatus_net(), 1);
        QCOMPARE(desk.window->ui->PrinterStatus->text(), QString("未知状态"));
    }

    void aDetailAnswerEndsWithItsBuffer()
    {
        Desk desk;
        Peer peer(desk, "127.0.0.18");
        // An array of 122 codes from offset 6 of the block ends at byte 494, the last but one.
        QByteArray block = Hex("00000000 0200 220004007A000600 0100030000000100");
        for (const int count : {122, 123}) {
            block[10] = char(count);
            peer.Answer(Hex("C2000012 01") + block + QByteArray(600, '\0'));
            QCOMPARE(desk.window->GetPrinterDetailError_net(), 1);
            const QString shown = desk.window->ui->DetailError->toPlainText();
            QCOMPARE(shown.startsWith("其他错误:"), count == 122);
            QVERIFY(shown.endsWith("双面单元错误 "));
        }
    }

    void theSocketLivesUntilTheNextListing()
    {
        Desk desk;
        Peer first(desk, "127.0.0.19");
        const int socket = desk.window->m_nSocket;
        desk.window->GetSelectPrinterInfo();
        QCOMPARE(desk.window->m_nSocket, socket);
        desk.window->GetPrinterInfoByCommand();
        QCOMPARE(desk.window->m_nSocket, -1);
        QCOMPARE(fcntl(socket, F_GETFL), -1);
        desk.Tick();
        const int second = desk.window->m_nSocket;
        QVERIFY(second > 0);
        desk.window.reset();
        QCOMPARE(fcntl(second, F_GETFL), -1);
    }
};

QTEST_MAIN(NetworkTest)
#include "tst_network.moc"
