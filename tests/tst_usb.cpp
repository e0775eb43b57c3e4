// SPDX-License-Identifier: MIT

#include "support.h"

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
} // namespace

class UsbTest : public QObject {
    Q_OBJECT

private slots:
    void init() { fakeUsb = FakeUsb(); }

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
            QCOMPARE(fakeUsb.alive, 0);
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
            QCOMPARE(fakeUsb.alive, 0);
        }
    }
};

QTEST_MAIN(UsbTest)
#include "tst_usb.moc"
