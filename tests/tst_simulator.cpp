// SPDX-FileCopyrightText: The oriole-monitor authors
// SPDX-License-Identifier: MIT

// The monitor against the simulated printers: UDP on the loopback, and USB through the real libusb.

#include "support.h"

#include <arpa/inet.h>
#include <unistd.h>

namespace
{
const char kNetwork[] = "127.0.0.41";
const int kReadTicks = 4; // more than a printer needs to be shown

QString Path(const char* name)
{
    return qEnvironmentVariable("SIMULATOR_DIR") + "/" + name;
}

/// What the simulator has written since the last call.
QByteArray Log()
{
    static QFile log(Path("log"));
    if (!log.isOpen())
        log.open(QFile::ReadOnly);
    return log.readAll();
}

/// Waits until the simulator has written `text`.
void Expect(const QByteArray& text)
{
    QByteArray seen;
    QTRY_VERIFY2((seen += Log()).contains(text), seen.constData());
}

/// Carries out a command at the simulator.
void Command(const QByteArray& line)
{
    Log();
    QFile commands(Path("commands"));
    QVERIFY(commands.open(QFile::WriteOnly | QFile::Unbuffered));
    commands.write(line + "\n");
    Expect("ok\n");
}
} // namespace

class SimulatorTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY2(QFile::exists(Path("log")), "to be run by with-simulator"); }

    void bothChannelsShowTheSameFaults_data()
    {
        QTest::addColumn<int>("portType");
        QTest::newRow("USB") << 1;
        QTest::newRow("network") << 2;
    }

    void bothChannelsShowTheSameFaults()
    {
        QFETCH(int, portType);
        Desk desk;
        fakeClock.isReal = true;
        desk.Select(portType, kNetwork);
        for (const char* line :
             {"clear", "state 3", "counters 4294967295 2 3", "flag 14", "array 9 1 0 1",
              "array 6 0 1", "errors 500001 7", "array 12 1 0", "array 28 1 1"})
            Command(line);
        const QString faults =
            "墨粉较少 前盖打开 双面单元盖被打开 手动纸盒卡纸 断网其他错误:7 手动纸盒错误 ";
        desk.Tick(kReadTicks);
        QCOMPARE(desk.Shown(), "错误|ORIOLE|-1|2|3|" + faults);
        Command("state 4");
        Command("clear");
        desk.Tick(2);
        QCOMPARE(desk.Shown(), QString("空闲|ORIOLE|-1|2|3|"));
    }

    void usbComesBackAfterEveryFault_data()
    {
        QTest::addColumn<QByteArray>("fault");
        QTest::addColumn<QByteArray>("cure");
        QTest::newRow("unplugged") << QByteArray("usb unplug") << QByteArray("usb plug");
        QTest::newRow("requests never completed")
            << QByteArray("usb drop on") << QByteArray("usb drop off");
    }

    void usbComesBackAfterEveryFault()
    {
        QFETCH(QByteArray, fault);
        QFETCH(QByteArray, cure);
        Desk desk;
        desk.Select(1, "");
        Log();
        desk.Tick();
        QVERIFY(desk.window->m_pUsbHandle);
        QCOMPARE(desk.Shown(), QString(OFFLINE));
        desk.Tick();
        QVERIFY(!desk.window->m_pUsbHandle);
        QVERIFY(desk.Shown().startsWith("空闲|ORIOLE|"));
        Expect("setup C1 11 00 00 00 00 F4 01\nsetup C1 33 00 00 00 00 F4 01\n"
               "setup C1 44 00 00 00 00 F4 01\nsetup C1 00 00 00 00 00 F4 01\n");
        desk.Tick(); // open
        Command(fault);
        QElapsedTimer elapsed;
        elapsed.start();
        desk.Tick();
        QCOMPARE(desk.Shown(), QString(OFFLINE));
        QVERIFY(!desk.window->m_pUsbHandle);
        if (fault == "usb drop on") {
            QVERIFY(elapsed.elapsed() >= 3900); // four requests of 1000 ms
            QVERIFY(elapsed.elapsed() < 8000);
        }
        Command(cure);
        desk.Tick(2);
        QVERIFY(desk.Shown().startsWith("空闲|ORIOLE|"));
    }

    void theNetworkComesBackAfterEveryFault_data()
    {
        QTest::addColumn<QByteArray>("fault");
        QTest::addColumn<QByteArray>("cure");
        for (const char* kind : {"start", "code", "result", "short"})
            QTest::newRow(kind) << "malformed " + QByteArray(kind) << QByteArray("malformed off");
        QTest::newRow("no answers") << QByteArray("drop on") << QByteArray("drop off");
    }

    void theNetworkComesBackAfterEveryFault()
    {
        QFETCH(QByteArray, fault);
        QFETCH(QByteArray, cure);
        Desk desk;
        fakeClock.isReal = true;
        desk.Select(2, kNetwork);
        desk.Tick(3);
        QVERIFY(desk.Shown().startsWith("空闲|ORIOLE|"));
        Command(fault);
        desk.Tick();
        QCOMPARE(desk.Shown(), QString(OFFLINE));
        Command(cure);
        desk.Tick();
        QVERIFY(desk.Shown().startsWith("空闲|ORIOLE|"));
    }

    void aLateAnswerIsReadByTheNextQuery()
    {
        Desk desk;
        fakeClock.isReal = true;
        desk.Select(2, kNetwork);
        desk.Tick(2);
        Command("delay 1500"); // more than a wait, less than the two ticks that follow
        desk.Tick();
        QCOMPARE(desk.Shown(), QString(OFFLINE));
        Command("delay 0");
        QTest::qWait(700);
        desk.Tick(); // its state query gets the late answer, its page-counter query its own
        QCOMPARE(desk.Shown(), QString(OFFLINE));
        desk.window->GetPrinterInfoByCommand(); // a new socket, without late answers
        desk.Tick(2);
        QVERIFY(desk.Shown().startsWith("空闲|ORIOLE|"));
    }

    void theSimulatorAnswersGoodRequestsOnly_data()
    {
        QTest::addColumn<QByteArray>("request");
        QTest::addColumn<QByteArray>("complaint");
        QTest::newRow("start byte") << QByteArray("C2000501C8") << QByteArray("start byte");
        QTest::newRow("length") << QByteArray("C1000601C8") << QByteArray("frame length");
        QTest::newRow("checksum") << QByteArray("C1000501C8") << QByteArray("checksum");
        QTest::newRow("model") << QByteArray("C1000514DA") << QByteArray("payload is \"\"");
        QTest::newRow("command") << QByteArray("C1000B204F52494F4C45B6") << QByteArray("unknown");
        QTest::newRow("short") << QByteArray("C100") << QByteArray("shorter than a frame");
    }

    void theSimulatorAnswersGoodRequestsOnly()
    {
        QFETCH(QByteArray, request);
        QFETCH(QByteArray, complaint);
        const QByteArray bytes = QByteArray::fromHex(request);
        sockaddr_in printer = {};
        printer.sin_family = AF_INET;
        printer.sin_port = htons(12105);
        printer.sin_addr.s_addr = inet_addr(kNetwork);
        const int udp = socket(AF_INET, SOCK_DGRAM, 0);
        Log();
        sendto(udp, bytes.constData(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&printer),
               sizeof printer);
        close(udp);
        Expect(complaint);
    }

    void theSimulatorSaysWhatIsWrongWithALine_data()
    {
        QTest::addColumn<QByteArray>("complaint");
        QTest::newRow("jam 3") << QByteArray("unknown command \"jam\"");
        QTest::newRow("state 256") << QByteArray("\"256\" is not a number from 0 to 255");
        QTest::newRow("state -1") << QByteArray("\"-1\" is not a number");
        QTest::newRow("counters 1 2") << QByteArray("\"counters\" takes 3 arguments");
        QTest::newRow("drop maybe") << QByteArray("\"maybe\" is not one of the choices");
        QTest::newRow("127.0.0.41") << QByteArray("there is no command");
        QTest::newRow("clear 200") << QByteArray("entry 200 is not raised");
    }

    void theSimulatorSaysWhatIsWrongWithALine()
    {
        QFETCH(QByteArray, complaint);
        QFile commands(Path("commands"));
        QVERIFY(commands.open(QFile::WriteOnly | QFile::Unbuffered));
        Log();
        commands.write(QByteArray(QTest::currentDataTag()) + "\n");
        Expect(complaint);
    }
};

QTEST_MAIN(SimulatorTest)
#include "tst_simulator.moc"
