// SPDX-License-Identifier: MIT

// The monitor against the simulated printers: UDP on the loopback, and USB through the real libusb.

#include "support.h"

#include <sys/socket.h>

namespace {
const char kAddress[] = "127.0.0.41";
const QString kIdle = "空闲|ORIOLE|1200|800|400|";

QString Path(const char* name) { return qEnvironmentVariable("SIMULATOR_DIR") + "/" + name; }

/// Carries out a command at the simulator, and returns what it has written since the last one.
QByteArray Command(const QByteArray& line) {
    static QFile log(Path("log"));
    if (!log.isOpen()) log.open(QFile::ReadOnly);
    QByteArray written = log.readAll();
    const int before = written.size();
    QFile commands(Path("commands"));
    commands.open(QFile::WriteOnly);
    commands.write(line + "\n");
    commands.close();
    for (int i = 0; i < 500 && written.indexOf('\n', before) < 0; ++i) {
        QTest::qWait(10);
        written += log.readAll();
    }
    return written;
}

/// Polls until `shown` is shown: a network tick that falls on the turn of a second shows offline,
/// and its answer comes late.
bool Shows(const Desk& desk, const QString& shown) {
    for (int tick = 0; tick < 10 && desk.Shown() != shown; ++tick) {
        char late[512];
        QTest::qWait(20);
        while (recv(desk.window->m_nSocket, late, sizeof late, MSG_DONTWAIT) > 0) {
        }
        desk.Tick();
    }
    return desk.Shown() == shown;
}
} // namespace

class SimulatorTest : public QObject {
    Q_OBJECT

private slots:
    void bothChannelsShowTheSame() {
        for (const int portType : {1, 2}) {
            Desk desk;
            desk.Select(portType, kAddress);
            for (const char* line : {"state 3", "counters 4294967295 2 3", "flag 14", "array 9 1 0 1",
                                     "array 6 0 1", "errors 500001 7", "array 12 1 0", "array 28 1 1"})
                QVERIFY(Command(line).endsWith("ok\n"));
            QVERIFY(Shows(desk, "错误|ORIOLE|-1|2|3|墨粉较少 前盖打开 双面单元盖被打开 手动纸盒卡纸 "
                                "断网其他错误:7 手动纸盒错误 "));
            for (const char* line : {"state 4", "counters 1200 800 400", "clear"}) Command(line);
            QVERIFY(Shows(desk, kIdle));
        }
    }

    void printersComeBackAfterEveryFault_data() {
        Columns<int, QByteArray>({"portType", "cure"});
        Row("usb unplug", 1, QByteArray("usb plug"));
        Row("usb drop on", 1, QByteArray("usb drop off"));
        Row("drop on", 2, QByteArray("drop off"));
        Row("malformed start", 2, QByteArray("malformed off"));
    }

    void printersComeBackAfterEveryFault() {
        QFETCH(int, portType);
        QFETCH(QByteArray, cure);
        Desk desk;
        desk.Select(portType, kAddress);
        QVERIFY(Shows(desk, kIdle));
        QVERIFY(!desk.window->m_pUsbHandle); // closed between two polls
        if (portType == 1) desk.Tick();      // opens it
        Command(QTest::currentDataTag());
        QElapsedTimer elapsed;
        elapsed.start();
        desk.Tick();
        QVERIFY(elapsed.elapsed() < 4 * 1000 + 3000); // four requests of one second at the most
        QCOMPARE(desk.Shown(), kOffline);
        Command(cure);
        QVERIFY(Shows(desk, kIdle));
    }

    void theDeviceSeesTheFourRequests() {
        Desk desk;
        desk.Select(1);
        Command("clear");
        desk.Tick(2);
        QByteArray requests;
        for (const char* request : {"11", "33", "44", "00"})
            requests += QByteArray("setup C1 ") + request + " 00 00 00 00 F4 01\n";
        QCOMPARE(Command("clear"), requests + "ok\n");
    }

    void theSimulatorSaysWhatIsWrong() {
        QVERIFY(Command("state 256").contains("\"256\" is not a number from 0 to 255"));
        QVERIFY(Command("counters 1 2").contains("\"counters\" takes 3 arguments"));
        Desk desk;
        desk.Select(2, kAddress);
        strcpy(desk.window->m_szModelName, "HERON");
        desk.Tick(2);
        const QByteArray said = Command("clear") + Command("clear");
        QVERIFY(said.contains("bad request: its payload is \"HERON\""));
    }
};

QTEST_MAIN(SimulatorTest)
#include "tst_simulator.moc"
