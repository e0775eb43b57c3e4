// SPDX-License-Identifier: MIT

// Polling simulated printers: over UDP on the loopback, and over USB through the real libusb. Runs
// under umockdev-wrapper.

#include "networkport.h"
#include "support.h"

#include <fcntl.h>
#include <functional>

namespace
{

const char* const kAddress = "127.0.0.11";
const QString kShown = "ORIOLE|打印中|123456|2|-1|墨粉较少 ";

/// The clock that time() and sleep() show. It moves on by a second whenever it is read, unless the
/// printer has just answered: what is waited for comes at once, or never.
struct {
    time_t now = 1000;
    int step = 1; // s
    int reads = 0;
    std::function<bool()> answers = [] { return false; };
} playedClock;

/// A desk with a printer: on the USB bus, or on the network, and then a monitor with its socket.
struct PrinterDesk : Desk {
    explicit PrinterDesk(const QString& name, const QByteArray& model = "ORIOLE")
        : Desk("cat listing"), console({name}, model), port(console.Printers()[0])
    {
        Run(console, "state 2; counters 123456 2 4294967295; flag 14");
        window->m_nPortType = console.Bus() ? 1 : 2;
        window->m_strPrinterIp = name;
        if (console.Bus())
            return;
        QVERIFY(port.Open());
        playedClock = {};
        playedClock.answers = [this] { return port.Answer(); };
        Tick();
    }
    ~PrinterDesk() { playedClock = {}; }

    Console console;
    NetworkPort port;
};

} // namespace

extern "C" time_t time(time_t*) noexcept
{
    ++playedClock.reads;
    return playedClock.now += playedClock.answers() ? 0 : playedClock.step;
}

extern "C" unsigned int sleep(unsigned int seconds)
{
    Desk::debugLines += "sleep " + QString::number(seconds);
    playedClock.now += seconds;
    playedClock.answers();
    return 0;
}

class ChannelsTest : public QObject
{
    Q_OBJECT

private slots:
    void usbPrintersAreOpenedThenReadAndComeBackWhenTheyFail()
    {
        // What goes wrong once the printer is open, and what is shown.
        const auto table = Table(R"(
stall 17|empty 17 => old|打印中|123456|2|-1|墨粉较少 .
stall 51|empty 51 => ORIOLE|打印中|old|old|old|墨粉较少 .
stall 68|empty 68 => ORIOLE|old|123456|2|-1|墨粉较少 .
stall 0|empty 0|unplug|drop on => |离线 ||||.
)");
        for (const auto& [faults, shown] : table) {
            for (const QString& fault : faults.split('|')) {
                PrinterDesk desk(kUsbPrinter);
                const int descriptors = OpenDescriptors();
                desk.Fill("old");
                desk.Tick();
                QVERIFY(Same(desk.Shown(), "old|old|old|old|old|old"));
                Run(desk.console, fault);
                QElapsedTimer elapsed;
                elapsed.start();
                desk.Tick();
                QCOMPARE(elapsed.elapsed() / 1000, fault == "drop on" ? 4 : 0); // s, one a request
                QVERIFY(Same(fault + desk.Shown(), fault + shown));
                QCOMPARE(desk.DebugLines().endsWith("-9"), fault == "stall 0");
                desk.Tick();
                QVERIFY(Same(desk.DebugLines(), fault == "unplug" ? "open device failed" : ""));
                Run(desk.console, "stall off; empty off; plug; drop off");
                desk.Tick(fault == "unplug" ? 1 : 0);
                desk.console.Bus()->TakeSetups();
                desk.Tick();
                QVERIFY(Same(desk.Shown() + desk.DebugLines(), kShown + "\"123456\"|nRecvLen:14"));
                QVERIFY(Same(desk.console.Bus()->TakeSetups().join().toHex(),
                             "c11100000000f401c13300000000f401c14400000000f401c10000000000f401"));
                QTRY_COMPARE(OpenDescriptors(), descriptors);
            }
        }
    }

    void anOpenUsbPrinterIsClosedWhenItIsLeft()
    {
        // By a listing, by ticks for no printer and for another one, and by the window's end.
        for (const int portType : {-1, 0, 2, 3, 1}) {
            PrinterDesk desk(kUsbPrinter);
            const int descriptors = OpenDescriptors();
            desk.Tick();
            desk.window->GetSelectPrinterInfo(); // leaves it open
            QVERIFY(OpenDescriptors() > descriptors);
            desk.window->m_nPortType = portType;
            if (portType == 1)
                desk.window.reset();
            else if (portType == -1)
                desk.window->GetPrinterInfoByCommand();
            else
                desk.Tick();
            QTRY_COMPARE(OpenDescriptors(), descriptors + (portType == 2 ? 1 : 0)); // a socket
            QVERIFY(desk.console.Bus()->TakeSetups().isEmpty());
        }
    }

