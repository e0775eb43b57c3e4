// SPDX-License-Identifier: MIT

// The texts of printer states, and of the hardware state blocks of a simulated printer.

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

    /// What is shown of a block that stands in a buffer of exactly its size.
    QString Shown(const QByteArray& block) const
    {
        std::vector<unsigned char> buffer(block.begin(), block.end());
        m_desk->window->ParseHardwareState(buffer.data(), static_cast<int>(buffer.size()));
        return m_desk->window->ui->DetailError->toPlainText();
    }

private slots:
    void init() { m_desk.reset(new Desk); }

    void aStateIsKnownFromOneToSix()
    {
        QString texts;
        for (const unsigned char code : {0, 1, 6, 7}) {
            m_desk->window->SetPrinterState(code);
            texts += m_desk->window->ui->PrinterStatus->text() + "|";
        }
        COMPARE_TEXTS(texts, "未知状态|热机中|作业取消中|未知状态|");
    }

    void aBlockBecomesATextInItsOrder_data()
    {
        QTest::addColumn<QByteArray>("block");
        QTest::addColumn<QString>("text");
        const auto row = [](const char* name, const QByteArray& block, const char* text) {
            QTest::newRow(name) << block << text;
        };
        row("0 in flags, active at 1 or unless 0", Block("flag 14 0; flag 33 0"), "");
        row("2 in a flag, active at 1", Block("flag 14 2"), "");
        row("unknown entries", Block("flag 2; flag 35; flag 4"), "墨粉盒不存在 ");
        row("error codes of another type", Block("array 34 1; array 9 1"), "前盖打开 ");
        row("a flag of another type", QByteArray::fromHex("0000000001000e00040000000100"), "");
        row("faults raised again and cleared",
            Block("flag 14; array 9 1; flag 4; flag 14; clear 4; flag 33"),
            "前盖打开 墨粉较少 硒鼓寿命已尽 ");
        row("covers", Block("array 9 1 2 1 1"), "前盖打开 双面单元盖被打开 ");
        row("trays that lift paper", Block("array 25 1 1 1"), "手动纸盒抬纸中 主纸盒抬纸中 ");
        row("the last jam", Block("array 6 0 0 0 0 0 0 0 0 0 0 0 0 0 0 1 1"),
            "卡纸在Duplex sensor及Spare sensor之间 ");
        row("silent codes", Block("errors 200302 0 200303"), "其他错误:200303 ");
        row("a code of 2^31", Block("errors 2147483648"), "其他错误:2147483648 ");
        row("a cut head", Block("clear").chopped(1), "");
        row("a cut entry", Block("flag 4; flag 14").chopped(1), "墨粉盒不存在 ");
        row("a cut array", Block("array 9 1 1; flag 4").chopped(1), "墨粉盒不存在 ");
        row("256 entries", QByteArray::fromHex("0000000000010e00030000000100"), "墨粉较少 ");
        row("an entry too many", Block("flag 14; flag 4").replace(4, 1, "\1"), "墨粉较少 ");
        row("no array", QByteArray::fromHex("0100000001000900030001000000"), "");
        row("an open tray", Block("array 10 0 1; array 28 1 1"), "主纸盒打开 手动纸盒错误 ");
        row("an empty tray", Block("array 12 1 0; array 28 1 1"), "手动纸盒错误 ");
    }
    void aBlockBecomesATextInItsOrder()
    {
        QFETCH(QByteArray, block);
        QFETCH(QString, text);
        COMPARE_TEXTS(Shown(block), text);
    }

    void aReportOnATrayCountsThroughTheNextBlock()
    {
        const QByteArray errors = Block("array 28 1 1");
        COMPARE_TEXTS(Shown(Block("array 28 1 1; array 12 0 0")), "手动纸盒错误 主纸盒错误 ");
        COMPARE_TEXTS(Shown(Block("array 28 1 1; array 12 1 0")), "");
        COMPARE_TEXTS(Shown(errors), "手动纸盒错误 ");
        COMPARE_TEXTS(Shown(errors), "手动纸盒错误 主纸盒错误 ");
        COMPARE_TEXTS(Shown(Block("array 10 1; array 28 1 1")), "手动纸盒打开 主纸盒错误 ");
        COMPARE_TEXTS(Shown(Block("clear")), "");
    }

private:
    QScopedPointer<Desk> m_desk;
};

QTEST_MAIN(StatusDecodersTest)
#include "tst_statusdecoders.moc"
