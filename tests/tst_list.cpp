// SPDX-FileCopyrightText: The oriole-monitor authors
// SPDX-License-Identifier: MIT

#include "support.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
const char kUsbLine[] = "echo 'device for ORIOLE: usb://Generic/ORIOLE?serial=0001'\n";
const char kSocketLine[] = "echo 'device for ORIOLE_2F: socket://127.0.0.31:9100'\n";
const char kOtherLine[] = "echo 'device for Office_Laser: ipp://10.0.0.7/ipp/print'\n";
const char kBothRows[] = "ORIOLE>usb|ORIOLE_2F>127.0.0.31";

QByteArray Echo(const QByteArray& line)
{
    return "echo '" + line + "'";
}

ino_t StandardOutput()
{
    struct stat status;
    fstat(STDOUT_FILENO, &status);
    return status.st_ino;
}
} // namespace

class ListTest : public QObject
{
    Q_OBJECT

private slots:
    void theWindowIsReadyBeforeItIsShown()
    {
        Desk desk(QByteArray(kUsbLine) + kOtherLine + kSocketLine);
        const MainWindow& window = *desk.window;
        QCOMPARE(desk.Rows(), QString(kBothRows));
        QCOMPARE(desk.Shown(), QString(OFFLINE));
        QCOMPARE(window.windowTitle(), QString("状态监视器"));
        QCOMPARE(window.m_pModel->horizontalHeaderItem(0)->text(), QString("打印机名称"));
        QCOMPARE(window.m_pModel->horizontalHeaderItem(1)->text(), QString("打印端口"));
        QCOMPARE(window.ui->tableView->editTriggers(), QAbstractItemView::NoEditTriggers);
        QCOMPARE(window.ui->tableView->selectionBehavior(), QAbstractItemView::SelectRows);
        QCOMPARE(window.metaObject()->method(window.metaObject()->methodOffset()).name(),
                 QByteArray("OntimerOut"));
    }

    void linesBecomeRows_data()
    {
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<QString>("rows");
        QTest::newRow("usb in a queue's name")
            << Echo("device for ORIOLE_usb: socket://1.2.3.4:9100") << "ORIOLE_usb>usb";
        QTest::newRow("upper case") << Echo("device for ORIOLE: USB://x") << "ORIOLE>";
        QTest::newRow("no port") << Echo("device for ORIOLE: socket://1.2.3.4") << "ORIOLE>1.2.3.4";
        QTest::newRow("other scheme") << Echo("device for ORIOLE: ipp://1.2.3.4/") << "ORIOLE>";
        QTest::newRow("model in the address") << Echo("device for Q: usb://x/ORIOLE") << "Q>usb";
        QTest::newRow("two blanks") << Echo("device  for ORIOLE: usb://x") << "for>usb";
        QTest::newRow("Chinese") << Echo("用于 ORIOLE 的设备：usb://x") << "ORIOLE>usb";
        QTest::newRow("no address") << Echo("device for ORIOLE: socket") << "ORIOLE>";
        QTest::newRow("too few words") << Echo("ORIOLE: usb://x") << ">usb";
        QTest::newRow("one word") << Echo("ORIOLE") << ">";
        QTest::newRow("no line end")
            << QByteArray("printf 'device for ORIOLE: usb://x'") << "ORIOLE>usb";
        QTest::newRow("zero byte")
            << QByteArray("printf 'device for ORIOLE: usb://x\\0\\nORIOLE'") << "ORIOLE>usb";
        QTest::newRow("no match") << QByteArray(kOtherLine) << "";
        QTest::newRow("no output") << QByteArray("exit 0") << "";
        QTest::newRow("twelve queues")
            << QByteArray("for i in 1 2 3 4 5 6 7 8 9 10 11 12; do echo \"a ORIOLE$i\"; done")
            << "ORIOLE1>|ORIOLE2>|ORIOLE3>|ORIOLE4>|ORIOLE5>|ORIOLE6>|ORIOLE7>|ORIOLE8>|ORIOLE9>|"
               "ORIOLE10>";
        QTest::newRow("cut at 1024 bytes")
            << QByteArray("printf '%1009d\\nb ORIOLE_LONG_NAME\\n' 0") << "ORIOLE_LONG_>";
        QTest::newRow("many MiB") << QByteArray(kUsbLine) +
                                         "head -c 9000000 /dev/zero | tr '\\0' x\n"
                                         "test -z \"$(cat never)\" 2>/dev/null\n"
                                  << "ORIOLE>usb";
        QTest::newRow("written late")
            << QByteArray(kUsbLine) + "sleep 0.2\n" + kSocketLine << kBothRows;
    }

