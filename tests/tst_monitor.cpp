// SPDX-License-Identifier: MIT

// The window, and the polling of simulated printers, over UDP and through the real libusb. Built
// without access control, for slots to be called and members to be set. Runs under
// umockdev-wrapper.

#include "console.h"
#include "mainwindow.h"
#include "networkport.h"
#include "ui_mainwindow.h"

#include <QStandardItemModel>
#include <QtTest>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

const QByteArray kUsb = "echo 'device for ORIOLE: usb://Generic/ORIOLE?serial=0001'\n";
const QByteArray kSocket = "echo 'device for ORIOLE_2F: socket://127.0.0.31:9100'\n";
const char* const kAddress = "127.0.0.11";
const QString kOffline = "|离线 ||||";
const QString kShown = "ORIOLE|打印中|123456|2|-1|墨粉较少 ";

typedef std::pair<const char*, const char*> Row;

/// Whether two texts are the same. Says, in plain characters, when they are not.
bool Same(const QString& shown, const QString& expected)
{
    if (shown != expected)
        fputs(qUtf8Printable("shown:    " + shown + "|\nexpected: " + expected + "|\n"), stderr);
    return shown == expected;
}

/// How many are open. The simulated bus opens and closes sockets and eventfds at will: not counted.
int OpenDescriptors()
{
    QStringList targets;
    for (const QFileInfo& file : QDir("/proc/self/fd").entryInfoList(QDir::Files | QDir::System))
        targets += file.symLinkTarget();
    return int(targets.filter(QRegularExpression("^((?!socket|eventfd).)+$")).size());
}

/// Carries out console lines, "LINE; LINE", each of which has to be a good one.
void Run(Console& console, const QString& lines)
{
    for (const QString& line : lines.split(';'))
        QVERIFY(Same(line + ": " + console.Run(line), line + ": ok"));
}

/// A window in a fresh working directory with an `lpstat` on the PATH.
struct Desk {
    explicit Desk(const QByteArray& lpstat = "exit 1")
    {
        static const QByteArray path = qgetenv("PATH");
        qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext&, const QString& line) { debugLines += line; });
        QDir::setCurrent(directory.path());
        qputenv("PATH", QFile::encodeName(directory.path()) + ":" + path);
        SetLpstat(lpstat);
        QFile::copy(ORIOLE_SOURCE "/resources/orioleMon.ico", "orioleMon.ico");
        window.reset(new MainWindow(nullptr));
        DebugLines();
    }

    void SetLpstat(const QByteArray& script) const
    {
        QFile file("lpstat");
        QVERIFY(file.open(QFile::WriteOnly) && file.setPermissions(QFile::Permissions(0x7700)));
        file.write("#!/bin/sh\n[ \"$*\" = -v ] || exit 9\n" + script + "\n");
    }

    void Tick(int times = 1) const
    {
        for (int i = 0; i < times; ++i)
            window->OntimerOut();
    }

    void Fill(const QString& text) const
    {
        for (QLineEdit* field : window->findChildren<QLineEdit*>())
            field->setText(text);
        window->ui->DetailError->setText(text);
    }

    /// Model, status, engine, drum and toner counts, error text, with "|" between them.
    QString Shown() const
    {
        QString shown;
        for (const QLineEdit* field : window->findChildren<QLineEdit*>())
            shown += field->text() + "|";
        return shown + window->ui->DetailError->toPlainText();
    }

    /// The rows of the printer table, each as "name>port|".
    QString Rows() const
    {
        const QStandardItemModel& model = *window->m_pModel;
        QString rows;
        for (int i = 0; i < model.rowCount(); ++i)
            rows += model.item(i, 0)->text() + ">" + model.item(i, 1)->text() + "|";
        return rows;
    }

    /// Lines written to the debug output since the last call, with "|" between them.
    QString DebugLines() const { return std::exchange(debugLines, QStringList()).join("|"); }

    inline static QStringList debugLines;
    QTemporaryDir directory;
    std::unique_ptr<MainWindow> window;
};

