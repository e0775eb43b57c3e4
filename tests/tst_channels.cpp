// SPDX-License-Identifier: MIT

// The polling of simulated printers, over UDP and through the real libusb.

#include "desk.h"
#include "simulator.h"

#include <poll.h>
#include <sys/syscall.h>

namespace
{

const QString kUsb(kUsbPrinter);

// What a printer reports, as it stands on the wire and as it is shown. A byte "ee" means nothing.
const QByteArray kCounters = "0001e240eeeeeeee00000002ffffffff";
const QByteArray kBlock = "eeeeeeee0400"
                          "0eee03eeeeee01ee" // toner low
                          "09ee03ee03ee26ee" // covers: 3 elements at 38
                          "22ee04ee02ee2cee" // error codes: 2 at 44
                          "21ee03eeeeeeffee" // drum at the end of its life
                          "01ee00ee01ee"
                          "5f0d030021a10700"; // 200031, 500001
const QString kFaults = "墨粉较少 前盖打开 双面单元盖被打开 缺粉 断网硒鼓寿命已尽 ";
const QString kShown = "ORIOLE|打印中|123456|2|-1|" + kFaults;

/// The clock is played, so that no network test waits or depends on the load. While it waits, the
/// monitor reads the time again and again; each reading first lets the printer answer what has been
/// sent, and moves the clock on by a quarter of a second if no answer has come.
struct {
    time_t quarters = 4000; // of a second
    time_t step = 1;
    Simulator* printer = nullptr;
    int asking = -1; // socket of a request that the printer has not taken yet
} playedClock;

/// Lets the printer take the request that has been sent. Returns whether its answer is there.
bool PrintersTurn()
{
    if (!playedClock.printer || playedClock.asking < 0)
        return false;
    const int patience = 1000; // ms that a datagram may be on its way
    pollfd answer = {std::exchange(playedClock.asking, -1), POLLIN, 0};
    return playedClock.printer->FirstPort().waitForReadyRead(patience) &&
           playedClock.printer->FirstPrinter().on && poll(&answer, 1, patience) == 1;
}

/// A desk with a printer, on USB or the network. Its requests stand among the debug lines.
struct PrinterDesk : Desk {
    explicit PrinterDesk(const QString& name, const QByteArray& model = "ORIOLE")
        : simulator({name}), printer(simulator.FirstPrinter())
    {
        for (const char* line : {"state 2", "counters 123456 2 4294967295", "flag 14",
                                 "array 9 1 0 1", "errors 200031 500001", "flag 33 255"})
            simulator.Run(line);
        printer.model = model;
        printer.meddle = [this](const QByteArray& request, QByteArray& answer) {
            debugLines += request.toHex();
            if (++queries == otherQuery)
                answer = otherAnswer;
            answers += answer.toHex() + "|";
        };
        window->m_strPrinterIp = name;
        window->m_nPortType = name == kUsb ? MainWindow::kUsbPort : MainWindow::kNetworkPort;
        playedClock = {};
        playedClock.printer = &simulator;
        if (name != kUsb)
            Tick(); // opens the socket
    }
    ~PrinterDesk() { playedClock = {}; }

    Simulator simulator;
    Printer& printer;
    int queries = 0;
    QByteArray answers;
    int otherQuery = 0; // counted from 1; is answered with
    QByteArray otherAnswer;
};

/// What two ticks show of a printer that answers one query like this; null for not at all.
QString ShownWith(const QString& printer, int query, const QByteArray& answer,
                  const QByteArray& model = "ORIOLE")
{
    PrinterDesk desk(printer, model);
    desk.Fill();
    desk.otherQuery = query;
    desk.otherAnswer = answer;
    desk.Tick(2);
    return desk.Shown();
}

} // namespace

extern "C" time_t time(time_t*) noexcept
{
    return (playedClock.quarters += PrintersTurn() ? 0 : playedClock.step) / 4;
}

extern "C" unsigned int sleep(unsigned int seconds)
{
    Desk::debugLines += "sleep " + QString::number(seconds);
    playedClock.quarters += 4 * seconds;
    PrintersTurn();
    return 0;
}

extern "C" ssize_t sendto(int socket, const void* bytes, size_t size, int flags, const sockaddr* to,
                          socklen_t length)
{
    const ssize_t sent = syscall(SYS_sendto, socket, bytes, size, flags, to, length);
    playedClock.asking = sent > 0 ? socket : -1;
    return sent;
}

class ChannelsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(qgetenv("LD_PRELOAD").contains("umockdev"), "run it under umockdev-wrapper");
    }

    void usbPrintersAreOpenedOnOneTickAndReadOnTheNext()
    {
        PrinterDesk desk(kUsb);
        QFile descriptors("/sys/devices/1-1/descriptors");
        QVERIFY(descriptors.open(QFile::ReadOnly));
        COMPARE_TEXTS(descriptors.readAll().mid(8, 4).toHex(), "7c3a215e"); // vendor, product
        desk.Fill();
        desk.Tick();
        COMPARE_TEXTS(desk.TakeDebugLines(), "");
        COMPARE_TEXTS(desk.Shown(), "old|old|old|old|old|old");
        desk.Tick();
        COMPARE_TEXTS(desk.TakeDebugLines(), "c11100000000f401|c13300000000f401|\"123456\"|"
                                             "c14400000000f401|c10000000000f401|nRecvLen:52");
        COMPARE_TEXTS(desk.answers, "4f52494f4c4500|" + kCounters + "|02|" + kBlock + "|");
        COMPARE_TEXTS(desk.Shown(), kShown);
        QVERIFY2(!desk.window->m_pUsbHandle, "the printer is still open");
        desk.Tick();
        desk.window->GetPrinterInfoByCommand();
        QVERIFY2(!desk.window->m_pUsbHandle, "the printer is still open after a listing");
    }

    void usbRequestsFailIndependently()
    {
        for (const char* nothing : {"", static_cast<const char*>(nullptr)}) {
            COMPARE_TEXTS(ShownWith(kUsb, 1, nothing), "old|打印中|123456|2|-1|" + kFaults);
            COMPARE_TEXTS(ShownWith(kUsb, 2, nothing), "ORIOLE|打印中|old|old|old|" + kFaults);
            COMPARE_TEXTS(ShownWith(kUsb, 3, nothing), "ORIOLE|old|123456|2|-1|" + kFaults);
            COMPARE_TEXTS(ShownWith(kUsb, 4, nothing), kOffline);
        }
    }

    void aShortUsbAnswerIsFollowedByTheOneBefore()
    {
        const QString shown = ShownWith(kUsb, 2, QByteArray("\0\0\0\7", 4), "0123456789AB");
        COMPARE_TEXTS(shown.section('|', 2, 4), "7|943276354|0"); // "89AB"
    }

    void aUsbPrinterThatHangsIsGivenUpAndComesBack()
    {
        PrinterDesk desk(kUsb);
        desk.Tick();
        desk.printer.hangs = true;
        desk.Fill();
        QElapsedTimer tick;
        tick.start();
        desk.Tick();
        const qint64 frozen = tick.elapsed(); // ms, for four requests of a second
        QVERIFY2(frozen >= 4000 && frozen < 10000, qPrintable(QString::number(frozen)));
        COMPARE_TEXTS(desk.Shown(), kOffline);
        desk.simulator.Run("off");
        desk.Tick();
        COMPARE_TEXTS(Desk::debugLines.last(), "open device failed");
        desk.printer.hangs = false;
        desk.simulator.Run("on");
        desk.Tick(3);
        COMPARE_TEXTS(desk.Shown(), kShown);
    }

    void networkPrintersAreAskedForTheirNameOnce()
    {
        PrinterDesk desk(kAddress);
        QCOMPARE(desk.simulator.FirstPort().localPort(), 12105);
        desk.Fill();
        desk.Tick();
        COMPARE_TEXTS(desk.TakeDebugLines(), "send name\n|c1000501c7|recvfrom name\n");
        COMPARE_TEXTS(desk.Shown(), kOffline);
        desk.Tick();
        COMPARE_TEXTS(desk.TakeDebugLines(),
                      "ORIOLE|send status\n|c1000b144f52494f4c45aa|recvfrom Status\n|"
                      "send PageNumber\n|c1000b134f52494f4c45a9|recvfrom PageNumber\n|"
                      "sleep 1|c1000b124f52494f4c45a8|send DetailError\n|recvfrom detailError\n");
        COMPARE_TEXTS(desk.answers, "c2ee0b014f52494f4c4586|c2ee07140102ce|c2ee161301" + kCounters +
                                        "b3|c2ee3a1201" + kBlock + "37|");
        COMPARE_TEXTS(desk.Shown(), kShown);
        desk.otherQuery = 5;
        desk.otherAnswer = "bad";
        desk.Tick();
        QCOMPARE(desk.queries, 5);
        desk.Tick();
        COMPARE_TEXTS(desk.Shown(), kShown);
    }

    void theSocketIsKeptUntilTheNextListing()
    {
        PrinterDesk desk(kAddress);
        qstrcpy(desk.window->m_szModelName, "ORIOLE");
        const int first = desk.window->m_nSocket;
        desk.window->GetSelectPrinterInfo();
        QCOMPARE(desk.window->m_nSocket, first);
        desk.window->GetPrinterInfoByCommand();
        QVERIFY2(fcntl(first, F_GETFL) < 0, "a listing has left the socket open");
        QVERIFY2(desk.window->m_nSocket == -1, "a listing has kept the closed socket's number");
        desk.Tick(2); // opens another; there is no address to send to
        COMPARE_TEXTS(desk.TakeDebugLines(), "\"\"|ORIOLE");
    }

    void aBadAnswerEndsTheTick()
    {
        const auto shown = [](int query, const char* answer) {
            return ShownWith(kAddress, query, QByteArray::fromHex(answer));
        };
        COMPARE_TEXTS(shown(1, "c2000b024f52494f4c4500"), kOffline); // the name: another command
        COMPARE_TEXTS(shown(1, "c20004014f52494f4c4500"), kOffline); // a length below 5
        COMPARE_TEXTS(shown(2, "c1000714010200"), kOffline);         // the state: another start
        COMPARE_TEXTS(shown(2, "c2000713010200"), kOffline);         // another command
        COMPARE_TEXTS(shown(2, "c2000714020200"), kOffline);         // another result
        COMPARE_TEXTS(shown(3, "c200161401"), kOffline);             // the counters
        COMPARE_TEXTS(shown(4, "c2000c1301"), kOffline);             // the hardware state
    }

    void aHardwareStateBlockMayFillItsDatagram()
    {
        const QByteArray entry = "c2ee001201eeeeeeee010022ee04ee78ee"; // 120 error codes
        const QByteArray codes = "ee" + QByteArray("0c000000").repeated(120);
        const auto shown = [=](const QByteArray& offset) {
            const QByteArray answer = QByteArray::fromHex(entry + offset + codes);
            return ShownWith(kAddress, 4, answer).replace("其他错误:12 ", ".");
        };
        COMPARE_TEXTS(shown("0fee"), "ORIOLE|打印中|123456|2|-1|" + QString(120, '.'));
        COMPARE_TEXTS(shown("10ee"), "ORIOLE|打印中|123456|2|-1|"); // end a byte too late
    }

    void aWaitEndsWithTheSecond()
    {
        PrinterDesk desk(kAddress);
        desk.simulator.Run("off");
        QCOMPARE(desk.window->GetPrinterType_net(desk.window->m_szModelName), -1);
        QCOMPARE(desk.window->GetPrinterStatus_net(), -1);
        QCOMPARE(desk.window->GetPrinterPageNumber_net(), -1);
        QCOMPARE(desk.window->GetPrinterDetailError_net(), -1);
        QCOMPARE(playedClock.quarters, 4 * 1004 + 2); // at 1001, 1002, 1003, and after a sleep
        playedClock.step = -1;                        // the clock is set back
        QCOMPARE(desk.window->GetPrinterStatus_net(), -1);
    }

    void aLateAnswerIsTakenForTheNextOne()
    {
        PrinterDesk desk(kAddress);
        desk.Tick();
        playedClock.printer = nullptr;
        QCOMPARE(desk.window->GetPrinterStatus_net(), -1);
        playedClock.printer = &desk.simulator;
        PrintersTurn(); // too late
        QCOMPARE(desk.window->GetPrinterPageNumber_net(), -1);
    }

    void modelNamesAreUtf8AndCutTo63Bytes()
    {
        const QByteArray n63(63, 'N');
        const auto shown = [](const QString& printer, const QByteArray& model) {
            return ShownWith(printer, 0, "", model).section('|', 0, 0);
        };
        COMPARE_TEXTS(shown(kUsb, "鹭"), "鹭");
        COMPARE_TEXTS(shown(kAddress, "鹭"), "鹭");
        COMPARE_TEXTS(shown(kUsb, n63 + "X"), n63);
        COMPARE_TEXTS(shown(kAddress, n63 + QByteArray(187, 'X')), n63);
        COMPARE_TEXTS(Desk::debugLines.filter("c100").value(1).left(8), "c1004014"); // 64 bytes
    }
};

QTEST_MAIN(ChannelsTest)
#include "tst_channels.moc"
