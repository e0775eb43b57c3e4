// SPDX-FileCopyrightText: The oriole-monitor authors
// SPDX-License-Identifier: MIT

#include "support.h"

namespace
{
typedef QVector<QByteArray> Blocks;

/// A status entry.
QByteArray Entry(int id, int value, int count = 0, int type = 3)
{
    const char bytes[] = {char(id), 'x', char(type), 'x', char(count), 'x', char(value), 'x'};
    return QByteArray(bytes, sizeof bytes);
}

/// A block of some entries; the arrays begin right behind them.
QByteArray Block(const QVector<QByteArray>& entries, const QByteArray& arrays = QByteArray())
{
    QByteArray block("xxxx");
    block += char(entries.size());
    block += '\0';
    for (const QByteArray& entry : entries)
        block += entry;
    return block + arrays;
}

/// Elements of 2 bytes with these states.
QByteArray States(const QVector<int>& states)
{
    QByteArray bytes;
    for (const int state : states)
        bytes += QByteArray(1, char(state)) + "\x01";
    return bytes;
}

QByteArray Codes(const QVector<quint32>& codes)
{
    QByteArray bytes(codes.size() * 4, 0);
    for (int i = 0; i < codes.size(); ++i)
        qToLittleEndian(codes[i], reinterpret_cast<uchar*>(bytes.data()) + 4 * i);
    return bytes;
}

/// What the error box shows for a block in a buffer of exactly its size.
QString Parse(Desk& desk, const QByteArray& block)
{
    std::vector<unsigned char> exact(block.begin(), block.end());
    exact.shrink_to_fit();
    desk.window->ParseHardwareState(exact.data(), int(exact.size()));
    return desk.window->ui->DetailError->toPlainText();
}

const int kFirstArray = 14; // where the array of a block with one entry begins
} // namespace

Q_DECLARE_METATYPE(Blocks)

class DecodersTest : public QObject
{
    Q_OBJECT

private slots:
    void everyStateHasItsText()
    {
        Desk desk;
        const QStringList known = {"热机中", "打印中", "错误", "空闲", "休眠", "作业取消中"};
        for (int code = 0; code < 256; ++code) {
            desk.window->SetPrinterState(static_cast<unsigned char>(code));
            QCOMPARE(desk.window->ui->PrinterStatus->text(), known.value(code - 1, "未知状态"));
        }
    }

    void everyIdentifierHasItsTestAndText()
    {
        Desk desk;
        QString ones;
        QString twos;
        QString wrongTypes;
        for (int id = 0; id < 256; ++id) {
            if (id == 34)
                continue;
            ones += Parse(desk, Block({Entry(id, 1)}));
            twos += Parse(desk, Block({Entry(id, 2)}));
            wrongTypes += Parse(desk, Block({Entry(id, 1, 0, 4)}));
        }
        QCOMPARE(ones,
                 QString("MFP错误 双面单元错误 双面单元不存在 墨粉盒不存在 定影器不存在 未知错误 "
                         "墨粉较少 定影器寿命将尽 主单元错误 传送卷错误 进纸器故障 废粉仓已满 "
                         "硒鼓传感器故障 墨粉盒故障 硒鼓故障 硒鼓寿命已尽 "));
        QCOMPARE(twos,
                 QString("未知错误 进纸器故障 废粉仓已满 硒鼓传感器故障 硒鼓故障 硒鼓寿命已尽 "));
        QCOMPARE(wrongTypes, QString());
    }

