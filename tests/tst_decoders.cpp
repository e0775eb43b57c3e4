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
        QTest::addColumn<int>("id");
        QTest::addColumn<QString>("texts");
        QTest::newRow("jam")
            << 6
            << "手动纸盒卡纸 主纸盒卡纸 卡纸在Main Feed Sensor 卡纸在Main Feed Sensor和Spare "
               "Sensor之间 "
               "卡纸在Spare sensor 卡纸在Spare sensor与Registration sensor之间 "
               "卡纸在Registration sensor 卡纸在Registration sensor及Fuser out sensor之间 "
               "卡纸在Fuser out sensor 卡纸在Fuser out sensor及Exit sensor之间 卡纸在Exit sensor "
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
        QFETCH(QString, texts);
        Desk desk;
        QString oneByOne;
        for (int element = 0; element < 20; ++element) {
            QVector<int> states(20, 2); // active is 1, and for the paper quantity 0
            states[element] = 1;
            oneByOne += Parse(desk, Block({Entry(id, kFirstArray, 20)}, States(states)));
        }
        QCOMPARE(oneByOne, texts);
        const QByteArray all = States(QVector<int>(20, 1));
        QCOMPARE(Parse(desk, Block({Entry(id, kFirstArray, 20)}, all)), texts);
        QCOMPARE(Parse(desk, Block({Entry(id, kFirstArray, 20, 4)}, all)), QString());
        QCOMPARE(Parse(desk, Block({Entry(id, 0, 20)}, all)), QString());
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

    void errorCodesAreJoinedAsTheyStand()
    {
        Desk desk;
        const QVector<quint32> codes = {500001, 500002, 201600, 0, 12, 12, 0x80000000, 0xFFFFFFFF};
        QCOMPARE(Parse(desk, Block({Entry(34, kFirstArray, codes.size(), 4)}, Codes(codes))),
                 QString("断网DHCP无响应 定影器错误:201600 其他错误:12 其他错误:12 "
                         "其他错误:2147483648 其他错误:4294967295 "));
    }

    void blocksAreReadInTheirOrderAndNotBeyondTheirEnd_data()
    {
        QTest::addColumn<QByteArray>("block");
        QTest::addColumn<QString>("shown");
        const QByteArray toner = Entry(14, 1);
        const QByteArray mfp = Entry(0, 1);
        QByteArray count = Block({toner, mfp});
        QTest::newRow("block order, twice")
            << Block({toner, mfp, toner}) << "墨粉较少 MFP错误 墨粉较少 ";
        QTest::newRow("no entries") << Block({}) << "";
        QTest::newRow("empty buffer") << QByteArray() << "";
        QTest::newRow("no whole count") << QByteArray(5, 1) << "";
        QTest::newRow("high byte of the count")
            << count.replace(4, 2, "\x00\x01", 2) << "墨粉较少 MFP错误 ";
        QTest::newRow("cut entry ends the walk") << Block({toner, mfp}).left(21) << "墨粉较少 ";
        const QByteArray cover = States({1, 1, 1});
        QTest::newRow("array to the end") << Block({Entry(9, 22, 3), mfp}, cover)
                                          << "前盖打开 后盖打开 双面单元盖被打开 MFP错误 ";
        QTest::newRow("array one byte short")
            << Block({Entry(9, 22, 3), mfp}, cover).left(27) << "MFP错误 ";
        QTest::newRow("array behind the end") << Block({Entry(6, 255, 255), mfp}) << "MFP错误 ";
        QTest::newRow("codes to the end")
            << Block({Entry(34, 14, 2, 4)}, Codes({200031, 200031})) << "缺粉 缺粉 ";
        QTest::newRow("codes one byte short")
            << Block({Entry(34, 14, 2, 4)}, Codes({200031, 200031})).left(21) << "";
        QTest::newRow("codes of the wrong type")
            << Block({Entry(34, 14, 1, 3)}, Codes({200031})) << "";
    }

    void blocksAreReadInTheirOrderAndNotBeyondTheirEnd()
    {
        QFETCH(QByteArray, block);
        QFETCH(QString, shown);
        Desk desk;
        QCOMPARE(Parse(desk, block), shown);
    }

    void trayFlagsLastThroughTheNextBlock_data()
    {
        QTest::addColumn<Blocks>("blocks");
        QTest::addColumn<QString>("lastShown");
        const QByteArray error = Entry(28, 22, 2);
        const QByteArray errors = Block({error, Entry(99, 0)}, States({1, 1}));
        const QByteArray none = Block({});
        // 22: where the arrays of two entries begin
        const QByteArray open = Block({Entry(10, 22, 2), error}, States({1, 1}));
        const QByteArray openAfter = Block({error, Entry(10, 22, 2)}, States({1, 1}));
        const QByteArray manualEmpty =
            Block({Entry(12, 22, 2), Entry(28, 26, 2)}, States({0, 5, 1, 1}));
        const QByteArray cutEmpty = Block({Entry(12, 255, 2), error}, States({1, 1}));
        QTest::newRow("nothing reported") << Blocks{errors} << "手动纸盒错误 主纸盒错误 ";
        QTest::newRow("same block") << Blocks{open} << "手动纸盒打开 主纸盒打开 ";
        QTest::newRow("entry before")
            << Blocks{openAfter} << "手动纸盒错误 主纸盒错误 手动纸盒打开 主纸盒打开 ";
        QTest::newRow("order is nothing from the second on")
            << Blocks{openAfter, openAfter} << "手动纸盒打开 主纸盒打开 ";
        QTest::newRow("next block") << Blocks{open, errors} << "";
        QTest::newRow("the one after")
            << Blocks{open, errors, errors} << "手动纸盒错误 主纸盒错误 ";
        QTest::newRow("one without errors between")
            << Blocks{open, none, errors} << "手动纸盒错误 主纸盒错误 ";
        QTest::newRow("reported again") << Blocks{open, open, errors} << "";
        QTest::newRow("empty tray") << Blocks{manualEmpty} << "主纸盒错误 ";
        QTest::newRow("array cut off") << Blocks{cutEmpty} << "手动纸盒错误 主纸盒错误 ";
    }

    void trayFlagsLastThroughTheNextBlock()
    {
        QFETCH(Blocks, blocks);
        QFETCH(QString, lastShown);
        Desk desk;
        QString shown;
        for (const QByteArray& block : blocks)
            shown = Parse(desk, block);
        QCOMPARE(shown, lastShown);
    }
};

QTEST_MAIN(DecodersTest)
#include "tst_decoders.moc"
