// SPDX-License-Identifier: MIT

// The texts of printer states, and of what a hardware state block reports. The blocks are those of
// a simulated printer.

#include "desk.h"
#include "simulator.h"

namespace
{

/// The block of a printer for which commands are typed, with ";" between them.
QByteArray Block(const QString& commands)
{
    Simulator simulator({kAddress});
    for (const QString& command : commands.split(';'))
        simulator.Run(command);
    return simulator.FirstPrinter().HardwareState();
}

} // namespace

class StatusDecodersTest : public QObject
{
    Q_OBJECT

    /// Shows a block that stands in a buffer of exactly its size.
    Text Show(const QByteArray& block) const
    {
        std::vector<unsigned char> buffer(block.begin(), block.end());
        m_desk->window->ParseHardwareState(buffer.data(), static_cast<int>(buffer.size()));
        return m_desk->window->ui->DetailError->toPlainText();
    }
    Text ShowBlock(const QString& commands) const { return Show(Block(commands)); }

    Text ShowState(int code) const
    {
        m_desk->window->SetPrinterState(static_cast<unsigned char>(code));
        return m_desk->window->ui->PrinterStatus->text();
    }

private slots:
    void init() { m_desk.reset(new Desk); }

    void aStateIsKnownFromOneToSix()
    {
        QCOMPARE(ShowState(0), Text("未知状态"));
        QCOMPARE(ShowState(1), Text("热机中"));
        QCOMPARE(ShowState(6), Text("作业取消中"));
        QCOMPARE(ShowState(7), Text("未知状态"));
    }

    void aFlagIsActiveAtOneOrAtAllButZero()
    {
        QCOMPARE(ShowBlock("flag 14 0"), Text(""));
        QCOMPARE(ShowBlock("flag 14 1"), Text("墨粉较少 "));
        QCOMPARE(ShowBlock("flag 14 2"), Text(""));
        QCOMPARE(ShowBlock("flag 33 0"), Text(""));
        QCOMPARE(ShowBlock("flag 33 255"), Text("硒鼓寿命已尽 "));
    }

    void anUnknownEntryIsSkipped()
    {
        // 2 and 35 are not known, 34 is of another type.
        QCOMPARE(ShowBlock("flag 2; flag 35; array 34 1 1; array 9 0 0"), Text(""));
    }

    void anElementIsActiveAtOne()
    {
        QCOMPARE(ShowBlock("array 9 1 2 1 1"), Text("前盖打开 双面单元盖被打开 "));
        QCOMPARE(ShowBlock("array 25 1 1 1"), Text("手动纸盒抬纸中 主纸盒抬纸中 "));
        QCOMPARE(ShowBlock("array 6 1 1 0 1"), Text("手动纸盒卡纸 卡纸在Main Feed Sensor "));
        QCOMPARE(ShowBlock("array 6 0 0 0 0 0 0 0 0 0 0 0 0 0 0 1 1"),
                 Text("卡纸在Duplex sensor及Spare sensor之间 "));
    }

    void anErrorCodeHasATextOrAGroupOrIsSilent()
    {
        QCOMPARE(ShowBlock("errors 200000"), Text(" 多重进纸失败 "));
        QCOMPARE(ShowBlock("errors 500001 500002 500001"), Text("断网DHCP无响应 断网"));
        QCOMPARE(ShowBlock("errors 200302 0 200303"), Text("其他错误:200303 "));
        QCOMPARE(ShowBlock("errors 201618 201619"), Text("定影器错误:201618 其他错误:201619 "));
        QCOMPARE(ShowBlock("errors 205000"), Text("打印机故障:205000 "));
        QCOMPARE(ShowBlock("errors 2147483648"), Text("其他错误:2147483648 "));
    }

    void entriesAreShownInTheirOrderAndAnew()
    {
        QCOMPARE(ShowBlock("flag 14; array 9 1; flag 4"), Text("墨粉较少 前盖打开 墨粉盒不存在 "));
        QCOMPARE(ShowBlock("clear"), Text(""));
    }

    void whatIsNotWhollyInsideABlockIsAbsent()
    {
        QCOMPARE(Show(Block("clear").chopped(1)), Text(""));
        QCOMPARE(Show(Block("flag 4; flag 14").chopped(1)), Text("墨粉盒不存在 "));
        QCOMPARE(Show(Block("array 9 1 1")), Text("前盖打开 后盖打开 "));
        QCOMPARE(Show(Block("array 9 1 1").chopped(1)), Text(""));
    }

    void anOpenOrEmptyTrayHasNoError()
    {
        QCOMPARE(ShowBlock("array 10 0 1; array 28 1 1"), Text("主纸盒打开 手动纸盒错误 "));
        QCOMPARE(ShowBlock("clear"), Text("")); // forgets it
        QCOMPARE(ShowBlock("array 12 0 1; array 28 1 1"), Text("主纸盒错误 "));
        QCOMPARE(ShowBlock("clear"), Text(""));
        QCOMPARE(ShowBlock("array 10 1; array 12 1 1; array 28 1 1"),
                 Text("手动纸盒打开 主纸盒错误 "));
    }

    void aReportOnATrayCountsThroughTheNextBlock()
    {
        QCOMPARE(ShowBlock("array 28 1 1; array 12 0 0"), Text("手动纸盒错误 主纸盒错误 "));
        QCOMPARE(ShowBlock("array 28 1 1; array 12 0 0"), Text(""));
        QCOMPARE(ShowBlock("array 28 1 1"), Text(""));
        QCOMPARE(ShowBlock("array 28 1 1"), Text("手动纸盒错误 主纸盒错误 "));
    }

private:
    QScopedPointer<Desk> m_desk;
};

QTEST_MAIN(StatusDecodersTest)
#include "tst_statusdecoders.moc"