    void everyArrayElementHasItsText_data()
    {
        Columns<int, QString>({"id", "texts"});
        QTest::newRow("jam")
            << 6
            << "手动纸盒卡纸 主纸盒卡纸 卡纸在Main Feed Sensor "
               "卡纸在Main Feed Sensor和Spare Sensor之间 卡纸在Spare sensor "
               "卡纸在Spare sensor与Registration sensor之间 卡纸在Registration sensor "
               "卡纸在Registration sensor及Fuser out sensor之间 卡纸在Fuser out sensor "
               "卡纸在Fuser out sensor及Exit sensor之间 卡纸在Exit sensor "
               "卡纸在Exit sensor及Duplex sensor之间 卡纸在Duplex sensor "
               "卡纸在Duplex sensor及Spare sensor之间 ";
        QTest::newRow("cover") << 9 << "前盖打开 后盖打开 双面单元盖被打开 ";
        QTest::newRow("tray open") << 10 << "手动纸盒打开 主纸盒打开 ";
        QTest::newRow("paper quantity") << 12 << "";
        QTest::newRow("tray lifting") << 25 << "手动纸盒抬纸中 主纸盒抬纸中 ";
        QTest::newRow("tray error") << 28 << "手动纸盒错误 主纸盒错误 ";
    }

    void everyArrayElementHasItsText()
    {
        QFETCH(int, id);
        Desk desk;
        QString oneByOne;
        for (int element = 0; element < 20; ++element) {
            QVector<int> states(20, 2);
            states[element] = 1;
            oneByOne += Parse(desk, Block({Entry(id, kFirstArray, 20)}, States(states)));
        }
        QTEST(oneByOne, "texts");
        const QByteArray all = States(QVector<int>(20, 1));
        QTEST(Parse(desk, Block({Entry(id, kFirstArray, 20)}, all)), "texts");
        QCOMPARE(Parse(desk, Block({Entry(id, kFirstArray, 20, 4), Entry(id, 0, 20)}, all)), "");
    }

    void everyErrorCodeHasItsText()
    {
        Desk desk;
        QString fixed;
        QMap<QString, QString> ranges; // by heading: the codes at which it begins
        QString previous = "none";
        for (quint32 code = 0; code <= 500010; ++code) {
            if (code == 10 || code == 205200 || code == 303000)
                code = code == 10 ? 199990 : code == 205200 ? 300000 : 499990; // no code between
            QByteArray bytes = Codes({code});
            const QString text =
                desk.window->GetErrorCodeState(reinterpret_cast<uchar*>(bytes.data()), 1);
            const QString number = QString::number(code) + " ";
            const bool isFixed = !text.isEmpty() && !text.endsWith(":" + number);
            const QString heading = isFixed ? "fixed" : text.left(text.indexOf(':') + 1);
            if (isFixed)
                fixed += text;
            if (heading != previous)
                ranges[heading] += number;
            previous = heading;
        }
        QCOMPARE(fixed,
                 QString(" 多重进纸失败 自动选择纸盒缺纸  进纸失败   温度自动调节 "
                         "印后纸张不匹配 缺粉 硒鼓不存在 硒鼓寿命将尽  硒鼓单元正在清理 "
                         "硒鼓单元被改变 手动纸盒缺纸 主纸盒缺纸 自动选择纸盒缺纸  风扇错误  "
                         "充电器线异常 打印机IP冲突 断网DHCP无响应 "));
        QCOMPARE(ranges["fixed"], QString("200000 200003 200031 200041 200043 200045 200080 200085 "
                                          "200090 205101 500000 "));
        QCOMPARE(ranges[""], QString("0 200030 200032 200036 200042 200044 200051 200054 200301 "
                                     "200324 "));
        QCOMPARE(ranges["定影器错误:"], QString("201600 201604 201607 201613 201615 201621 "));
        QCOMPARE(ranges["运行错误:"],
                 QString("201610 201650 201701 201711 201721 201730 300100 300200 302651 "));
        QCOMPARE(ranges["打印机故障:"], QString("205000 "));
        QCOMPARE(ranges["其他错误:"],
                 QString("1 200002 200006 200033 200037 200047 200052 200055 200082 200086 200091 "
                         "200303 200336 201601 201606 201608 201611 201614 201619 201624 201652 "
                         "201705 201715 201725 201731 205002 205102 300103 300204 302652 500003 "));
    }

