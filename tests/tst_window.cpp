// SPDX-License-Identifier: MIT

// The window: its form, the list of printers, the selection of one, and the ticks.

#include "desk.h"

#include <QScrollBar>

namespace
{

const QByteArray kUsbLine = "echo 'device for ORIOLE: usb://Generic/ORIOLE?serial=0001'\n";
const QByteArray kSocketLine = "echo 'device for ORIOLE_2F: socket://127.0.0.31:9100'\n";

/// The rows of the printer table, each as "name>port|".
QString Rows(const Desk& desk)
{
    const QStandardItemModel& model = *desk.window->m_pModel;
    QString rows;
    for (int i = 0; i < model.rowCount(); ++i)
        rows +=
            model.index(i, 0).data().toString() + ">" + model.index(i, 1).data().toString() + "|";
    return rows;
}

/// Clicks a cell of the printer table. Returns how and where its printer is watched then.
QString Click(const Desk& desk, int row, int column)
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
    void theWindowHasItsPartsInPlace()
    {
        const Desk desk;
        MainWindow& window = *desk.window;
        window.show();
        COMPARE_TEXTS(window.windowTitle(), "状态监视器");
        QCOMPARE(window.windowIcon().pixmap(48).toImage(), QImage("orioleMon.ico"));
        QVERIFY(window.ui->tableView->horizontalHeader()->isVisible());
        window.ui->DetailError->setText(QString("墨粉较少 ").repeated(20)); // is wrapped
        QCOMPARE(window.ui->DetailError->horizontalScrollBar()->maximum(), 0);
        QRegion free = window.ui->centralWidget->rect();
        for (const QWidget* part : window.ui->centralWidget->findChildren<QWidget*>(
                 QString(), Qt::FindDirectChildrenOnly)) {
            const QRegion outside = QRegion(part->geometry()) - free;
            QVERIFY2(outside.isEmpty(), qPrintable(part->objectName()));
            free -= part->geometry();
        }
        QString captions;
        for (const QLabel* caption : window.findChildren<QLabel*>()) {
            const QWidget* field = caption->buddy(); // to screen readers, the caption is its name
            QVERIFY2(field, qUtf8Printable(caption->text()));
            captions += caption->text() + field->objectName() +
                        QString(" %1|").arg(field->y() - caption->y()); // how much lower it is
        }
        COMPARE_TEXTS(captions, "打印机状态：PrinterStatus 0|错误信息:DetailError 0|"
                                "打印机型号:PrinterType 0|机芯打印页数:PrinterCount 0|"
                                "硒鼓打印页数 :CatridgetCount 0|粉盒打印页数:CompactCount 0|");
    }

    void nothingCanBeTyped()
    {
        const Desk desk;
        for (QLineEdit* field : desk.Fields())
            QTest::keyClicks(field, "typed");
        QTest::keyClicks(desk.window->ui->DetailError, "typed");
        COMPARE_TEXTS(desk.Shown(), kOffline);
        QCOMPARE(desk.window->ui->tableView->editTriggers(), QAbstractItemView::NoEditTriggers);
    }

    void linesBecomeRows_data()
    {
        QTest::addColumn<QByteArray>("lpstat");
        QTest::addColumn<QString>("rows");
        QTest::addColumn<QByteArray>("before");
        const auto row = [](const char* name, const QByteArray& lpstat, const QString& rows,
                            const QByteArray& before = "exit 1") {
            QTest::newRow(name) << lpstat << rows << before;
        };
        row("socket", "echo 'a  ORIOLE: socket://1.2.3.4:9://5'", "ORIOLE>1.2.3.4|");
        row("another scheme", "echo 'a b USB_ORIOLE: ipp://usb://socket'", "USB_ORIOLE>|");
        row("usb in a name", "printf 'a b O_usb: socket://1.2.3.4/ORIOLE'", "O_usb>usb|");
        row("colons in a name", "echo 'a b OR:IO:LE ORIOLE: usb://x'", "ORIOLE>usb|");
        row("Chinese", "echo '用于 鹭:1 的设备：usb://ORIOLE: y'", "鹭:1>usb|");
        row("one end of the pipe",
            "pipe=$(readlink /proc/$$/fd/1); echo a $(ls -l /proc/$$/fd | grep -cF $pipe)ORIOLE",
            "1ORIOLE>|");
        row("no output", "true", "");
        row("a zero byte", "printf 'a b\\0\\na ORIOLE'", "");
        row("eleven queues", "seq -f 'x %g ORIOLE' 11", "1>|2>|3>|4>|5>|6>|7>|8>|9>|10>|");
        row("a queue after twenty others", "seq 20; echo a ORIOLE", "ORIOLE>|");
        row("1024 bytes", "printf '%1009s\\nb ORIOLE_LONG_NAME' x", "ORIOLE_LONG_>|");
        row("a full pipe", "echo a ORIOLE; head -c 1000000 /dev/zero || exit 1", "ORIOLE>|");
        row("an overfull pipe", "echo a ORIOLE; head -c 9000000 /dev/zero 2>&-; true", "ORIOLE>|");
        const QByteArray n64(64, 'N');
        const QByteArray words = "printf 'a %s\\n' ORIOLE oriole 鹭 " + n64 + " " + n64.chopped(1);
        row("type.dat: a pattern", words, "ORIOLE>|", "printf '^a OR.OLE' >type.dat");
        row("type.dat: a zero byte", words, "鹭>|", "printf '鹭\\0X' >type.dat");
        row("type.dat: a newline", words, "", "echo 鹭 >type.dat");
        row("type.dat: 65 bytes", words, n64 + ">|", "printf " + n64 + "X >type.dat");
        row("type.dat: empty", words, "ORIOLE>|", "touch type.dat");
    }
    void linesBecomeRows()
    {
        QFETCH(QByteArray, lpstat);
        QFETCH(QString, rows);
        QFETCH(QByteArray, before);
        Desk desk(before);
        desk.SetLpstat(lpstat);
        desk.window->GetPrinterInfoByCommand();
        COMPARE_TEXTS(Rows(desk), rows);
    }

