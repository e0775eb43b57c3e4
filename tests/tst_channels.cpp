// SPDX-License-Identifier: MIT

// The polling of simulated printers, over UDP and through the real libusb. Runs under
// umockdev-wrapper.

#include "desk.h"
#include "simulator.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>

namespace
{

const QString kUsb(kUsbPrinter);
const QString kShown = "ORIOLE|打印中|123456|2|-1|墨粉较少 ";
enum { kStartByte = 0, kLengthByte = 2, kCommandByte = 3, kResultByte = 4 }; // of an answer frame

/// What the monitor reads in place of the clock. To read it gives the printer its turn. It moves on
/// by a second, unless the printer has just answered: an answer comes at once, or never.
struct {
    time_t now = 1000;
    Simulator* printer = nullptr;
    int asking = -1; // socket of a request that the printer has not taken yet
} playedClock;

/// Lets the printer take the request that has been sent. Returns whether its answer is there.
bool PrintersTurn()
{
    if (!playedClock.printer || playedClock.asking < 0)
        return false;
    const int patience = 5000; // ms that a datagram may be on its way
    pollfd answer = {std::exchange(playedClock.asking, -1), POLLIN, 0};
    return playedClock.printer->FirstPort().waitForReadyRead(patience) &&
           playedClock.printer->FirstPrinter().on && poll(&answer, 1, patience) == 1;
}

/// A desk with a printer, on USB or the network.
struct PrinterDesk : Desk {
    explicit PrinterDesk(const QString& name, const QByteArray& model = "ORIOLE")
        : simulator({name}), printer(simulator.FirstPrinter())
    {
        for (const char* line : {"state 2", "counters 123456 2 4294967295", "flag 14"})
            simulator.Run(line);
        printer.model = model;
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
};

/// What is shown of a USB printer that answers one request like this, null for not at all.
Text ShownOfUsb(MainWindow::UsbRequest request, const QByteArray& instead)
{
    PrinterDesk desk(kUsb);
    desk.Fill();
    desk.printer.meddle = [=](const QByteArray& asked, QByteArray& answer) {
        answer = asked[1] == request ? instead : answer;
    };
    desk.Tick(2);
    return desk.Shown();
}

/// How many queries two ticks make, and what is shown, when this byte is wrong in one answer.
Text ShownOfNetwork(int query, int wrongByte)
{
    PrinterDesk desk(kAddress);
    int queries = 0;
    desk.printer.meddle = [&](const QByteArray&, QByteArray& answer) {
        if (++queries == query)
            answer[wrongByte] = 2;
    };
    desk.Tick(2);
    return QString::number(queries) + desk.Shown();
}

/// The name that is shown for a printer of this model.
Text ShownName(const QString& printer, const QByteArray& model)
{
    const PrinterDesk desk(printer, model);
    desk.Tick(2);
    return desk.Shown().section('|', 0, 0);
}

} // namespace

extern "C" time_t time(time_t*) noexcept { return playedClock.now += PrintersTurn() ? 0 : 1; }

extern "C" unsigned int sleep(unsigned int seconds)
{
    Desk::debugLines += "sleep " + QString::number(seconds);
    playedClock.now += seconds;
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
    void usbPrintersAreOpenedOnOneTickAndReadOnTheNext()
    {
        PrinterDesk desk(kUsb);
        desk.Fill();
        desk.printer.meddle = [&](const QByteArray& request, QByteArray&) {
            Desk::debugLines += request.toHex();
        };
        desk.Tick();
        QCOMPARE(desk.Shown(), Text("old|old|old|old|old|old"));
        QCOMPARE(desk.TakeDebugLines(), Text(""));
        desk.Tick();
        QCOMPARE(desk.Shown(), Text(kShown));
        QCOMPARE(desk.TakeDebugLines(), Text("c11100000000f401|c13300000000f401|\"123456\"|"
                                             "c14400000000f401|c10000000000f401|nRecvLen:14"));
        desk.Tick();
        QCOMPARE(desk.TakeDebugLines(), Text("")); // is opened anew
    }

    void usbRequestsFailEachForItself()
    {
        const Text nameless = "old|打印中|123456|2|-1|墨粉较少 ";
        const Text countless = "ORIOLE|打印中|old|old|old|墨粉较少 ";
        const Text stateless = "ORIOLE|old|123456|2|-1|墨粉较少 ";
        for (const char* nothing : {"", static_cast<const char*>(nullptr)}) {
            QCOMPARE(ShownOfUsb(MainWindow::kModelNameRequest, nothing), nameless);
            QCOMPARE(ShownOfUsb(MainWindow::kPageCountersRequest, nothing), countless);
            QCOMPARE(ShownOfUsb(MainWindow::kPrinterStateRequest, nothing), stateless);
            QCOMPARE(ShownOfUsb(MainWindow::kHardwareStateRequest, nothing), Text(kOffline));
        }
    }

    void aUsbPrinterThatIsSwitchedOffComesBack()
    {
        PrinterDesk desk(kUsb);
        desk.Tick();
        desk.simulator.Run("off");
        desk.Fill();
        desk.Tick();
        QCOMPARE(desk.Shown(), Text(kOffline));
        desk.Tick();
        QCOMPARE(desk.TakeDebugLines(), Text("nRecvLen:-4|open device failed"));
        desk.simulator.Run("on");
        desk.Tick(2);
        QCOMPARE(desk.Shown(), Text(kShown));
    }

    void aUsbPrinterThatHangsIsGivenUp()
    {
        PrinterDesk desk(kUsb);
        desk.Tick();
        desk.printer.hangs = true;
        QElapsedTimer tick;
        tick.start();
        desk.Tick();
        QVERIFY(tick.elapsed() >= 4000); // ms, for four requests
        QCOMPARE(desk.Shown(), Text(kOffline));
    }

    void anOpenUsbPrinterIsClosedByAListing()
    {
        PrinterDesk desk(kUsb);
        desk.Tick();
        desk.window->GetPrinterInfoByCommand();
        QVERIFY(!desk.window->m_pUsbHandle);
    }

    void networkPrintersAreAskedForTheirNameFirst()
    {
        PrinterDesk desk(kAddress);
        desk.Fill();
        desk.Tick();
        QCOMPARE(desk.Shown(), Text(kOffline));
        QCOMPARE(desk.TakeDebugLines(), Text("send name\n|recvfrom name\n"));
        desk.Tick();
        QCOMPARE(desk.Shown(), Text(kShown));
        QCOMPARE(desk.TakeDebugLines(),
                 Text("ORIOLE|send status\n|recvfrom Status\n|send PageNumber\n|"
                      "recvfrom PageNumber\n|sleep 1|send DetailError\n|recvfrom detailError\n"));
    }

    void theSocketIsKeptUntilTheNextListing()
    {
        PrinterDesk desk(kAddress);
        const int socket = desk.window->m_nSocket;
        desk.window->GetSelectPrinterInfo();
        QCOMPARE(desk.window->m_nSocket, socket);
        desk.window->GetPrinterInfoByCommand();
        QCOMPARE(fcntl(socket, F_GETFL), -1); // closed
        QCOMPARE(desk.window->m_nSocket, -1);
        desk.Tick(2); // opens the next one, and sends nothing to no address
        QCOMPARE(desk.TakeDebugLines(), Text("\"\""));
    }

    void theChainStopsAtTheFirstQueryThatFails()
    {
        QCOMPARE(ShownOfNetwork(1, kCommandByte), Text("2" + kOffline)); // the name, asked twice
        QCOMPARE(ShownOfNetwork(2, kCommandByte), Text("2" + kOffline)); // the state
        QCOMPARE(ShownOfNetwork(3, kCommandByte), Text("3" + kOffline)); // the counters
        QCOMPARE(ShownOfNetwork(4, kCommandByte), Text("4" + kOffline)); // the hardware state
        QCOMPARE(ShownOfNetwork(2, kStartByte), Text("2" + kOffline));
        QCOMPARE(ShownOfNetwork(2, kResultByte), Text("2" + kOffline));
        QCOMPARE(ShownOfNetwork(1, kLengthByte), Text("2" + kOffline)); // too short for a name
    }

    void aWaitEndsWithTheSecond()
    {
        PrinterDesk desk(kAddress);
        desk.simulator.Run("off");
        QCOMPARE(desk.window->GetPrinterType_net(desk.window->m_szModelName), -1);
        QCOMPARE(desk.window->GetPrinterStatus_net(), -1);
        QCOMPARE(desk.window->GetPrinterPageNumber_net(), -1);
        QCOMPARE(desk.window->GetPrinterDetailError_net(), -1);
        QCOMPARE(playedClock.now, 1000 + 4 * 2 + 1); // s; each reads it twice, and one sleeps
    }

    void aLateAnswerIsTakenForTheNextOne()
    {
        PrinterDesk desk(kAddress);
        desk.Tick();
        playedClock.printer = nullptr;
        QCOMPARE(desk.window->GetPrinterStatus_net(), -1);
        playedClock.printer = &desk.simulator;
        QCOMPARE(desk.window->GetPrinterPageNumber_net(), -1);
        QCOMPARE(desk.window->GetPrinterPageNumber_net(), 1);
    }

    void modelNamesAreUtf8AndCutTo63Bytes()
    {
        const QByteArray n63(63, 'N');
        QCOMPARE(ShownName(kUsb, "鹭"), Text("鹭"));
        QCOMPARE(ShownName(kAddress, "鹭"), Text("鹭"));
        QCOMPARE(ShownName(kUsb, n63 + "X"), Text(QString(n63)));
        QCOMPARE(ShownName(kAddress, n63 + QByteArray(187, 'X')), Text(QString(n63)));
    }
};

QTEST_MAIN(ChannelsTest)
#include "tst_channels.moc"