    void linesBecomeRows()
    {
        QFETCH(QByteArray, script);
        Desk desk(script);
        QTEST(desk.Rows(), "rows");
        QVERIFY(desk.window->m_nTimerId > 0);
    }

    void typeDatHoldsAPattern_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("rows");
        QTest::addColumn<QStringList>("lines"); // on the debug output
        QTest::newRow("a word") << QByteArray("HERON") << "HERON>" << QStringList("\"HERON\"");
        QTest::newRow("shorter than the default")
            << QByteArray("HE") << "HERON>" << QStringList("\"HE\"");
        QTest::newRow("up to a zero byte")
            << QByteArray("HERON\0XX", 8) << "HERON>" << QStringList("\"HERON\"");
        QTest::newRow("a pattern") << QByteArray("H.R") << "HERON>" << QStringList("\"H.R\"");
        QTest::newRow("with a line end")
            << QByteArray("HERON\n") << "" << QStringList("\"HERON\\n\"");
        QTest::newRow("no pattern") << QByteArray("(HERON") << "" << QStringList("\"(HERON\"");
        QTest::newRow("empty") << QByteArray("") << "ORIOLE>" << QStringList();
        QTest::newRow("its first 64 bytes") << QByteArray(64, 'x') + "y" << QString(64, 'x') + ">"
                                            << QStringList("\"" + QString(64, 'x') + "\"");
    }

    void typeDatHoldsAPattern()
    {
        QFETCH(QByteArray, content);
        Desk desk("echo 'a ORIOLE'; echo 'a HERON'; echo 'a " + QByteArray(64, 'x') + "'");
        QCOMPARE(desk.Rows(), QString("ORIOLE>"));
        desk.window->m_pModel->removeRows(0, 1);
        desk.WriteFile("type.dat", content);
        desk.window->GetPrinterInfoByCommand();
        QTEST(desk.Rows(), "rows");
        QStringList lines = DebugLines();
        lines.removeLast(); // the selected address
        QTEST(lines, "lines");
    }

    void listsGrowShrinkAndFail()
    {
        Desk desk; // whose first listing fails
        const MainWindow& window = *desk.window;
        QTableView* table = window.ui->tableView;
        QCOMPARE(table->receivers(SIGNAL(clicked(QModelIndex))), 0);
        QCOMPARE(window.m_nTimerId, 0);
        QPushButton* refresh = window.ui->RefreshPrinter;

        desk.SetLpstat(QByteArray(kUsbLine) + kSocketLine);
        refresh->click();
        QCOMPARE(desk.Rows(), QString(kBothRows));
        QCOMPARE(table->currentIndex().row(), 0);
        desk.SetLpstat(kSocketLine);
        refresh->click();
        QCOMPARE(desk.Rows(), QString("ORIOLE_2F>127.0.0.31"));
        QCOMPARE(window.m_nPortType, 2);
        QCOMPARE(table->receivers(SIGNAL(clicked(QModelIndex))), 1);

        // A failed listing leaves rows, selection and timer as they are, and shows offline.
        const int timer = window.m_nTimerId;
        window.ui->PrinterStatus->setText("空闲");
        window.ui->PrinterType->setText("ORIOLE");
        for (const char* failure : {"exit 1", "echo 'a ORIOLE'; exit 7", "kill -9 $$"}) {
            desk.SetLpstat(failure);
            refresh->click();
            QCOMPARE(desk.Rows(), QString("ORIOLE_2F>127.0.0.31"));
            QCOMPARE(window.m_nTimerId, timer);
            QCOMPARE(desk.Shown(), QString("离线 |ORIOLE||||"));
        }
        QFile::remove("lpstat");
        qputenv("PATH", "/nowhere");
        refresh->click();
        QCOMPARE(window.m_nTimerId, timer);
        QCOMPARE(desk.Rows(), QString("ORIOLE_2F>127.0.0.31"));
    }

    void aProgramLeftBehindIsNotWaitedFor_data()
    {
        QTest::addColumn<QByteArray>("deed");
        QTest::newRow("silent") << QByteArray("sleep 0.1");
        QTest::newRow("writing") << QByteArray("echo ORIOLE");
    }

    void aProgramLeftBehindIsNotWaitedFor()
    {
        QFETCH(QByteArray, deed);
        Desk desk("echo 'a ORIOLE'\n"
                  "(trap '' PIPE; until [ -e stop ]; do " +
                  deed + "; done; touch ended) 2>/dev/null &");
        QVERIFY(!QFile::exists("ended"));
        QCOMPARE(desk.Rows().left(8), QString("ORIOLE>|").left(desk.Rows().size()));
        desk.WriteFile("stop", "");
        QTRY_VERIFY(QFile::exists("ended"));
    }

    void listingsKeepNoDescriptor()
    {
        Desk desk(QByteArray(kUsbLine) + kSocketLine);
        const ino_t output = StandardOutput();
        const int open = OpenDescriptors();
        for (int listing = 0; listing < 20; ++listing) {
            desk.SetLpstat(listing % 2 == 0 ? "exit 1" : kUsbLine);
            desk.window->GetPrinterInfoByCommand();
        }
        // Nor does one that runs out of descriptors at any of its steps.
        rlimit before;
        getrlimit(RLIMIT_NOFILE, &before);
        const int lowest = dup(STDIN_FILENO);
        close(lowest);
        for (int left = 0; left < 6; ++left) {
            const rlimit limit = {rlim_t(lowest + left), before.rlim_max};
            setrlimit(RLIMIT_NOFILE, &limit);
            desk.window->GetPrinterInfoByCommand();
            setrlimit(RLIMIT_NOFILE, &before);
            QCOMPARE(desk.Rows(), QString("ORIOLE>usb"));
        }
        QCOMPARE(OpenDescriptors(), open);
        QCOMPARE(StandardOutput(), output);
    }

    void aClickSelectsItsRow()
    {
        Desk desk(QByteArray(kUsbLine) + kSocketLine +
                  "echo 'c ORIOLE_W socket://usbprinter.local'");
        MainWindow& window = *desk.window;
        window.m_nSocket = dup(STDIN_FILENO);
        struct {
            int row;
            int column;
            int portType;
            const char* address;
        } const clicks[] = {{1, 0, 2, "127.0.0.31"},
                            {1, 1, 2, "127.0.0.31"},
                            {0, 1, 1, "127.0.0.31"},
                            {2, 1, 1, "127.0.0.31"}};
        window.m_pModel->setItem(2, 1, new QStandardItem("usbprinter.local"));
        for (const auto& click : clicks) {
            window.ui->PrinterStatus->setText("空闲");
            window.ui->DetailError->setText("stale");
            const QPointer<QTimer> before(window.m_pTimer);
            DebugLines();
            const QRect cell =
                window.ui->tableView->visualRect(window.m_pModel->index(click.row, click.column));
            QTest::mouseClick(window.ui->tableView->viewport(), Qt::LeftButton, Qt::NoModifier,
                              cell.center());
            QCOMPARE(window.m_nPortType, click.portType);
            QCOMPARE(window.m_strPrinterIp, QString(click.address));
            QCOMPARE(DebugLines(),
                     click.portType == 2 ? QStringList("\"127.0.0.31\"") : QStringList());
            QCOMPARE(desk.Shown(), QString(OFFLINE));
            QVERIFY(before.isNull());
            QVERIFY(window.m_pTimer->isActive() && !window.m_pTimer->isSingleShot());
            QCOMPARE(window.m_pTimer->interval(), 2000);
            QCOMPARE(window.m_pTimer->timerId(), window.m_nTimerId);
            QCOMPARE(window.m_pTimer->receivers(SIGNAL(timeout())), 1);
        }
        QVERIFY(window.m_nSocket > 0);
        const QPointer<QTimer> timer(window.m_pTimer);
        const QPointer<QStandardItemModel> model(window.m_pModel);
        desk.window.reset();
        QVERIFY(timer.isNull() && model.isNull());
    }
};

QTEST_MAIN(ListTest)
#include "tst_list.moc"
