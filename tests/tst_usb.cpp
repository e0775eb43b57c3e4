// SPDX-FileCopyrightText: The oriole-monitor authors
// SPDX-License-Identifier: MIT

#include "support.h"

namespace
{
const char kOpen[] = "init, debug 3, list, open 3a7c:5e21, free 1";
const char kRead[] = "c1/17/0/0/500 1000ms, c1/51/0/0/500 1000ms, c1/68/0/0/500 1000ms, "
                     "c1/0/0/0/500 1000ms";
const char kClose[] = "close, exit";

const QByteArray kCounters = QByteArray::fromHex("0001E240 AAAAAAAA FFFFFFFF 00000007");
const QByteArray kTonerLow = QByteArray::fromHex("00000000 0100 0E00030000000100");

std::map<int, QByteArray> Answers()
{
    return {{17, QByteArray("ORIOLE", 7)}, {51, kCounters}, {68, "\x04\x02"}, {0, kTonerLow}};
}
} // namespace

class UsbTest : public QObject
{
    Q_OBJECT

private slots:
    void opensOnOneTickAndReadsOnTheNext()
    {
        Desk desk("echo 'device for ORIOLE: usb://x'");
        fakeUsb.answers = Answers();
        for (int poll = 0; poll < 3; ++poll) {
            const QString before = desk.Shown();
            desk.Tick();
            QCOMPARE(fakeUsb.Calls(), QString(kOpen));
            QCOMPARE(desk.Shown(), before);
            desk.Tick();
            QCOMPARE(fakeUsb.Calls(), QString("%1, %2").arg(kRead, kClose));
            QCOMPARE(desk.Shown(), QString("空闲|ORIOLE|123456|-1|7|墨粉较少 "));
            QCOMPARE(fakeUsb.alive, 0);
        }
        QCOMPARE(DebugLines().mid(2), QStringList({"\"123456\"", "nRecvLen:14"}) +
                                          QStringList({"\"123456\"", "nRecvLen:14"}));
    }

    void whatFailsToOpenIsReleasedAndTriedAgain_data()
    {
        QTest::addColumn<bool>("initFails");
        QTest::addColumn<bool>("listFails");
        QTest::addColumn<QString>("calls");
        QTest::addColumn<QStringList>("lines");
        QTest::newRow("no context") << true << false << "init" << QStringList();
        QTest::newRow("no list") << false << true << "init, debug 3, list, exit"
                                 << QStringList("libusb_get_device_list failed");
        QTest::newRow("no printer")
            << false << false << QString(kOpen) + ", exit" << QStringList("open device failed");
    }

    void whatFailsToOpenIsReleasedAndTriedAgain()
    {
        QFETCH(bool, initFails);
        QFETCH(bool, listFails);
        Desk desk;
        desk.Select(1, "");
        fakeUsb.initFails = initFails;
        fakeUsb.listFails = listFails;
        fakeUsb.attached = false;
        desk.window->ui->DetailError->setText("stale");
        for (int tick = 0; tick < 2; ++tick) {
            desk.Tick();
            QTEST(fakeUsb.Calls(), "calls");
            QTEST(DebugLines(), "lines");
            QCOMPARE(fakeUsb.alive, 0);
            QCOMPARE(desk.Shown(), QString(OFFLINE));
        }
    }

    void aFailingRequestKeepsItsFieldAndTheLastOneTheDisplay_data()
    {
        QTest::addColumn<int>("request");
        QTest::addColumn<QString>("shown");
        QTest::newRow("model name") << 17 << "空闲|old|123456|-1|7|墨粉较少 ";
        QTest::newRow("page counters") << 51 << "空闲|ORIOLE|old|old|old|墨粉较少 ";
        QTest::newRow("state") << 68 << "old|ORIOLE|123456|-1|7|墨粉较少 ";
        QTest::newRow("hardware state") << 0 << OFFLINE;
    }

