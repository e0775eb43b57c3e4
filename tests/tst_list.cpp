// SPDX-License-Identifier: MIT

#include "support.h"

#include <sys/resource.h>
#include <unistd.h>

namespace {
const QByteArray kUsb = "echo 'device for ORIOLE: usb://Generic/ORIOLE?serial=0001'\n";
const QByteArray kSocket = "echo 'device for ORIOLE_2F: socket://127.0.0.31:9100'\n";
const QString kBothRows = "ORIOLE>usb|ORIOLE_2F>127.0.0.31";
} // namespace

class ListTest : public QObject {
    Q_OBJECT

private slots:
    void theWindowIsReadyBeforeItIsShown() {
        Desk desk(kUsb + "echo 'device for Office_Laser: ipp://10.0.0.7/ipp/print'\n" + kSocket);
        const QTableView& table = *desk.window->ui->tableView;
        QCOMPARE(desk.Rows(), kBothRows);
        QCOMPARE(desk.Shown(), kOffline);
        QCOMPARE(desk.window->m_pModel->headerData(0, Qt::Horizontal), QVariant("打印机名称"));
        QCOMPARE(desk.window->m_pModel->headerData(1, Qt::Horizontal), QVariant("打印端口"));
        QCOMPARE(table.editTriggers(), QAbstractItemView::NoEditTriggers);
        QCOMPARE(table.selectionBehavior(), QAbstractItemView::SelectRows);
    }

    void linesBecomeRows_data() {
        Columns<QString, QString>({"line", "rows"});
        Row("usb in a name", "device for O_usb: socket://1.2.3.4:91/ORIOLE", "O_usb>usb");
        Row("upper case", "device for ORIOLE: USB://x", "ORIOLE>");
        Row("no port", "device for ORIOLE: socket://1.2.3.4", "ORIOLE>1.2.3.4");
        Row("other scheme", "device for ORIOLE: ipp://1.2.3.4/", "ORIOLE>");
        Row("two blanks", "device  for ORIOLE: usb://x", "for>usb");
        Row("Chinese", "用于 ORIOLE 的设备：usb://x", "ORIOLE>usb");
        Row("no address", "device for ORIOLE: socket", "ORIOLE>");
        Row("too few words", "ORIOLE: usb://x", ">usb");
        Row("one word", "ORIOLE", ">");
        Row("zero byte", "a ORIOLE\\0\\nb ORIOLE", "ORIOLE>");
        Row("no match", "device for Oriole: usb://x", "");
        Row("no output", "", "");
        Row("ten rows", QString("a ORIOLE\\n").repeated(12), QString("|ORIOLE>").repeated(10).mid(1));
        Row("1024 bytes", QString(1009, 'x') + "\\nb ORIOLE_LONG_NAME", "ORIOLE_LONG_>");
        Row("many MiB", "a ORIOLE\\n'; head -c 9000000 /dev/zero && printf '", "ORIOLE>");
        Row("in pieces", "a ORI'; sleep 0.2; printf 'OLE", "ORIOLE>");
    }

    void linesBecomeRows() {
        QFETCH(QString, line);
        Desk desk("printf '" + line.toUtf8() + "'");
        QTEST(desk.Rows(), "rows");
        QVERIFY(desk.window->m_nTimerId > 0);
    }

    void typeDatHoldsAPattern_data() {
        Columns<QByteArray, QString>({"content", "rows"});
        Row("shorter than ORIOLE", QByteArray("HE"), "HERON>");
        Row("zero byte", QByteArray("HERON\0XX", 8), "HERON>");
        Row("pattern", QByteArray("H.R"), "HERON>");
        Row("line end", QByteArray("HERON\n"), "");
        Row("bad pattern", QByteArray("(HERON"), "");
        Row("65 bytes", QByteArray(64, 'x') + "y", QString(64, 'x') + ">");
        Row("empty", QByteArray(""), "ORIOLE>");
    }

    void typeDatHoldsAPattern() {
        QFETCH(QByteArray, content);
        Desk desk("for w in ORIOLE HERON " + QByteArray(64, 'x') + "; do echo \"a $w\"; done");
        desk.window->m_pModel->removeRows(0, 1);
        desk.WriteFile("type.dat", content);
        desk.window->GetPrinterInfoByCommand();
        QTEST(desk.Rows(), "rows");
        // The filter, before the address of the selected row.
        QCOMPARE(DebugLines().contains('|'), !content.isEmpty());
    }