    void usbAnswersAreReadOnWithTheOnesBefore()
    {
        // The last answer has one byte. Behind it stand the state, the counters and, from byte 16
        // on, the name: together a block that says in its second entry, at byte 14, "toner low".
        // The third one, at byte 22, is not left over from the poll before.
        PrinterDesk desk(kUsbPrinter, "NNNNNNNNNNNNNNNN\x03N\x01N\x01N");
        Run(desk.console, "flag 0; flag 17");
        desk.Tick(2);
        Run(desk.console, "counters 1 2 3584; raw 07");
        desk.Tick(2);
        QVERIFY(Same(desk.Shown().section('|', 2), "1|2|3584|墨粉较少 "));
    }

    void networkFromTheFirstTickToLiveValues()
    {
        PrinterDesk desk(kAddress);
        const int socket = desk.window->m_nSocket;
        QCOMPARE(fcntl(socket, F_GETFL) & O_NONBLOCK, O_NONBLOCK);
        desk.Fill("old");
        desk.Tick();
        QVERIFY(Same(desk.port.TakeRequests().join(" "), "C1000501C7"));
        QVERIFY(Same(desk.Shown() + desk.DebugLines(), kOffline + "send name\n|recvfrom name\n"));
        desk.Tick();
        QVERIFY(Same(desk.port.TakeRequests().join(" "),
                     "C1000B144F52494F4C45AA C1000B134F52494F4C45A9 C1000B124F52494F4C45A8"));
        QVERIFY(Same(desk.Shown(), kShown));
        QVERIFY(Same(desk.DebugLines(),
                     "ORIOLE|send status\n|recvfrom Status\n|send PageNumber\n|"
                     "recvfrom PageNumber\n|sleep 1|send DetailError\n|recvfrom detailError\n"));
        // The socket stays open for the next printer, until the next listing.
        desk.window->GetSelectPrinterInfo();
        QCOMPARE(desk.window->m_nSocket, socket);
        desk.window->GetPrinterInfoByCommand();
        QCOMPARE(fcntl(socket, F_GETFL), -1);
        desk.Tick();
        QVERIFY(Same(desk.Shown() + desk.port.TakeRequests().join(" "), kOffline));
        desk.window->m_strPrinterIp = kAddress; // there was no row to select
        desk.Tick();
        QVERIFY(Same(desk.Shown(), kShown));
        desk.window.reset();
        QCOMPARE(fcntl(socket, F_GETFL), -1); // the same number again
    }

    void theChainStopsAtTheFirstQueryThatFails()
    {
        for (const QString fault : {"drop on", "malformed start", "malformed code",
                                    "malformed result", "malformed short"}) {
            for (int query = 1; query <= 4; ++query) { // the first one asks for the name
                PrinterDesk desk(kAddress);
                int requests = 0;
                playedClock.answers = [&] {
                    if (desk.port.hasPendingDatagrams() && ++requests == query)
                        Run(desk.console, fault);
                    return desk.port.Answer();
                };
                desk.Fill("old");
                desk.Tick(query == 1 ? 1 : 2);
                QCOMPARE(requests, query);
                QCOMPARE(desk.window->m_szModelName[0] == 0, query == 1);
                QVERIFY(Same(fault + desk.Shown(), fault + kOffline));
                Run(desk.console, "drop off; malformed off");
                desk.Tick(query == 1 ? 2 : 1);
                QVERIFY(Same(desk.Shown(), kShown));
            }
        }
    }