    void aListingReplacesTheOneBefore()
    {
        Desk desk(kSocketLine + kUsbLine);
        const QStandardItemModel& model = *desk.window->m_pModel;
        COMPARE_TEXTS(Rows(desk), "ORIOLE_2F>127.0.0.31|ORIOLE>usb|");
        desk.SetLpstat("echo;" + kSocketLine);
        desk.window->ui->RefreshPrinter->click();
        COMPARE_TEXTS(Rows(desk), "ORIOLE_2F>127.0.0.31|");
        QVERIFY(desk.window->ui->tableView->selectionModel()->isRowSelected(0, QModelIndex()));
        COMPARE_TEXTS(model.headerData(0, Qt::Horizontal).toString(), "打印机名称");
        COMPARE_TEXTS(model.headerData(1, Qt::Horizontal).toString(), "打印端口");
    }

    void aListingThatFailsChangesTheStateOnly()
    {
        Desk desk(kSocketLine);
        const QPointer<QTimer> timer(desk.window->m_pTimer);
        desk.Fill();
        desk.SetLpstat("echo a ORIOLE; exit 7");
        desk.window->GetPrinterInfoByCommand();
        desk.SetLpstat("kill -9 $$");
        desk.window->GetPrinterInfoByCommand();
        COMPARE_TEXTS(Rows(desk), "ORIOLE_2F>127.0.0.31|");
        COMPARE_TEXTS(desk.Shown(), "old|离线 |old|old|old|old");
        QVERIFY2(timer, "the poll timer was deleted");
        desk.SetLpstat("true"); // the rows also stay, but one is selected anew
        desk.window->GetPrinterInfoByCommand();
        COMPARE_TEXTS(Rows(desk), "ORIOLE_2F>127.0.0.31|");
        COMPARE_TEXTS(desk.Shown(), kOffline);
    }

    void aClickSelectsItsRow()
    {
        const Desk desk(kUsbLine + kSocketLine + "echo 'a b ORIOLE: socket://usb.local:9100'");
        desk.window->GetPrinterInfoByCommand(); // must not connect the table again
        const QPointer<QTimer> timer(desk.window->m_pTimer);
        desk.Fill();
        COMPARE_TEXTS(Click(desk, 1, 0), "network 127.0.0.31");
        COMPARE_TEXTS(desk.Shown(), kOffline);
        QVERIFY2(timer.isNull(), "the poll timer of before still exists");
        COMPARE_TEXTS(Click(desk, 0, 1), "USB 127.0.0.31");
        COMPARE_TEXTS(Click(desk, 2, 0), "USB 127.0.0.31");
        COMPARE_TEXTS(desk.TakeDebugLines(), "\"127.0.0.31\"");
    }

    void ticksComeEveryTwoSeconds()
    {
        const Desk desk;
        desk.window->GetSelectPrinterInfo();
        desk.window->m_nPortType = MainWindow::kNoPort;    // a tick shows the offline display only
        QCOMPARE(desk.window->m_pTimer->interval(), 2000); // ms
        for (int tick = 1; tick <= 2; ++tick) {
            desk.Fill();
            QTRY_VERIFY_WITH_TIMEOUT(desk.Shown() == kOffline && !desk.window->m_nPortType, 10000);
        }
    }
};

QTEST_MAIN(WindowTest)
#include "tst_window.moc"