/// What is shown of a hardware state block, in a buffer of exactly its size: the first bytes of one
/// that console lines make, or that stands there in hexadecimal.
QString Show(const Desk& desk, const QString& lines, int bytes = 999)
{
    Console console({"printer"});
    if (lines[0] != '0')
        Run(console, lines);
    const QByteArray block = lines[0] == '0' ? QByteArray::fromHex(lines.toLatin1())
                                             : console.Printers()[0].HardwareState();
    std::vector<unsigned char> exact(block.begin(), block.begin() + qMin(bytes, int(block.size())));
    desk.window->ParseHardwareState(exact.data(), int(exact.size()));
    return desk.window->ui->DetailError->toPlainText();
}

/// The same behind a number; nothing when nothing is shown.
QString Fault(const Desk& desk, int number, const QString& lines)
{
    const QString text = Show(desk, lines);
    return text.isEmpty() ? "" : QString::number(number) + text;
}

/// The clock that time() and sleep() show. It moves on by a second whenever it is read, unless the
/// printer has just answered: what is waited for comes at once, or never.
struct {
    time_t now = 1000;
    int step = 1; // s
    std::function<bool()> answers = [] { return false; };
} playedClock;

/// A desk with a printer, on USB or the network. What it is asked stands among the debug lines.
struct PrinterDesk : Desk {
    explicit PrinterDesk(const QString& name, const QByteArray& model = "ORIOLE")
        : console({name}), printer(console.Printers()[0]), port(printer)
    {
        Run(console, "state 2; counters 123456 2 4294967295; flag 14");
        printer.model = model;
        printer.meddle = [this](const QByteArray& request, QByteArray& answer) {
            debugLines += request.toHex();
            spoil(request, answer);
        };
        window->m_nPortType = console.HasBus() ? 1 : 2;
        window->m_strPrinterIp = name;
        if (console.HasBus())
            return;
        QVERIFY(port.Open());
        playedClock = {};
        playedClock.answers = [this] { return port.Answer(); };
        Tick();
    }
    ~PrinterDesk() { playedClock = {}; }

    Console console;
    Printer& printer;
    NetworkPort port;
    std::function<void(const QByteArray&, QByteArray&)> spoil = [](const QByteArray&, auto&) {};
};

} // namespace

extern "C" time_t time(time_t*) noexcept
{
    return playedClock.now += playedClock.answers() ? 0 : playedClock.step;
}

extern "C" unsigned int sleep(unsigned int seconds)
{
    Desk::debugLines += "sleep " + QString::number(seconds);
    playedClock.now += seconds;
    playedClock.answers();
    return 0;
}

class MonitorTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup()
    {
        static const int first = OpenDescriptors();
        QTRY_COMPARE(OpenDescriptors(), first);
    }

    void theFormIsReadableAndReadOnly()
    {
        const Desk desk;
        MainWindow& window = *desk.window;
        const Ui_MainWindow& ui = *window.ui;
        window.setStyleSheet("* { font-size: 12px }"); // 9 pt at 96 dpi
        window.show();
        QCOMPARE(window.size(), QSize(381, 572));
        QCOMPARE(window.metaObject()->indexOfSlot("OntimerOut()"),
                 window.metaObject()->methodOffset());
        QVERIFY(window.toolBarArea(ui.mainToolBar) == Qt::TopToolBarArea &&
                ui.statusBar->isVisible());
        QCOMPARE(window.windowIcon().pixmap(48).toImage(), QImage("orioleMon.ico"));
        QVERIFY(ui.tableView->columnWidth(0) == 155 && ui.tableView->columnWidth(1) == 152);
        QCOMPARE(ui.tableView->selectionBehavior(), QAbstractItemView::SelectRows);
        QVERIFY(!ui.tableView->editTriggers());

        // The captions and their fields, from top to bottom.
        const QLabel* const captions[] = {ui.label_2, ui.label_1,  ui.label_3,
                                          ui.label_4, ui.label_10, ui.label_6};
        QWidget* const fields[] = {ui.PrinterStatus,  ui.PrinterType,  ui.PrinterCount,
                                   ui.CatridgetCount, ui.CompactCount, ui.DetailError};
        QString texts = window.windowTitle() + "|" + ui.RefreshPrinter->text();
        for (const int column : {0, 1})
            texts += "|" + window.m_pModel->headerData(column, Qt::Horizontal).toString();
        for (int i = 0; i < 6; ++i) {
            texts += "|" + captions[i]->text();
            QVERIFY(captions[i]->rect().contains(QRect(QPoint(), captions[i]->sizeHint())));
            QVERIFY(fields[i]->height() >= fields[i]->minimumSizeHint().height());
            QCOMPARE(fields[i]->geometry().right(), ui.tableView->geometry().right());
            QVERIFY(captions[i]->y() == fields[i]->y() && captions[i]->x() < fields[i]->x());
            QVERIFY(fields[i]->y() > (i ? fields[i - 1]->y() : ui.tableView->y()));
            QTest::keyClicks(fields[i], "typed");
        }
        QVERIFY(Same(texts, "状态监视器|刷新设备|打印机名称|打印端口|打印机状态：|打印机型号:|"
                            "机芯打印页数:|硒鼓打印页数 :|粉盒打印页数:|错误信息:"));
        QVERIFY(Same(desk.Shown(), kOffline));
        QRegion covered;
        for (const QWidget* widget : window.centralWidget()->findChildren<QWidget*>(
                 QString(), Qt::FindDirectChildrenOnly)) {
            QVERIFY(!covered.intersects(widget->geometry()));
            covered += widget->geometry();
        }
        QVERIFY(window.centralWidget()->rect().contains(covered.boundingRect()));
    }

    void linesBecomeRows()
    {
        static const Row kLists[] = {
            {R"(printf 'a b X: usb://x\na ORIOLE socket://1.2.3.4:9://5\n')", "ORIOLE>1.2.3.4|"},
            {"printf 'device for O_usb: socket://1.2.3.4:91/ORIOLE'", "O_usb>usb|"},
            {"printf 'device for ORIOLE: USB://socket\na b ORIOLE: SOCKET://1'",
             "ORIOLE>|ORIOLE>|"},
            {"printf 'device for socketORIOLE: ipp://1.2.3.4'", "socketORIOLE>1.2.3.4|"},
            {"printf 'device for ORIOLE: ipp://socket://1.2.3.4'", "ORIOLE>|"},
            {"printf 'device  for ORIOLE: usb://x'", "for>usb|"},
            {"printf 'a b OR:IO:LE ORIOLE: usb://x'", "ORIOLE>usb|"},
            {"printf '用于 ORIOLE:1 的设备：usb://x: y'", "ORIOLE:1>usb|"},
            {"printf 'ORIOLE'", ">|"},
            {R"(printf ' a ORIOLE\0\nb ORIOLE')", "a>|"},
            {"printf 'device for Oriole: usb://x'", ""},
            {"true", ""},
            {"seq -f 'x %g ORIOLE' 11", "1>|2>|3>|4>|5>|6>|7>|8>|9>|10>|"},
            {R"(printf '%1009s\nb ORIOLE_LONG_NAME' x)", "ORIOLE_LONG_>|"},
            {"echo a ORIOLE; head -c 1000000 /dev/zero || exit 1", "ORIOLE>|"},
            {"echo a ORIOLE; head -c 9000000 /dev/zero 2>/dev/null; true", "ORIOLE>|"},
            {"printf HE >type.dat; echo a ORIOLE; echo a HERON", "HERON>|"},
            {R"(printf 'HERON\0XX' >type.dat; echo a HERON)", "HERON>|"},
            {"printf 'X*' >type.dat; echo a b", "b>|>|"},
            {R"(printf 'HERON\n' >type.dat; echo a HERON)", ""},
            {R"(printf '%063d1x' 0 >type.dat; printf 'a b %063d2\na c %063d1' 0 0)", "c>|"},
            {"true >type.dat; echo a ORIOLE", "ORIOLE>|"},
        };
        for (const auto& [script, rows] : kLists) {
            const Desk desk(script);
            desk.window->m_pModel->setRowCount(0);
            desk.window->GetPrinterInfoByCommand(); // with the type.dat that the first one wrote
            QVERIFY(Same(script + (": " + desk.Rows()), script + (": " + QString(rows))));
            QCOMPARE(desk.window->m_nPortType, QString(rows).endsWith("usb|") ? 1 : 2);
            QCOMPARE(desk.DebugLines().contains("\"|"), QString(script).contains("type.dat"));
        }
    }

    void listsGrowShrinkAndFail()
    {
        const Desk desk; // whose first listing fails
        const MainWindow& window = *desk.window;
        QPushButton* refresh = window.ui->RefreshPrinter;
        QCOMPARE(window.m_nTimerId, 0);
        desk.SetLpstat(kUsb + kSocket);
        refresh->click();
        QVERIFY(Same(desk.Rows(), "ORIOLE>usb|ORIOLE_2F>127.0.0.31|"));
        desk.SetLpstat(kSocket);
        refresh->click();
        QCOMPARE(window.m_nPortType, 2);
        QVERIFY(Same(window.m_pModel->headerData(1, Qt::Horizontal).toString(), "打印端口"));
        QCOMPARE(window.ui->tableView->currentIndex().row(), 0);
        QCOMPARE(window.ui->tableView->receivers(SIGNAL(clicked(QModelIndex))), 1);
        QCOMPARE(refresh->receivers(SIGNAL(clicked())), 1);

        // A listing that fails leaves all but the status as it is; one without a match clears it.
        const QPointer<QTimer> timer(window.m_pTimer);
        const char* const kill = "grep -q lpstat /proc/$PPID/cmdline && kill -9 $PPID; exit 1";
        for (const QString script : {"exit 1", "echo a ORIOLE; exit 7", kill, "echo X"}) {
            desk.SetLpstat(script.toLatin1());
            desk.Fill("old");
            refresh->click();
            QVERIFY(Same(desk.Rows(), "ORIOLE_2F>127.0.0.31|"));
            QVERIFY(Same(desk.Shown(), timer ? "old|离线 |old|old|old|old" : kOffline));
            QCOMPARE(timer.isNull(), script == "echo X");
        }
    }

    void aListingBorrowsStandardOutput()
    {
        // The command has the descriptors that it would have without the monitor. Where there is no
        // room for those that the listing needs, it is not run.
        const Desk desk("ls -m /proc/$$/fd >>counts; echo a ORIOLE");
        const QString before = QFile::symLinkTarget("/proc/self/fd/1");
        QCOMPARE(system("./lpstat -v >plain"), 0);
        const int lowest = dup(STDOUT_FILENO);
        close(lowest);
        rlimit limit;
        getrlimit(RLIMIT_NOFILE, &limit);
        for (const int room : {0, 1, 2, 20}) {
            const rlimit tight = {rlim_t(lowest + room), limit.rlim_max};
            setrlimit(RLIMIT_NOFILE, &tight);
            desk.window->GetPrinterInfoByCommand();
        }
        setrlimit(RLIMIT_NOFILE, &limit);
        QVERIFY(Same(QFile::symLinkTarget("/proc/self/fd/1"), before));
        QCOMPARE(system("[ $(sort -u counts | wc -l)/$(wc -l <counts) = 1/3 ]"), 0);
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
            QTest::mouseClick(table.viewport(), Qt::LeftButton, {}, place);
            QVERIFY(!before && window.m_pTimer->timerId() == window.m_nTimerId);
            QVERIFY(Same(desk.Shown(), kOffline));
            shown +=
                window.m_strPrinterIp + QString::number(window.m_nPortType) + desk.DebugLines();
        }
        QVERIFY(Same(shown, "127.0.0.312\"127.0.0.31\"kept1127.0.0.312\"127.0.0.31\"kept1"));
    }

    void ticksComeEveryTwoSeconds()
    {
        const Desk desk(kSocket);
        QCOMPARE(desk.window->m_pTimer->timerType(), Qt::PreciseTimer);
        QCOMPARE(desk.window->m_pTimer->interval(), 2000);          // ms
        QTRY_VERIFY_WITH_TIMEOUT(desk.window->m_nSocket > 0, 4000); // the first opens the socket
        desk.window->m_nPortType = 0;
        desk.Fill("old");
        QTRY_VERIFY_WITH_TIMEOUT(desk.Shown() == kOffline, 4000);
    }

    void everyStateAndFaultHasItsTestAndText()
    {
        const Desk desk;
        QString shown; // for each state, each value of a flag, and each position of an array
        for (int code = 0; code < 256; ++code) {
            desk.window->SetPrinterState(static_cast<unsigned char>(code));
            shown += desk.window->ui->PrinterStatus->text();
        }
        for (int i = 0; i < 3 * 256; ++i)
            shown += Fault(desk, i % 256, QString("flag %1 %2").arg(i % 256).arg(i / 256));
        for (const int id : {6, 9, 10, 12, 25, 28}) {
            QString states;
            for (int position = 0; position < 20; ++position, states += " 2") // which mean nothing
                shown += Fault(desk, position, QString("array %1%2 1").arg(id).arg(states));
            shown += "\n";
        }
        const QString faults =
            "0MFP错误 1双面单元错误 3双面单元不存在 4墨粉盒不存在 5定影器不存在 7未知错误 "
            "14墨粉较少 15定影器寿命将尽 17主单元错误 18传送卷错误 19进纸器故障 26废粉仓已满 "
            "30硒鼓传感器故障 31墨粉盒故障 32硒鼓故障 33硒鼓寿命已尽 "
            "7未知错误 19进纸器故障 26废粉仓已满 30硒鼓传感器故障 32硒鼓故障 33硒鼓寿命已尽 "
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
            "0手动纸盒错误 1主纸盒错误 \n";
        QVERIFY(Same(shown, "未知状态热机中打印中错误空闲休眠作业取消中" +
                                QString("未知状态").repeated(249) + faults));
    }

    void everyErrorCodeHasItsText()
    {
        // With the codes next to those that have a text.
        static const Row kTexts[] = {
            {"200000", " 多重进纸失败 "},
            {"200001 200085", "自动选择纸盒缺纸  "},
            {"200003", "进纸失败  "},
            {"200004", " 温度自动调节 "},
            {"200005", "印后纸张不匹配 "},
            {"200031", "缺粉 "},
            {"200041", "硒鼓不存在 "},
            {"200043", "硒鼓寿命将尽  "},
            {"200045", "硒鼓单元正在清理 "},
            {"200046", "硒鼓单元被改变 "},
            {"200080", "手动纸盒缺纸 "},
            {"200081", "主纸盒缺纸 "},
            {"200090", "风扇错误  "},
            {"205101", "充电器线异常 "},
            {"500000", "打印机IP冲突 "},
            {"500001", "断网"},
            {"500002", "DHCP无响应 "},
            {"0 200030 200032 200036 200042 200044 200051 200054 200301 200302 200324 200335", ""},
            {"201600 201604 201605 201607 201613 201615 201616 201617 201618 201621 201622 201623",
             "定影器错误:%1 "},
            {"201610 201650 201651 201701 201702 201703 201704 201711 201712 201713 201714 201721 "
             "201722 201723 201724 201730 300100 300101 300102 300200 300201 300202 300203 302651",
             "运行错误:%1 "},
            {"205000 205001", "打印机故障:%1 "},
            {"1 200002 200300 200303 200323 200336 201603 201606 201614 201619 201620 201624 "
             "201649 "
             "201652 201700 201705 201710 201715 201720 201725 204999 205002 300099 300103 300199 "
             "300204 499999 500003 4294967295 200006 200040 200047 200082 200091 205100 205102",
             "其他错误:%1 "},
        };
        const Desk desk;
        for (const auto& [codes, text] : kTexts) {
            for (const QString& code : QString(codes).split(' ')) {
                unsigned char bytes[4];
                qToLittleEndian(code.toUInt(), bytes);
                QVERIFY(Same(code + ": " + desk.window->GetErrorCodeState(bytes, 1),
                             code + ": " + QString(text).replace("%1", code)));
            }
        }
    }

    void blocksAreReadInOrderAndWithinTheirEnd()
    {
        // Blocks, as console lines or as bytes, with "|" between them, and what is shown last.
        static const Row kBlocks[] = {
            {"flag 14; array 6 0 1; array 9 1 0 1; array 25 1 1; array 28 1 1; errors 12",
             "墨粉较少 手动纸盒卡纸 前盖打开 双面单元盖被打开 手动纸盒抬纸中 主纸盒抬纸中 "
             "手动纸盒错误 主纸盒错误 其他错误:12 "},
            {"errors 500001 500002 201600 0 7", "断网DHCP无响应 定影器错误:201600 其他错误:7 "},
            {"flag 14|000000000000", ""},
            {"000000000100 0E00030000000100 0000030000000100", "墨粉较少 "},
            {"000000000001 0E00030000000100 0E00030000000100", "墨粉较少 墨粉较少 "},
            {"000000000100 0E000300FF000100", "墨粉较少 "}, // a flag has no array
            {"000000000200 0900030003001600 0000030000000100 010001000000",
             "前盖打开 后盖打开 MFP错误 "},
            {"000000000200 0900030003001700 0000030000000100 010001000000", "MFP错误 "},
            {"000000000100 0900030003000000", ""},
            {"000000000100 2200040001000E00 21A10700", "断网"},
            {"000000000200 2200030001000E00 0E00040000000100", ""},
            {"array 28 1 1; array 10 1 1", "手动纸盒错误 主纸盒错误 手动纸盒打开 主纸盒打开 "},
            {"array 10 1 1|array 28 1 1; array 10 1 1", "手动纸盒打开 主纸盒打开 "},
            {"array 10 0 1|array 28 1 1", "手动纸盒错误 "},
            {"array 10 1|array 28 1 1", "主纸盒错误 "},
            {"array 10 1 1|array 28 1 1|array 28 1 1", "手动纸盒错误 主纸盒错误 "},
            {"array 10 1 1|array 10 1 1|array 28 1 1", ""},
            {"array 12 0 5; array 28 1 1", "主纸盒错误 "},
            {"000000000200 0A0003000200FF00 1C00030002001600 01000100", "手动纸盒错误 主纸盒错误 "},
        };
        const Desk other;
        for (const auto& [blocks, shown] : kBlocks) {
            const Desk desk;
            QString last;
            for (const QString& block : QString(blocks).split('|')) {
                for (int bytes = 0; bytes < 80; ++bytes)
                    Show(other, block, bytes); // does no harm
                last = Show(desk, block);
            }
            QVERIFY(Same(blocks + (": " + last), blocks + (": " + QString(shown))));
        }
        QVERIFY(Same(Show(other, "array 9 1" + QString(" 2").repeated(200)), "前盖打开 "));
    }

    void usbPrintersAreOpenedThenReadAndComeBackWhenTheyFail()
    {
        // The request that fails, or is answered without a byte; or what happens to the printer.
        static const Row kFaults[] = {
            {"17", "old|打印中|123456|2|-1|墨粉较少 "},
            {"51", "ORIOLE|打印中|old|old|old|墨粉较少 "},
            {"68", "ORIOLE|old|123456|2|-1|墨粉较少 "},
            {"0", "|离线 ||||"},
            {"off", "|离线 ||||"},
            {"hangs", "|离线 ||||"},
        };
        for (const auto& [fault, shown] : kFaults) {
            for (const QByteArray& without : {QByteArray(), QByteArray("")}) {
                const bool asked = isdigit(*fault); // and not what happens to the printer
                if (!asked && without.isNull())
                    continue;
                PrinterDesk desk(kUsbPrinter);
                desk.Fill("old");
                desk.Tick();
                desk.spoil = [&, number = fault](const QByteArray& request, QByteArray& answer) {
                    if (QByteArray::number(request[1]) == number)
                        answer = without;
                };
                const bool off = *fault == 'o';
                Run(desk.console, off ? "off" : "on");
                desk.printer.hangs = *fault == 'h';
                QElapsedTimer tick;
                tick.start();
                desk.Tick();
                QCOMPARE(tick.elapsed() >= 4000, desk.printer.hangs); // ms; four requests of 1 s
                QVERIFY(Same(desk.Shown(), shown));
                const QString lines = desk.DebugLines();
                QCOMPARE(lines.endsWith("-9"), *fault == '0' && without.isNull());
                QCOMPARE(lines.count('"'), QByteArray("17 68 0").contains(fault) ? 2 : 0);
                desk.Fill("new");
                desk.Tick();
                QVERIFY(Same(desk.Shown(), off ? kOffline : "new|new|new|new|new|new"));
                QVERIFY(Same(desk.DebugLines(), off ? "open device failed" : ""));
                Run(desk.console, "on");
                desk.printer.hangs = false;
                desk.spoil = [](const QByteArray&, QByteArray&) {};
                desk.Tick(off ? 2 : 1);
                QVERIFY(Same(desk.Shown() + desk.DebugLines(),
                             kShown + "c11100000000f401|c13300000000f401|\"123456\"|"
                                      "c14400000000f401|c10000000000f401|nRecvLen:14"));
            }
        }
    }

    void anOpenUsbPrinterIsClosedWhenItIsLeft()
    {
        // By a listing, by ticks for no printer and for another one, and by the window's end.
        for (const int portType : {-1, 0, 2, 3, 1}) {
            PrinterDesk desk(kUsbPrinter);
            const int descriptors = OpenDescriptors();
            desk.Tick();
            desk.window->GetSelectPrinterInfo(); // leaves it open
            desk.window->m_pTimer->stop();
            QVERIFY(OpenDescriptors() > descriptors);
            desk.window->m_nPortType = portType;
            if (portType == 1)
                desk.window.reset();
            else if (portType == -1)
                desk.window->GetPrinterInfoByCommand();
            else
                desk.Tick();
            QTRY_COMPARE(OpenDescriptors(), descriptors);
            QVERIFY(!desk.DebugLines().contains("c1")); // it was not asked
        }
    }

    void usbAnswersAreReadOnWithTheOnesBefore()
    {
        // Behind a last answer of one byte stand the counters and, from byte 12 on, the name: a
        // block whose second entry, at byte 14, says "toner low", and whose third one is all zeros.
        PrinterDesk desk(kUsbPrinter, QByteArray("NNNNNNNNNNNN\0\0\x0E\0\3N\1N\1N", 22));
        Run(desk.console, "flag 0; flag 17");
        desk.Tick(2);
        Run(desk.console, "counters 1 2 3");
        desk.spoil = [](const QByteArray& request, QByteArray& answer) {
            answer.truncate(request[1] == 51 ? 12 : request[1] == 0 ? 1 : 99);
        };
        desk.Tick(2);
        QVERIFY(Same(desk.Shown().section('|', 2), "1|2|3584|墨粉较少 "));
        desk.spoil = [](const QByteArray&, QByteArray& answer) { answer.truncate(1); };
        desk.Tick(2);
        QVERIFY(Same(desk.Shown(), "N|打印中|0|0|0|"));
    }

    void networkFromTheFirstTickToLiveValues()
    {
        PrinterDesk desk(kAddress);
        const int socket = desk.window->m_nSocket;
        desk.Fill("old");
        desk.Tick();
        QVERIFY(Same(desk.Shown() + desk.DebugLines(),
                     kOffline + "send name\n|c1000501c7|recvfrom name\n"));
        desk.Tick();
        QVERIFY(Same(
            desk.Shown() + desk.DebugLines(),
            kShown + "ORIOLE|send status\n|c1000b144f52494f4c45aa|recvfrom Status\n|"
                     "send PageNumber\n|c1000b134f52494f4c45a9|recvfrom PageNumber\n|"
                     "sleep 1|c1000b124f52494f4c45a8|send DetailError\n|recvfrom detailError\n"));
        // The socket stays open for the next printer, until the next listing.
        desk.window->GetSelectPrinterInfo();
        desk.window->m_strPrinterIp = kAddress; // there was no row to select
        QCOMPARE(desk.window->m_nSocket, socket);
        desk.window->GetPrinterInfoByCommand();
        desk.DebugLines();
        QCOMPARE(fcntl(socket, F_GETFL), -1);
        desk.Tick();
        QVERIFY(Same(desk.Shown() + desk.DebugLines(), kOffline));
        desk.Tick();
        QVERIFY(Same(desk.Shown(), kShown));
        desk.window.reset();
        QCOMPARE(fcntl(socket, F_GETFL), -1); // the same number again
    }

    void theChainStopsAtTheFirstQueryThatFails()
    {
        // What is wrong with an answer: that byte, or that it has less than 4 bytes.
        for (const int fault : {0, 3, 4, 10, 13}) {
            for (int query = 1; query <= 4; ++query) { // the first one asks for the name
                PrinterDesk desk(kAddress);
                int requests = 0;
                desk.spoil = [&](const QByteArray&, QByteArray& answer) {
                    if (++requests == query && fault < 10)
                        answer[fault] = query == 1 ? 0 : 2;
                    else if (requests == query)
                        answer.truncate(fault - 10);
                };
                desk.Tick(query == 1 ? 1 : 2);
                QCOMPARE(requests, query);
                QCOMPARE(desk.DebugLines().count("recvfrom"), query == 1 ? fault == 4 : query - 1);
                QVERIFY(Same(desk.Shown(), kOffline));
                desk.Tick(query == 1 ? 2 : 1);
                QVERIFY(Same(desk.Shown(), kShown));
            }
        }
    }

    void waitsEndWhenTheSecondsCountChanges()
    {
        PrinterDesk desk(kAddress);
        MainWindow& window = *desk.window;
        window.m_strPrinterIp = "printer.local"; // nothing can be sent, nothing waits
        QCOMPARE(window.GetPrinterDetailError_net(), -1);
        QVERIFY(Same(desk.DebugLines(), ""));
        window.m_strPrinterIp = kAddress;
        Run(desk.console, "off");
        for (const int step : {1, -1}) { // also when the clock is set back
            playedClock.step = step;
            playedClock.now = 1000;
            QCOMPARE(window.GetPrinterType_net(window.m_szModelName), -1);
            QCOMPARE(window.GetPrinterStatus_net(), -1);
            QCOMPARE(window.GetPrinterPageNumber_net(), -1);
            QCOMPARE(playedClock.now, 1000 + 6 * step); // at the start and the end of three waits
        }
        playedClock.step = 0; // the last query has waited enough when it has slept
        QCOMPARE(window.GetPrinterDetailError_net(), -1);
        // An answer that ends behind the result byte tells a state of 0.
        Run(desk.console, "on");
        qstrcpy(window.m_szModelName, "ORIOLE");
        desk.spoil = [](const QByteArray&, QByteArray& answer) { answer.truncate(5); };
        QCOMPARE(window.GetPrinterStatus_net(), 1);
        QVERIFY(Same(window.ui->PrinterStatus->text(), "未知状态"));
        // The first answer that is there counts, be it from somebody else, but no empty one.
        sockaddr self = {};
        socklen_t size = sizeof self;
        getsockname(window.m_nSocket, &self, &size);
        for (const QByteArray& answer : {QByteArray("\xC2\0\7\x14\1\2", 6), QByteArray("")}) {
            sendto(window.m_nSocket, answer.data(), size_t(answer.size()), 0, &self, size);
            QCOMPARE(window.GetPrinterStatus_net(), 1);
            QCOMPARE(window.ui->PrinterStatus->text() == "打印中", !answer.isEmpty());
        }
    }

    void modelNamesAreCutToTheirBufferAndToTheRequest()
    {
        for (const int size : {1, 59, 60, 62, 63, 64, 250}) {
            const QByteArray name(qMin(size, 63), 'N');
            for (const char* const printer : {kUsbPrinter, kAddress}) {
                PrinterDesk desk(printer, QByteArray(size, 'N'));
                const char unused = printer == kUsbPrinter ? '#' : 0;
                memset(desk.window->m_szModelName, unused, 63);
                desk.Tick(2);
                QVERIFY(Same(desk.Shown(), QString(kShown).replace("ORIOLE", name)));
                QCOMPARE(desk.window->m_szModelName[2], size > 1 ? 'N' : unused);
            }
            PrinterDesk desk(kAddress, QByteArray(size, 'N'));
            QByteArray buffer = QByteArray(63, '\0') + "##"; // only a name that is cut is ended
            QCOMPARE(desk.window->GetPrinterType_net(buffer.data()), 1);
            QCOMPARE(buffer, name.leftJustified(63, '\0') + (size > 63 ? '\0' : '#') + "#");
            for (const char length : {4, 5}) { // shorter than any frame; without a name
                desk.spoil = [=](const QByteArray&, QByteArray& answer) { answer[2] = length; };
                QCOMPARE(desk.window->GetPrinterType_net(buffer.data()), length == 4 ? -1 : 1);
                QCOMPARE(desk.DebugLines().count("recvfrom"), 1); // first, that of the name
            }
        }
    }

    void hardwareStatesReachToTheEndOfTheAnswer()
    {
        // 60 error codes that end with the block of 495 bytes, and 61 that end a byte behind it.
        for (const char* end : {"3C00FF00", "3D00FC00"}) {
            PrinterDesk desk(kAddress);
            desk.spoil = [=](const QByteArray&, QByteArray& answer) {
                answer = "C20000120100000000010022000400" + QByteArray(end).leftJustified(962, '0');
                answer = QByteArray::fromHex(answer + "21A10700");
            };
            QCOMPARE(desk.window->GetPrinterDetailError_net(), 1);
            QVERIFY(Same(desk.window->ui->DetailError->toPlainText(), end[1] == 'C' ? "断网" : ""));
        }
    }
};

QTEST_MAIN(MonitorTest)
#include "tst_monitor.moc"
