// SPDX-License-Identifier: MIT

// The window, the listing of the print queues, the selection of one, and the texts for what
// printers report. All the while, signals interrupt what waits.

#include "support.h"

#include <QTimer>
#include <QToolBar>

#include <csignal>
#include <sys/time.h>
#include <sys/wait.h>

namespace
{

const QByteArray kUsb = "echo 'device for ORIOLE: usb://Generic/ORIOLE?serial=0001'\n";
const QByteArray kSocket = "echo 'device for ORIOLE_2F: socket://127.0.0.31:9100'\n";

/// What is shown of the hardware state that console lines make, in a buffer of exactly its size.
QString Show(const Desk& desk, const QString& lines)
{
    Console console({"printer"}, "ORIOLE");
    Run(console, lines);
    const QByteArray block = console.Printers()[0].HardwareState();
    std::vector<unsigned char> exact(block.begin(), block.end());
    desk.window->ParseHardwareState(exact.data(), int(exact.size()));
    return desk.window->ui->DetailError->toPlainText();
}

/// The text with its number before it, or nothing.
QString Numbered(int number, const QString& text)
{
    return text.isEmpty() ? "" : QString::number(number) + text;
}

} // namespace

class WindowTest : public QObject
{
    Q_OBJECT

    int m_descriptors = 0;

private slots:
    void initTestCase()
    {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, nullptr);
        const itimerval often = {{0, 3000}, {0, 3000}};
        setitimer(ITIMER_REAL, &often, nullptr);
        QIcon(ORIOLE_SOURCE "/resources/orioleMon.ico").pixmap(48); // opens something for good
        m_descriptors = OpenDescriptors();
    }

    void cleanup()
    {
        QCOMPARE(OpenDescriptors(), m_descriptors);
        QCOMPARE(waitpid(-1, nullptr, WNOHANG), -1); // no child is left
    }

    void theFormIsWhereAndWhatItIs()
    {
        const Desk desk;
        QFile::copy(ORIOLE_SOURCE "/resources/orioleMon.ico", "orioleMon.ico");
        MainWindow window(nullptr);
        const QIcon icon("orioleMon.ico");
        QCOMPARE(window.windowIcon().pixmap(48).toImage(), icon.pixmap(48).toImage());
        const QTableView& table = *window.ui->tableView;
        QCOMPARE(window.size(), QSize(381, 572));
        QCOMPARE(QSize(table.columnWidth(0), table.columnWidth(1)), QSize(155, 152));
        QCOMPARE(window.toolBarArea(window.ui->mainToolBar), Qt::TopToolBarArea);
        QVERIFY(!window.ui->mainToolBar->isHidden() && window.ui->mainToolBar->actions().isEmpty());
        QVERIFY(!window.ui->statusBar->isHidden() && !window.menuWidget());
        QCOMPARE(table.editTriggers(), QAbstractItemView::NoEditTriggers);
        QCOMPARE(table.selectionBehavior(), QAbstractItemView::SelectRows);
        QString shown = window.objectName() + " " + window.windowTitle() + "\n";
        for (const int column : {0, 1})
            shown += window.m_pModel->headerData(column, Qt::Horizontal).toString() + "\n";
        // In the order in which the form makes them.
        for (const QWidget* widget : window.centralWidget()->findChildren<QWidget*>(
                 QString(), Qt::FindDirectChildrenOnly)) {
            const QRect place = widget->geometry();
            shown += QString::asprintf(
                "%s %s %d,%d %dx%d [%s]%s\n", widget->metaObject()->className(),
                qUtf8Printable(widget->objectName()), place.x(), place.y(), place.width(),
                place.height(), qUtf8Printable(widget->property("text").toString()),
                widget->property("readOnly").toBool() ? " read-only" : "");
        }
        QVERIFY(Same(shown,
                     R"(MainWindow 状态监视器
打印机名称
打印端口
QLabel label_2 20,220 81x20 [打印机状态：]
QLabel label_6 20,420 61x20 [错误信息:]
QLabel label_1 20,260 91x20 [打印机型号:]
QLineEdit PrinterType 150,260 181x26 [] read-only
QLineEdit PrinterStatus 150,220 181x26 [离线 ] read-only
QLineEdit PrinterCount 150,300 181x26 [] read-only
QLineEdit CatridgetCount 150,340 181x26 [] read-only
QLineEdit CompactCount 150,380 181x26 [] read-only
QTextEdit DetailError 150,420 181x89 [] read-only
QLabel label_3 20,300 101x20 [机芯打印页数:]
QLabel label_4 20,340 101x20 [硒鼓打印页数 :]
QLabel label_10 20,380 101x20 [粉盒打印页数:]
QTableView tableView 20,30 311x171 []
QPushButton RefreshPrinter 20,0 85x27 [刷新设备]
)"));
    }

    void linesBecomeRows()
    {
        const auto table = Table(R"(
printf 'device for ORIOLE: usb://Generic/ORIOLE?serial=0001' => ORIOLE>usb.
printf 'a b X: usb://x\na b ORIOLE: socket://1.2.3.4:91\n\n' => ORIOLE>1.2.3.4.
printf 'device for O_usb: socket://1.2.3.4:91/ORIOLE' => O_usb>usb.
printf 'device for ORIOLE: USB://socket' => ORIOLE>.
printf 'device for ORIOLE: socket://1.2.3.4' => ORIOLE>1.2.3.4.
printf 'device for ORIOLE: ipp://socket://1.2.3.4' => ORIOLE>.
printf 'device  for ORIOLE: usb://x' => for>usb.
printf 'a b OR:IO:LE ORIOLE: usb://x' => ORIOLE>usb.
printf '用于 ORIOLE:1 的设备：usb://x' => ORIOLE:1>usb.
printf 'device for ORIOLE: socket' => ORIOLE>.
printf 'ORIOLE' => >.
printf 'a ORIOLE\0\nb ORIOLE' => ORIOLE>.
printf 'device for Oriole: usb://x' => .
true => .
for i in 1 2 3 4 5 6 7 8 9 a b c; do echo; echo $i ORIOLE$i; done => ORIOLE1>|ORIOLE2>|ORIOLE3>|ORIOLE4>|ORIOLE5>|ORIOLE6>|ORIOLE7>|ORIOLE8>|ORIOLE9>|ORIOLEa>.
printf '%1009s\nb ORIOLE_LONG_NAME' x => ORIOLE_LONG_>.
echo a ORIOLE; head -c 9000000 /dev/zero => ORIOLE>.
echo ORIOLE $(ls -l /proc/$$/fd | grep -cF -e $(readlink /proc/$$/fd/1) -e socket) => 1>.
printf 'a ORI'; sleep 0.2; echo OLE => ORIOLE>.
sleep 0.1; pkill -ALRM -P $(ps -o ppid= $PPID) tst_window; sleep 0.1; echo a ORIOLE => ORIOLE>.
printf HE >type.dat; echo a ORIOLE; echo a HERON => HERON>.
printf 'HERON\0XX' >type.dat; echo a HERON => HERON>.
printf H.R >type.dat; echo a HERON => HERON>.
printf 鹭 >type.dat; echo a 鹭 => 鹭>.
printf 'HERON\n' >type.dat; echo a HERON => .
printf '(HERON' >type.dat; echo 'a (HERON' => .
printf '%063d1x' 0 >type.dat; printf 'a %063d2\na %063d1' 0 0 => 0000000000000000000000000000000000000000000000000000000000000001>.
true >type.dat; echo a ORIOLE => ORIOLE>.
)");
        for (const auto& [script, rows] : table) {
            const Desk desk(script.toUtf8());
            desk.window->m_pModel->removeRows(0, 10);
            desk.window->GetPrinterInfoByCommand(); // with the type.dat that the first one wrote
            QVERIFY(Same(script + ": " + desk.Rows(), script + ": " + rows));
            QCOMPARE(desk.window->m_nPortType, rows.section('|', 0, 0).endsWith("usb") ? 1 : 2);
            QVERIFY(Same(desk.Shown(), kOffline));
            // The filter, and then the address of what is selected.
            QCOMPARE(desk.DebugLines().contains('|'), script.contains("type.dat"));
        }
    }

    void listsGrowShrinkAndFail()
    {
        const Desk desk; // whose first listing fails
        const MainWindow& window = *desk.window;
        const QTableView* table = window.ui->tableView;
        QPushButton* refresh = window.ui->RefreshPrinter;
        QCOMPARE(table->receivers(SIGNAL(clicked(QModelIndex))) + window.m_nTimerId, 0);
        desk.SetLpstat(kUsb + kSocket);
        refresh->click();
        QVERIFY(Same(desk.Rows(), "ORIOLE>usb|ORIOLE_2F>127.0.0.31"));
        QCOMPARE(window.m_nPortType, 1);
        desk.SetLpstat("echo >>count; " + kSocket);
        QTest::mousePress(refresh, Qt::LeftButton);
        QVERIFY(!QFile::exists("count"));
        QTest::mouseRelease(refresh, Qt::LeftButton);
        QCOMPARE(QFileInfo("count").size(), 1); // listed once
        QVERIFY(Same(desk.Rows(), "ORIOLE_2F>127.0.0.31"));
        QCOMPARE(window.m_nPortType, 2);
        QCOMPARE(table->currentIndex().row(), 0);
        QCOMPARE(table->receivers(SIGNAL(clicked(QModelIndex))), 1);

        // A listing that fails leaves all but the status as it is: a bad status, or a reader that
        // dies, which is a process of this program's.
        const QByteArray kill = "pkill -9 -P $(ps -o ppid= $PPID) tst_window; ";
        const int timer = window.m_nTimerId;
        for (const QByteArray& failure : {QByteArray("exit 1"), QByteArray("echo a ORIOLE; exit 7"),
                                          QByteArray("kill -9 $$"), kill + "true", kill + "yes"}) {
            desk.SetLpstat(failure);
            desk.Fill("old");
            refresh->click();
            QVERIFY(
                Same(desk.Rows() + desk.Shown(), "ORIOLE_2F>127.0.0.31old|离线 |old|old|old|old"));
            QCOMPARE(window.m_nTimerId, timer);
        }
        desk.SetLpstat("echo other"); // and one without a match clears the fields
        refresh->click();
        QVERIFY(Same(desk.Rows() + desk.Shown(), "ORIOLE_2F>127.0.0.31" + kOffline));
    }

    void aProgramLeftBehindIsNotWaitedFor()
    {
        // Neither one that waits, nor one that writes for ever, which nobody reads any more.
        const Desk desk("echo 'a ORIOLE'; (until [ -e stop ]; do sleep 0.1; done; touch ended) &\n"
                        "(timeout 60 yes; touch broken) 2>/dev/null &");
        QVERIFY(Same(desk.Rows(), "ORIOLE>") && !QFile::exists("ended"));
        desk.Write("stop", "");
        QTRY_VERIFY(QFile::exists("ended") && QFile::exists("broken"));
    }

    void aClickSelectsItsRow()
    {
        Desk desk(kUsb + kSocket + "echo 'a ORIOLE_W'");
        MainWindow& window = *desk.window;
        QTableView& table = *window.ui->tableView;
        window.m_pModel->item(2, 1)->setText("usbprinter.local");
        QString shown; // port type, address and debug line
        for (const QPoint cell : {QPoint(0, 1), QPoint(1, 0), QPoint(1, 1), QPoint(0, 2)}) {
            window.m_strPrinterIp = "kept";
            desk.Fill("old");
            const QPointer<QTimer> before(window.m_pTimer);
            const QModelIndex index = window.m_pModel->index(cell.y(), cell.x());
            const QPoint place = table.visualRect(index).center();
            QTest::mousePress(table.viewport(), Qt::LeftButton, {}, place);
            QVERIFY(before && desk.Shown() != kOffline);
            QTest::mouseRelease(table.viewport(), Qt::LeftButton, {}, place);
            QVERIFY(!before && window.m_pTimer->timerId() == window.m_nTimerId);
            QVERIFY(Same(desk.Shown(), kOffline));
            shown +=
                QString::number(window.m_nPortType) + window.m_strPrinterIp + desk.DebugLines();
        }
        QVERIFY(Same(shown, "2127.0.0.31\"127.0.0.31\"1kept2127.0.0.31\"127.0.0.31\"1kept"));
    }

    void ticksComeEveryTwoSeconds()
    {
        const Desk desk(kSocket);
        desk.window->m_nPortType = 0; // a tick shows offline, and does nothing else
        QCOMPARE(desk.window->m_pTimer->timerType(), Qt::PreciseTimer);
        QCOMPARE(desk.window->m_pTimer->interval(), 2000); // ms
        for (int tick = 1; tick <= 2; ++tick) {
            desk.Fill("old");
            QTRY_VERIFY_WITH_TIMEOUT(desk.Shown() == kOffline, 4000);
        }
    }

    void everyStateAndFaultHasItsTestAndText()
    {
        const Desk desk;
        QString shown; // for each state, each value of a flag, and each position of an array
        for (int code = 0; code < 256; ++code) {
            desk.window->SetPrinterState(static_cast<unsigned char>(code));
            shown += desk.window->ui->PrinterStatus->text();
        }
        for (int value = 0; value < 3; ++value) {
            for (int id = 0; id < 256; ++id)
                shown += Numbered(id, Show(desk, QString("flag %1 %2").arg(id).arg(value)));
        }
        for (const int id : {6, 9, 10, 12, 25, 28}) {
            shown += "\n";
            for (int position = 0; position < 20; ++position) {
                const QString before = QString(" 2").repeated(position);
                shown +=
                    Numbered(position, Show(Desk(), QString("array %1").arg(id) + before + " 1 2"));
            }
        }
        const QString faults =
            "0MFP错误 1双面单元错误 3双面单元不存在 4墨粉盒不存在 5定影器不存在 7未知错误 "
            "14墨粉较少 15定影器寿命将尽 17主单元错误 18传送卷错误 19进纸器故障 26废粉仓已满 "
            "30硒鼓传感器故障 31墨粉盒故障 32硒鼓故障 33硒鼓寿命已尽 "
            "7未知错误 19进纸器故障 26废粉仓已满 30硒鼓传感器故障 32硒鼓故障 33硒鼓寿命已尽 \n"
            "1手动纸盒卡纸 2主纸盒卡纸 3卡纸在Main Feed Sensor "
            "4卡纸在Main Feed Sensor和Spare Sensor之间 5卡纸在Spare sensor "
            "6卡纸在Spare sensor与Registration sensor之间 7卡纸在Registration sensor "
            "8卡纸在Registration sensor及Fuser out sensor之间 9卡纸在Fuser out sensor "
            "10卡纸在Fuser out sensor及Exit sensor之间 11卡纸在Exit sensor "
            "12卡纸在Exit sensor及Duplex sensor之间 13卡纸在Duplex sensor "
            "14卡纸在Duplex sensor及Spare sensor之间 \n"
            "0前盖打开 1后盖打开 2双面单元盖被打开 \n"
            "0手动纸盒打开 1主纸盒打开 \n\n"
            "0手动纸盒抬纸中 1主纸盒抬纸中 \n"
            "0手动纸盒错误 1主纸盒错误 ";
        const QString states = "未知状态热机中打印中错误空闲休眠作业取消中";
        QVERIFY(Same(shown, states + QString("未知状态").repeated(249) + faults));
    }

    void everyErrorCodeHasItsText()
    {
        // Single codes and ranges; all others are other errors.
        const auto table = Table(R"(
200000 =>  多重进纸失败 .
200001 200085 => 自动选择纸盒缺纸  .
200003 => 进纸失败  .
200004 =>  温度自动调节 .
200005 => 印后纸张不匹配 .
200031 => 缺粉 .
200041 => 硒鼓不存在 .
200043 => 硒鼓寿命将尽  .
200045 => 硒鼓单元正在清理 .
200046 => 硒鼓单元被改变 .
200080 => 手动纸盒缺纸 .
200081 => 主纸盒缺纸 .
200090 => 风扇错误  .
205101 => 充电器线异常 .
500000 => 打印机IP冲突 .
500001 => 断网.
500002 => DHCP无响应 .
0 200030 200032 200036 200042 200044 200051 200054 200301-200302 200324-200335 => .
201600 201604-201605 201607 201613 201615-201618 201621-201623 => 定影器错误:%1 .
201610 201650-201651 201701-201704 201711-201714 201721-201724 201730 => 运行错误:%1 .
300100-300102 300200-300203 302651 => 运行错误:%1 .
205000-205001 => 打印机故障:%1 .
)");
        QMap<quint32, QString> expected;
        for (const auto& [codes, text] : table) {
            for (const QString& range : codes.split(' ')) {
                const quint32 last = range.section('-', -1).toUInt();
                for (quint32 code = range.section('-', 0, 0).toUInt(); code <= last; ++code)
                    expected[code] = text;
            }
        }
        Desk desk;
        for (const quint32 known : expected.keys() + QList<quint32>{0x80000000, 0xFFFFFFFE}) {
            for (const quint32 code : {known - 1, known, known + 1}) {
                unsigned char bytes[4];
                qToLittleEndian(code, bytes);
                const QString number = QString::number(code);
                const QString text =
                    QString(expected.value(code, "其他错误:%1 ")).replace("%1", number);
                QVERIFY(Same(number + ": " + desk.window->GetErrorCodeState(bytes, 1),
                             number + ": " + text));
            }
        }
    }

    void blocksAreReadInOrderAndWithinTheirEnd()
    {
        // Blocks with "|" between them, and what is shown of the last one.
        const auto table = Table(R"(
flag 14; array 9 1 0 1; errors 500001 7 => 墨粉较少 前盖打开 双面单元盖被打开 断网其他错误:7 .
errors 500001 500002 201600 0 4294967295 => 断网DHCP无响应 定影器错误:201600 其他错误:4294967295 .
flag 14; flag 0; flag 14; flag 1; clear 1 => MFP错误 墨粉较少 .
raw 000000000000; flag 1; clear; flag 0 => MFP错误 .
flag 14|raw 000000000000 => .
flag 14|raw 0000000001 => .
raw 000000000200 0E00030000000100 0E00030000000100 => 墨粉较少 墨粉较少 .
raw 000000000100 0E00030000000100 0000030000000100 => 墨粉较少 .
raw 000000000001 0E00030000000100 0000030000000100 => 墨粉较少 MFP错误 .
raw 000000000200 0E00030000000100 00000300000001 => 墨粉较少 .
raw 000000000200 0900030003001600 0000030000000100 010001000000 => 前盖打开 后盖打开 MFP错误 .
raw 000000000200 0900030003001700 0000030000000100 010001000000 => MFP错误 .
raw 000000000100 0900030003000000 => .
raw 000000000100 2200040001000E00 21A10700 => 断网.
raw 000000000100 2200040001000E00 21A107 => .
raw 000000000200 2200030001000E00 0E00040000000100 => .
array 10 1 1; array 28 1 1 => 手动纸盒打开 主纸盒打开 .
array 28 1 1; array 10 1 1 => 手动纸盒错误 主纸盒错误 手动纸盒打开 主纸盒打开 .
array 28 1 1; array 10 1 1|array 28 1 1; array 10 1 1 => 手动纸盒打开 主纸盒打开 .
array 10 0 1|array 28 1 1 => 手动纸盒错误 .
array 10 1|array 28 1 1 => 主纸盒错误 .
array 10 1 1|array 28 1 1|array 28 1 1 => 手动纸盒错误 主纸盒错误 .
array 10 1 1|array 10 1 1|array 28 1 1 => .
array 12 0 5; array 28 1 1 => 主纸盒错误 .
array 12 1 0|array 28 1 1 => 手动纸盒错误 .
raw 000000000200 0A0003000200FF00 1C00030002001600 01000100 => 手动纸盒错误 主纸盒错误 .
)");
        for (const auto& [blocks, shown] : table) {
            const Desk desk;
            QString last;
            for (const QString& lines : blocks.split('|'))
                last = Show(desk, lines);
            QVERIFY(Same(blocks + " => " + last, blocks + " => " + shown));
        }
    }
};

QTEST_MAIN(WindowTest)
#include "tst_window.moc"