    void blocksAreReadInTheirOrderAndNotBeyondTheirEnd_data()
    {
        Columns<QByteArray, QString>({"block", "shown"});
        const QByteArray toner = Entry(14, 1);
        const QByteArray mfp = Entry(0, 1);
        const QByteArray covers = States({1, 1, 1});
        const QByteArray cover = Block({Entry(9, 22, 3), mfp}, covers);
        const QVector<quint32> codes = {500001, 500002, 201600, 0, 12, 12, 0x80000000, 0xFFFFFFFF};
        const QByteArray errors = Block({Entry(34, kFirstArray, 8, 4)}, Codes(codes));
        QTest::newRow("in order") << Block({toner, mfp, toner}) << "墨粉较少 MFP错误 墨粉较少 ";
        QTest::newRow("no entries") << Block({}) << "";
        QTest::newRow("empty buffer") << QByteArray() << "";
        QTest::newRow("half a count") << QByteArray(5, 1) << "";
        QTest::newRow("count 256") << Block({toner}).replace(4, 2, "\0\1", 2) << "墨粉较少 ";
        QTest::newRow("cut entry") << Block({toner, mfp}).left(21) << "墨粉较少 ";
        QTest::newRow("array to the end") << cover << "前盖打开 后盖打开 双面单元盖被打开 MFP错误 ";
        QTest::newRow("array cut") << cover.left(27) << "MFP错误 ";
        QTest::newRow("array behind the end") << Block({Entry(6, 255, 255), mfp}) << "MFP错误 ";
        QTest::newRow("codes to the end")
            << errors
            << "断网DHCP无响应 定影器错误:201600 其他错误:12 其他错误:12 "
               "其他错误:2147483648 其他错误:4294967295 ";
        QTest::newRow("codes cut") << errors.left(errors.size() - 1) << "";
        QTest::newRow("codes of type 3") << Block({Entry(34, 14, 1)}, Codes({200031})) << "";
    }

    void blocksAreReadInTheirOrderAndNotBeyondTheirEnd()
    {
        QFETCH(QByteArray, block);
        Desk desk;
        QTEST(Parse(desk, block), "shown");
    }

    void trayFlagsLastThroughTheNextBlock_data()
    {
        Columns<Blocks, QString>({"blocks", "lastShown"});
        const QByteArray error = Entry(28, 22, 2); // 22: behind two entries
        const QByteArray ones = States({1, 1});
        const QByteArray errors = Block({error, Entry(99, 0)}, ones);
        const QByteArray open = Block({Entry(10, 22, 2), error}, ones);
        const QByteArray openAfter = Block({error, Entry(10, 22, 2)}, ones);
        const QByteArray empty = Block({Entry(12, 22, 2), Entry(28, 26, 2)}, States({0, 5, 1, 1}));
        const QByteArray cut = Block({Entry(10, 255, 2), error}, ones);
        const QString both = "手动纸盒错误 主纸盒错误 ";
        QTest::newRow("same block") << Blocks{open} << "手动纸盒打开 主纸盒打开 ";
        QTest::newRow("entry before") << Blocks{openAfter} << both + "手动纸盒打开 主纸盒打开 ";
        QTest::newRow("second time") << Blocks{openAfter, openAfter} << "手动纸盒打开 主纸盒打开 ";
        QTest::newRow("next block") << Blocks{open, errors} << "";
        QTest::newRow("the one after") << Blocks{open, errors, errors} << both;
        QTest::newRow("nothing between") << Blocks{open, Block({}), errors} << both;
        QTest::newRow("reported again") << Blocks{open, open, errors} << "";
        QTest::newRow("one tray empty") << Blocks{empty} << "主纸盒错误 ";
        QTest::newRow("array cut off") << Blocks{cut} << both;
    }

    void trayFlagsLastThroughTheNextBlock()
    {
        QFETCH(Blocks, blocks);
        Desk desk;
        QString shown;
        for (const QByteArray& block : blocks)
            shown = Parse(desk, block);
        QTEST(shown, "lastShown");
    }
};

QTEST_MAIN(DecodersTest)
#include "tst_decoders.moc"