    void aFailingRequestKeepsItsFieldAndTheLastOneTheDisplay()
    {
        QFETCH(int, request);
        for (const bool empty : {false, true}) { // a libusb error, or an answer of no bytes
            Desk desk;
            desk.Select(1, "");
            const Ui_MainWindow& ui = *desk.window->ui;
            for (QLineEdit* field : {ui.PrinterStatus, ui.PrinterType, ui.PrinterCount,
                                     ui.CatridgetCount, ui.CompactCount})
                field->setText("old");
            fakeUsb.answers = Answers();
            fakeUsb.answers.erase(request);
            if (empty)
                fakeUsb.answers[request] = "";
            desk.Tick(2);
            QTEST(desk.Shown(), "shown");
            QCOMPARE(fakeUsb.Calls(), QString("%1, %2, %3").arg(kOpen, kRead, kClose));
        }
    }

    void shortAnswersAreReadOnWithTheOnesBefore()
    {
        Desk desk;
        desk.Select(1, "");
        // Bytes 12 to 15 of the page counters come from the model name, bytes 4 to 5 of the
        // hardware state (two entries) and the entries from the name and the counters.
        QByteArray name(22, '\0');
        name.replace(12, 4, QByteArray::fromHex("00000300"));
        name.replace(14, 8, QByteArray::fromHex("0000030000000100"));
        name[14] = 0x03;
        fakeUsb.answers = {{17, name},
                           {51, QByteArray::fromHex("00000001 02000E00 0300 0000 0100")},
                           {68, "\x01"},
                           {0, "\x07"}};
        desk.Tick(2);
        QCOMPARE(desk.Shown(), QString("热机中||1|50331648|16777984|墨粉较少 双面单元不存在 "));
    }

    void modelNamesAreCutAndEnded_data()
    {
        QTest::addColumn<QByteArray>("answer");
        QTest::addColumn<QByteArray>("kept"); // of a buffer that held 64 times '#', and a zero
        QTest::newRow("with its zero") << QByteArray("AB\0C", 4) << QByteArray("AB\0C####", 8);
        QTest::newRow("without a zero") << QByteArray("AB") << QByteArray("AB\0#####", 8);
        QTest::newRow("63 bytes") << QByteArray(63, 'A') << QByteArray(63, 'A') + '\0';
        QTest::newRow("64 bytes") << QByteArray(64, 'A') << QByteArray(63, 'A') + '\0';
        QTest::newRow("500 bytes") << QByteArray(500, 'A') << QByteArray(63, 'A') + '\0';
    }

    void modelNamesAreCutAndEnded()
    {
        QFETCH(QByteArray, answer);
        QFETCH(QByteArray, kept);
        Desk desk;
        desk.Select(1, "");
        memset(desk.window->m_szModelName, '#', 63);
        fakeUsb.answers[17] = answer;
        desk.Tick(2);
        QCOMPARE(QByteArray(desk.window->m_szModelName, kept.size()), kept);
    }

    void anOpenPrinterIsClosedWhenItIsLeft_data()
    {
        QTest::addColumn<int>("event");
        QTest::newRow("listing, though it fails") << 0;
        QTest::newRow("window gone") << 1;
        QTest::newRow("network tick that goes offline") << 2;
        QTest::newRow("tick without a printer") << 3;
    }

    void anOpenPrinterIsClosedWhenItIsLeft()
    {
        QFETCH(int, event);
        Desk desk;
        desk.Select(1, "");
        desk.Tick();
        fakeUsb.Calls();
        desk.window->m_nPortType = 5 - event; // 3: none; 2: network
        if (event == 0)
            desk.window->GetPrinterInfoByCommand();
        else if (event == 1)
            desk.window.reset();
        else
            desk.Tick();
        QCOMPARE(fakeUsb.Calls(), QString(kClose));
        desk.window.reset();
        QCOMPARE(fakeUsb.Calls(), QString()); // closed once
        QCOMPARE(fakeUsb.alive, 0);
    }
};

QTEST_MAIN(UsbTest)
#include "tst_usb.moc"