    void waitsEndWhenTheSecondsCountChanges()
    {
        PrinterDesk desk(kAddress);
        MainWindow& window = *desk.window;
        for (const char* address : {"", "printer.local"}) { // nothing can be sent, nothing waits
            window.m_strPrinterIp = address;
            QCOMPARE(window.GetPrinterDetailError_net(), -1);
        }
        QVERIFY(Same(desk.DebugLines(), ""));
        window.m_strPrinterIp = kAddress;
        Run(desk.console, "drop on");
        for (const int step : {1, -1}) { // also when the clock is set back
            playedClock.step = step;
            playedClock.reads = 0;
            QCOMPARE(window.GetPrinterType_net(window.m_szModelName), -1);
            QCOMPARE(window.GetPrinterStatus_net(), -1);
            QCOMPARE(window.GetPrinterPageNumber_net(), -1);
            QCOMPARE(playedClock.reads, 3 * 2);
        }
        playedClock.step = 0; // the last query has waited enough when it has slept
        QCOMPARE(window.GetPrinterDetailError_net(), -1);
        // An answer that ends behind the result byte tells a state of 0.
        Run(desk.console, "drop off; frame C200061401");
        QCOMPARE(window.GetPrinterStatus_net(), 1);
        QVERIFY(Same(window.ui->PrinterStatus->text(), "未知状态"));
        // The first answer that is there counts, be it that to the query before.
        Run(desk.console, "clear");
        qstrcpy(window.m_szModelName, "ORIOLE");
        playedClock = {};
        QCOMPARE(window.GetPrinterStatus_net(), -1);
        playedClock.answers = [&desk] { return desk.port.Answer(); };
        QCOMPARE(window.GetPrinterPageNumber_net(), -1);
        QCOMPARE(window.GetPrinterStatus_net(), -1);
        QCOMPARE(window.GetPrinterStatus_net(), 1);
    }

    void modelNamesAreCutToTheirBufferAndToTheRequest()
    {
        for (const int size : {1, 59, 60, 62, 63, 64, 250}) {
            const QByteArray name(qMin(size, 63), 'N');
            for (const char* const printer : {kUsbPrinter, kAddress}) {
                PrinterDesk desk(printer, QByteArray(size, 'N'));
                const char unused = printer == kUsbPrinter ? '#' : 0;
                memset(desk.window->m_szModelName, unused, 63);
                desk.Tick(2);
                QVERIFY(Same(desk.Shown(), QString(kShown).replace("ORIOLE", name)));
                QCOMPARE(desk.window->m_szModelName[2], size > 1 ? 'N' : unused);
            }
            PrinterDesk desk(kAddress, QByteArray(size, 'N'));
            QByteArray buffer = QByteArray(63, '\0') + "##"; // only a name that is cut is ended
            QCOMPARE(desk.window->GetPrinterType_net(buffer.data()), 1);
            QCOMPARE(buffer, name.leftJustified(63, '\0') + (size > 63 ? '\0' : '#') + "#");
            Run(desk.console, "frame C200040100"); // shorter than any frame
            QCOMPARE(desk.window->GetPrinterType_net(buffer.data()), -1);
        }
    }

    void hardwareStatesReachToTheEndOfTheAnswer()
    {
        // 60 error codes that end with the block of 495 bytes, and 61 that end a byte behind it.
        for (const QString entry : {"220004003C00FF00", "220004003D00FC00"}) {
            PrinterDesk desk(kAddress);
            const QString block = ("raw 000000000100" + entry).leftJustified(4 + 2 * 491, '0');
            Run(desk.console, block + "21A10700");
            desk.Tick(2);
            QVERIFY(Same(desk.Shown().section('|', 5), entry[9] == 'C' ? "断网" : ""));
        }
    }

    void randomBlocksAnswersAndListingsDoNoHarm()
    {
        PrinterDesk desk(kAddress);
        std::mt19937 random(1); // the same ones at every run
        const int rounds = qMax(1, qEnvironmentVariableIntValue("ORIOLE_ROUNDS"));
        for (int i = 0; i < 33000 * rounds; ++i) {
            QByteArray bytes(int(3 + random() % 500), '\1');
            for (int k = 0; k < bytes.size(); ++k)
                bytes[k] = char(random() % 4 == 0 ? random() : random() % 40);
            std::vector<unsigned char> exact(bytes.begin(), bytes.end());
            desk.window->ParseHardwareState(exact.data(), int(exact.size()));
            if (i % 300 == 0) {
                desk.Write("listing", "a ORIOLE: socket://" + bytes);
                desk.window->GetPrinterInfoByCommand();
                desk.window->m_strPrinterIp = kAddress;
                desk.window->OpenSocket();
            }
            Run(desk.console, "frame C200" + bytes.replace(1, 2, i % 2 ? "\x12\1" : "\1N").toHex());
            desk.window->GetPrinterType_net(desk.window->m_szModelName);
            desk.window->GetPrinterDetailError_net();
            QVERIFY(qstrnlen(desk.window->m_szModelName, 64) < 64);
            desk.DebugLines();
        }
    }
};

QTEST_MAIN(ChannelsTest)
#include "tst_channels.moc"
