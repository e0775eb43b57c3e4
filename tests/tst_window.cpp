// SPDX-License-Identifier: MIT

// The window: its form, the list of printers, the selection of one, and the ticks.

#include "desk.h"

#include <QScrollBar>

#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>

namespace
{

const QByteArray kUsbLine = "echo 'device for ORIOLE: usb://Generic/ORIOLE?serial=0001'\n";
const QByteArray kSocketLine = "echo 'device for ORIOLE_2F: socket://127.0.0.31:9100'\n";
const QByteArray k63(63, 'N');

/// The rows of the printer table, each as "name>port|".
Text Rows(const Desk& desk)
{
    const QStandardItemModel& model = *desk.window->m_pModel;
    QString rows;
    for (int i = 0; i < model.rowCount(); ++i)
        rows += model.item(i, 0)->text() + ">" + model.item(i, 1)->text() + "|";
    return rows;
}

/// The model word, as the debug output has it, and the rows of a listing with this type.dat.
Text Listing(const QByteArray& typeDat)
{
    const Desk desk;
    desk.SetLpstat("printf 'a %s\\n' ORIOLE oriole 鹭 " + k63 + " " + k63 + "N");
    QFile file("type.dat");
    file.open(QFile::WriteOnly);
    file.write(typeDat);
    file.close();
    desk.window->GetPrinterInfoByCommand();
    return desk.TakeDebugLines().section('|', 0, 0) + " " + Rows(desk);
}

/// Clicks a cell of the printer table. Returns how and where its printer is watched then.
Text Click(const Desk& desk, int row, int column)
{
    const QTableView& table = *desk.window->ui->tableView;
    const QPoint cell = table.visualRect(desk.window->m_pModel->index(row, column)).center();
    QTest::mouseClick(table.viewport(), Qt::LeftButton, {}, cell);
    if (!table.selectionModel()->isRowSelected(row, QModelIndex()))
        return "the row is not selected as a whole";
    const bool usb = desk.window->m_nPortType == MainWindow::kUsbPort;
    return (usb ? "USB " : "network ") + desk.window->m_strPrinterIp;
}

} // namespace

class WindowTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_standardOutput = dup(STDOUT_FILENO);
        for (int inherited = 3; inherited < 256; ++inherited)
            fcntl(inherited, F_SETFD, FD_CLOEXEC); // no command is to inherit it once more
        signal(SIGPIPE, SIG_IGN); // a listing that loses standard output is to get its FAIL line
    }
    void cleanup()
    {
        const int flags = fcntl(STDOUT_FILENO, F_GETFL);
        dup2(m_standardOutput, STDOUT_FILENO);
        QVERIFY2(!(flags & O_NONBLOCK), "the monitor's own standard output does not block");
    }

    void theWindowHasItsPartsInPlace()
    {
        const Desk desk;
        MainWindow& window = *desk.window;
        window.show();
        QCOMPARE(Text(window.windowTitle()), Text("状态监视器"));
        QCOMPARE(window.windowIcon().pixmap(48).toImage(), QImage("orioleMon.ico"));
        QVERIFY(window.ui->tableView->horizontalHeader()->isVisible());
        window.ui->DetailError->setText(QString("墨粉较少 ").repeated(20)); // is wrapped
        QCOMPARE(window.ui->DetailError->horizontalScrollBar()->maximum(), 0);
    }

    void nothingCanBeTyped()
    {
        const Desk desk;
        for (QLineEdit* field : desk.Fields())
            QTest::keyClicks(field, "typed");
        QTest::keyClicks(desk.window->ui->DetailError, "typed");
        QCOMPARE(desk.Shown(), Text(kOffline));
    }

    void linesBecomeRows_data()
    {
        QTest::addColumn<QString>("lpstat");
        QTest::addColumn<QString>("rows");
        const auto row = [](const char* name, const char* lpstat, const char* rows) {
            QTest::newRow(name) << lpstat << rows;
        };
        row("USB", "printf 'device for X: usb://ORIOLE'", "X>usb|");
        row("socket", "echo 'a b ORIOLE: socket://1.2.3.4:9://5'", "ORIOLE>1.2.3.4|");
        row("another scheme", "echo 'a b ORIOLE: ipp://usb://socket'", "ORIOLE>|");
        row("usb in a name", "echo 'a b O_usb: socket://1.2.3.4/ORIOLE'", "O_usb>usb|");
        row("colons in a name", "echo 'a b OR:IO:LE ORIOLE: usb://x'", "ORIOLE>usb|");
        row("Chinese", "echo '用于 鹭:1 的设备：usb://ORIOLE: y'", "鹭:1>usb|");
        row("no other descriptors", "echo a $(ls /proc/self/fd | wc -l)ORIOLE", "4ORIOLE>|");
        row("no output", "true", "");
        row("a zero byte", "printf 'a b\\0\\na ORIOLE'", "");
        row("eleven queues", "seq -f 'x %g ORIOLE' 11", "1>|2>|3>|4>|5>|6>|7>|8>|9>|10>|");
        row("a queue behind others", "seq 20; echo a ORIOLE", "ORIOLE>|");
        row("1024 bytes", "printf '%1009s\\nb ORIOLE_LONG_NAME' x", "ORIOLE_LONG_>|");
        row("a full pipe", "echo a ORIOLE; head -c 1000000 /dev/zero || exit 1", "ORIOLE>|");
        row("too much for it", "echo a ORIOLE; head -c 9000000 /dev/zero 2>&-; true", "ORIOLE>|");
    }
    void linesBecomeRows()
    {
        QFETCH(QString, lpstat);
        QFETCH(QString, rows);
        const Desk desk(lpstat.toUtf8());
        QCOMPARE(Rows(desk), Text(rows));
    }

    void theModelWordIsReadFromTypeDat()
    {
        QCOMPARE(Listing("鹭"), Text("\"鹭\" 鹭>|"));
        QCOMPARE(Listing("OR.OLE"), Text("\"OR.OLE\" ORIOLE>|"));
        QCOMPARE(Listing(QByteArray("鹭\0X", 5)), Text("\"鹭\" 鹭>|"));
        QCOMPARE(Listing("鹭\n"), Text("\"鹭\\n\" "));
        QCOMPARE(Listing(k63 + "NX"), Text(QString("\"%1N\" %1N>|").arg(QString(k63))));
        QCOMPARE(Listing(""), Text("\"ORIOLE\" ORIOLE>|"));
    }

    void aListingReplacesTheOneBefore()
    {
        const Desk desk(kUsbLine + kSocketLine);
        const QStandardItemModel& model = *desk.window->m_pModel;
        QCOMPARE(Rows(desk), Text("ORIOLE>usb|ORIOLE_2F>127.0.0.31|"));
        desk.SetLpstat(kSocketLine);
        desk.window->ui->RefreshPrinter->click();
        QCOMPARE(Rows(desk), Text("ORIOLE_2F>127.0.0.31|"));
        QVERIFY(desk.window->ui->tableView->selectionModel()->isRowSelected(0, QModelIndex()));
        QCOMPARE(Text(model.headerData(0, Qt::Horizontal).toString()), Text("打印机名称"));
        QCOMPARE(Text(model.headerData(1, Qt::Horizontal).toString()), Text("打印端口"));
    }

    void aListingThatFailsChangesTheStateOnly()
    {
        const Desk desk(kSocketLine);
        const QPointer<QTimer> timer(desk.window->m_pTimer);
        desk.Fill();
        desk.SetLpstat("echo a ORIOLE; exit 7");
        desk.window->GetPrinterInfoByCommand();
        desk.SetLpstat("kill -9 $$");
        desk.window->GetPrinterInfoByCommand();
        QCOMPARE(Rows(desk), Text("ORIOLE_2F>127.0.0.31|"));
        QCOMPARE(desk.Shown(), Text("old|离线 |old|old|old|old"));
        QVERIFY(timer);
        desk.SetLpstat("echo a b"); // the rows stay, too, but one is selected anew
        desk.window->GetPrinterInfoByCommand();
        QCOMPARE(desk.Shown() + Rows(desk), Text(kOffline + "ORIOLE_2F>127.0.0.31|"));
    }

    void aListingThatCannotKeepStandardOutputIsNotRun()
    {
        const Desk desk;
        desk.SetLpstat("touch run");
        rlimit before;
        getrlimit(RLIMIT_NOFILE, &before);
        const int first = dup(STDIN_FILENO);
        const int second = dup(STDIN_FILENO);
        const rlimit few = {static_cast<rlim_t>(second) + 1, before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
        close(first);
        close(second); // room for the pipe, and for nothing else
        desk.window->GetPrinterInfoByCommand();
        setrlimit(RLIMIT_NOFILE, &before);
        QVERIFY(!QFile::exists("run"));
    }

    void aClickSelectsItsRow()
    {
        const Desk desk(kUsbLine + kSocketLine + "echo 'a b ORIOLE: socket://usb.local:9100'");
        desk.window->GetPrinterInfoByCommand(); // connects the table no second time
        desk.TakeDebugLines();
        const QPointer<QTimer> timer(desk.window->m_pTimer);
        desk.Fill();
        QCOMPARE(Click(desk, 1, 0), Text("network 127.0.0.31"));
        QCOMPARE(desk.Shown(), Text(kOffline));
        QVERIFY(timer.isNull()); // there is a new one
        QCOMPARE(Click(desk, 0, 1), Text("USB 127.0.0.31"));
        QCOMPARE(Click(desk, 2, 0), Text("USB 127.0.0.31"));
        QCOMPARE(desk.TakeDebugLines(), Text("\"127.0.0.31\""));
    }

    void ticksComeEveryTwoSeconds()
    {
        const Desk desk;
        QString ticks;
        desk.window->GetSelectPrinterInfo();
        desk.window->m_nPortType = MainWindow::kNoPort; // a tick shows the offline display only
        desk.Fill();
        // Timers of one event loop run in their order, however late it is.
        for (const int time : {1500, 2500, 3500, 4500}) { // ms
            QTimer::singleShot(time, Qt::PreciseTimer, [&] {
                ticks += desk.Shown() == kOffline ? "tick " : "none ";
                desk.Fill();
            });
        }
        QTRY_COMPARE_WITH_TIMEOUT(Text(ticks), Text("none tick none tick "), 10000);
    }

private:
    int m_standardOutput = -1;
};

QTEST_MAIN(WindowTest)
#include "tst_window.moc"
