// SPDX-FileCopyrightText: The oriole-monitor authors
// SPDX-License-Identifier: MIT

// The monitor against the simulated printers: UDP on the loopback, and USB through the real libusb.

#include "support.h"

namespace
{
const char kAddress[] = "127.0.0.41";
const QString kIdle = "空闲|ORIOLE|1200|800|400|";

QString Path(const char* name) { return qEnvironmentVariable("SIMULATOR_DIR") + "/" + name; }

/// Carries out a command at the simulator, and returns what it has written since the last one.
QByteArray Command(const QByteArray& line)
{
    static QFile log(Path("log"));
    if (!log.isOpen())
        log.open(QFile::ReadOnly);
    QByteArray written = log.readAll();
    QFile commands(Path("commands"));
    commands.open(QFile::WriteOnly | QFile::Unbuffered);
    commands.write(line + "\n");
    const int before = written.size();
    for (int i = 0; i < 500 && !written.mid(before).contains('\n'); ++i) {
        QTest::qWait(10);
        written += log.readAll();
    }
    return written;
}

/// Polls until `shown` is shown: a network tick that falls on the turn of a second shows offline.
bool Shows(Desk& desk, const QString& shown)
{
    for (int tick = 0; tick < 10 && desk.Shown() != shown; ++tick)
        desk.Tick();
    return desk.Shown() == shown;
}
} // namespace

class SimulatorTest : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        QVERIFY2(QFile::exists(Path("log")), "to be run by with-simulator");
        Command("clear");
    }

    void bothChannelsShowTheSameFaults_data()
    {
        Columns<int>({"portType"});
        QTest::newRow("USB") << 1;
        QTest::newRow("network") << 2;
    }

    void bothChannelsShowTheSameFaults()
    {
        QFETCH(int, portType);
        Desk desk;
        desk.Select(portType, kAddress);
        QVERIFY(Shows(desk, kIdle));
        for (const char* line : {"state 3", "counters 4294967295 2 3", "flag 14", "array 9 1 0 1",
                                 "array 6 0 1", "errors 500001 7", "array 12 1 0", "array 28 1 1"})
            Command(line);
        QVERIFY(Shows(desk, "错误|ORIOLE|-1|2|3|墨粉较少 前盖打开 双面单元盖被打开 手动纸盒卡纸 "
                            "断网其他错误:7 手动纸盒错误 "));
        for (const char* line : {"state 4", "counters 1200 800 400", "clear"})
            Command(line);
        QVERIFY(Shows(desk, kIdle));
    }

    void printersComeBackAfterEveryFault_data()
    {
        Columns<int, QByteArray, QByteArray>({"portType", "fault", "cure"});
        QTest::newRow("unplugged") << 1 << QByteArray("usb unplug") << QByteArray("usb plug");
        QTest::newRow("USB hangs") << 1 << QByteArray("usb drop on") << QByteArray("usb drop off");
        QTest::newRow("no answer") << 2 << QByteArray("drop on") << QByteArray("drop off");
        QTest::newRow("bad answer")
            << 2 << QByteArray("malformed start") << QByteArray("malformed off");
    }

    void printersComeBackAfterEveryFault()
    {
        QFETCH(int, portType);
        QFETCH(QByteArray, fault);
        QFETCH(QByteArray, cure);
        Desk desk;
        desk.Select(portType, kAddress);
        QVERIFY(Shows(desk, kIdle));
        QVERIFY(!desk.window->m_pUsbHandle); // closed between two polls
        if (portType == 1)
            desk.Tick(); // opens it
        Command(fault);
        QElapsedTimer elapsed;
        elapsed.start();
        desk.Tick();
        QVERIFY(elapsed.elapsed() < 4 * 1000 + 3000); // four requests of one second at the most
        QCOMPARE(desk.Shown(), QString(kOffline));
        Command(cure);
        QVERIFY(Shows(desk, kIdle));
    }

    void theDeviceSeesTheFourRequests()
    {
        Desk desk;
        desk.Select(1);
        Command("clear");
        desk.Tick(2);
        QByteArray requests;
        for (const char* request : {"11", "33", "44", "00"})
            requests += QByteArray("setup C1 ") + request + " 00 00 00 00 F4 01\n";
        QCOMPARE(Command("clear"), requests + "ok\n");
    }

    void theSimulatorSaysWhatIsWrong_data()
    {
        Columns<QByteArray>({"complaint"});
        QTest::newRow("jam 3") << QByteArray("unknown command \"jam\"");
        QTest::newRow("state 256") << QByteArray("\"256\" is not a number from 0 to 255");
        QTest::newRow("counters 1 2") << QByteArray("\"counters\" takes 3 arguments");
        QTest::newRow("drop maybe") << QByteArray("\"maybe\" is not one of the choices");
        QTest::newRow("clear 200") << QByteArray("entry 200 is not raised");
    }

    void theSimulatorSaysWhatIsWrong()
    {
        QFETCH(QByteArray, complaint);
        QVERIFY(Command(QTest::currentDataTag()).contains(complaint));
        Desk desk; // and does not answer a printer of another model
        desk.Select(2, kAddress);
        strcpy(desk.window->m_szModelName, "HERON");
        desk.Tick(2);
        QVERIFY(Command("clear").contains("bad request: its payload is \"HERON\""));
    }
};

QTEST_MAIN(SimulatorTest)
#include "tst_simulator.moc"