    void listsGrowShrinkAndFail() {
        Desk desk; // whose first listing fails
        const MainWindow& window = *desk.window;
        QTableView* table = window.ui->tableView;
        QPushButton* refresh = window.ui->RefreshPrinter;
        QCOMPARE(table->receivers(SIGNAL(clicked(QModelIndex))), 0);
        QCOMPARE(window.m_nTimerId, 0);

        desk.SetLpstat(kUsb + kSocket);
        refresh->click();
        QCOMPARE(desk.Rows(), kBothRows);
        QCOMPARE(window.m_nPortType, 1);
        desk.SetLpstat(kSocket);
        refresh->click();
        QCOMPARE(desk.Rows(), QString("ORIOLE_2F>127.0.0.31"));
        QCOMPARE(window.m_nPortType, 2);
        QCOMPARE(table->currentIndex().row(), 0);
        QCOMPARE(table->receivers(SIGNAL(clicked(QModelIndex))), 1);

        // A listing that fails leaves rows, selection and timer as they are, and shows offline.
        const int timer = window.m_nTimerId;
        window.ui->PrinterType->setText("ORIOLE");
        for (const char* failure : {"exit 1", "echo 'a ORIOLE'; exit 7", "kill -9 $$", "absent"}) {
            desk.SetLpstat(failure);
            if (failure == QString("absent")) qputenv("PATH", "/nowhere");
            window.ui->PrinterStatus->setText("空闲");
            refresh->click();
            QCOMPARE(desk.Rows(), QString("ORIOLE_2F>127.0.0.31"));
            QCOMPARE(window.m_nTimerId, timer);
            QCOMPARE(desk.Shown(), QString("离线 |ORIOLE||||"));
        }
    }

    void aProgramLeftBehindIsNotWaitedForAndGetsNoDescriptor() {
        Desk desk("echo 'a ORIOLE'; (until [ -e stop ]; do sleep 0.1; done; touch ended) 2>/dev/null &");
        QCOMPARE(desk.Rows(), QString("ORIOLE>"));
        QVERIFY(!QFile::exists("ended"));
        desk.WriteFile("stop", "");
        // One that writes is ended by that, since the pipe has no other reader any more.
        desk.SetLpstat("echo 'a ORIOLE'; (timeout 60 yes; touch broken) 2>/dev/null &");
        desk.window->m_pModel->removeRows(0, 1);
        desk.window->GetPrinterInfoByCommand();
        QCOMPARE(desk.Rows(), QString("ORIOLE>"));
        QTRY_VERIFY(QFile::exists("ended") && QFile::exists("broken"));
    }

    void runningOutOfDescriptorsFailsAndLeavesStandardOutput() {
        Desk desk(kUsb);
        const QString output = QFile::symLinkTarget("/proc/self/fd/1");
        rlimit usual;
        getrlimit(RLIMIT_NOFILE, &usual);
        const int lowest = dup(STDIN_FILENO);
        for (const int left : {0, 1, 2, 3, 4, 50}) { // all but the last fail, by and by later
            const rlimit limit = {rlim_t(lowest + left), usual.rlim_max};
            desk.SetLpstat(kSocket + "touch called");
            close(lowest);
            setrlimit(RLIMIT_NOFILE, &limit);
            desk.window->GetPrinterInfoByCommand();
            setrlimit(RLIMIT_NOFILE, &usual);
            QCOMPARE(dup(STDIN_FILENO), lowest); // nothing has been left open
            QCOMPARE(QFile::exists("called"), left == 50);
            QCOMPARE(desk.Rows(), QString(left == 50 ? "ORIOLE_2F>127.0.0.31" : "ORIOLE>usb"));
        }
        close(lowest);
        QCOMPARE(QFile::symLinkTarget("/proc/self/fd/1"), output);
    }

    void aClickSelectsItsRow_data() {
        Columns<int, int, int, QString>({"row", "column", "portType", "address"});
        Row("network, name", 1, 0, 2, "127.0.0.31");
        Row("network, port", 1, 1, 2, "127.0.0.31");
        Row("USB keeps the address", 0, 1, 1, "kept");
        Row("host name with usb", 2, 0, 1, "kept");
    }

    void aClickSelectsItsRow() {
        QFETCH(int, row);
        QFETCH(int, column);
        Desk desk(kUsb + kSocket + "echo 'a ORIOLE_W'");
        MainWindow& window = *desk.window;
        window.m_pModel->item(2, 1)->setText("usbprinter.local");
        desk.Select(5, "kept");
        for (QLineEdit* field : window.findChildren<QLineEdit*>()) field->setText("old");
        window.ui->DetailError->setText("old");
        const QPointer<QTimer> before(window.m_pTimer);
        const QRect cell = window.ui->tableView->visualRect(window.m_pModel->index(row, column));
        QTest::mouseClick(window.ui->tableView->viewport(), Qt::LeftButton, {}, cell.center());
        QTEST(window.m_nPortType, "portType");
        QTEST(window.m_strPrinterIp, "address");
        QCOMPARE(DebugLines(), QString(row == 1 ? "\"127.0.0.31\"" : ""));
        QCOMPARE(desk.Shown(), kOffline);
        const QPointer<QTimer> timer(window.m_pTimer);
        const QPointer<QObject> model(window.m_pModel);
        QVERIFY(before.isNull() && timer->isActive() && !timer->isSingleShot());
        QCOMPARE(timer->interval(), 2000);
        QCOMPARE(timer->timerId(), window.m_nTimerId);
        QCOMPARE(timer->receivers(SIGNAL(timeout())), 1);
        desk.window.reset();
        QVERIFY(timer.isNull() && model.isNull());
    }
};

QTEST_MAIN(ListTest)
#include "tst_list.moc"
