// SPDX-License-Identifier: MIT

#include "support.h"

typedef QVector<QByteArray> Blocks;
Q_DECLARE_METATYPE(Blocks)

namespace {
/// A status entry.
QByteArray Entry(int id, int value, int count = 0, int type = 3) {
    const char bytes[] = {char(id), 'x', char(type), 'x', char(count), 'x', char(value), 'x'};
    return QByteArray(bytes, sizeof bytes);
}

/// A block of some entries, and the arrays right behind them.
QByteArray Block(const QVector<QByteArray>& entries, const QByteArray& arrays = QByteArray()) {
    return QByteArray("xxxx") + char(entries.size()) + '\0' + QByteArrayList(entries.toList()).join() +
           arrays;
}

/// Elements with these states.
QByteArray States(const QVector<int>& states) {
    QByteArray bytes;
    for (const int state : states) bytes += QByteArray(1, char(state)) + "\x01";
    return bytes;
}

/// What is shown of a block in a buffer of exactly its size.
QString Parse(const Desk& desk, const QByteArray& block) {
    std::vector<unsigned char> exact(block.begin(), block.end());
    desk.window->ParseHardwareState(exact.data(), int(exact.size()));
    return desk.window->ui->DetailError->toPlainText();
}

const int kFirst = 14;  // where the arrays of a block with one entry begin
const int kSecond = 22; // with two
} // namespace

class DecodersTest : public QObject {
    Q_OBJECT

private slots:
    void everyStateHasItsText() {
        Desk desk;
        const QStringList known = {"热机中", "打印中", "错误", "空闲", "休眠", "作业取消中"};
        for (int code = 0; code < 256; ++code) {
            desk.window->SetPrinterState(static_cast<unsigned char>(code));
            QCOMPARE(desk.window->ui->PrinterStatus->text(), known.value(code - 1, "未知状态"));
        }
    }

    void everyIdentifierHasItsTestAndText() {
        Desk desk;
        QString ones;
        QString twos;
        for (int id = 0; id < 256; ++id) {
            ones += Parse(desk, Block({Entry(id, 1)}));
            twos += Parse(desk, Block({Entry(id, 2)}));
            QCOMPARE(Parse(desk, Block({Entry(id, 1, 0, 4)})), QString());
        }
        QCOMPARE(ones, QString("MFP错误 双面单元错误 双面单元不存在 墨粉盒不存在 定影器不存在 未知错误 "
                               "墨粉较少 定影器寿命将尽 主单元错误 传送卷错误 进纸器故障 废粉仓已满 "
                               "硒鼓传感器故障 墨粉盒故障 硒鼓故障 硒鼓寿命已尽 "));
        QCOMPARE(twos, QString("未知错误 进纸器故障 废粉仓已满 硒鼓传感器故障 硒鼓故障 硒鼓寿命已尽 "));
    }

    void everyElementHasItsText_data() {
        Columns<int, QString>({"id", "texts"});
        const QString jams = "手动纸盒卡纸 主纸盒卡纸 卡纸在Main Feed Sensor "
                             "卡纸在Main Feed Sensor和Spare Sensor之间 卡纸在Spare sensor "
                             "卡纸在Spare sensor与Registration sensor之间 "
                             "卡纸在Registration sensor "
                             "卡纸在Registration sensor及Fuser out sensor之间 "
                             "卡纸在Fuser out sensor 卡纸在Fuser out sensor及Exit sensor之间 "
                             "卡纸在Exit sensor 卡纸在Exit sensor及Duplex sensor之间 "
                             "卡纸在Duplex sensor 卡纸在Duplex sensor及Spare sensor之间 ";
        Row("jam", 6, jams);
        Row("cover", 9, "前盖打开 后盖打开 双面单元盖被打开 ");
        Row("tray open", 10, "手动纸盒打开 主纸盒打开 ");
        Row("paper quantity", 12, "");
        Row("tray lifting", 25, "手动纸盒抬纸中 主纸盒抬纸中 ");
        Row("tray error", 28, "手动纸盒错误 主纸盒错误 ");
    }

    void everyElementHasItsText() {
        QFETCH(int, id);
        Desk desk;
        QString texts;
        for (int element = 0; element < 20; ++element) {
            QVector<int> states(20, 2);
            states[element] = 1;
            texts += Parse(desk, Block({Entry(id, kFirst, 20)}, States(states)));
        }
        QTEST(texts, "texts");
        QTEST(Parse(desk, Block({Entry(id, kFirst, 20)}, States(QVector<int>(20, 1)))), "texts");
    }

    void everyErrorCodeHasItsText() {
        Desk desk;
        QString fixed;
        QMap<QString, QString> begins; // by heading, the codes at which a run of it begins
        QString heading = "none";
        const QVector<QPair<quint32, quint32>> spans = {
            {0, 9}, {199999, 205200}, {300099, 302999}, {499999, 500009}};
        for (const auto& [first, last] : spans) {
            for (quint32 code = first; code <= last; ++code) {
                auto* bytes = reinterpret_cast<unsigned char*>(&code);
                const QString text = desk.window->GetErrorCodeState(bytes, 1);
                const QString number = QString::number(code) + " ";
                const bool grouped = text.isEmpty() || text.endsWith(":" + number);
                fixed += grouped ? "" : text;
                const QString now = grouped ? text.left(text.indexOf(':') + 1) : "fixed";
                begins[now] += now == heading ? "" : number;
                heading = now;
            }
        }
        QCOMPARE(fixed, QString(" 多重进纸失败 自动选择纸盒缺纸  进纸失败   温度自动调节 "
                                "印后纸张不匹配 缺粉 硒鼓不存在 硒鼓寿命将尽  硒鼓单元正在清理 "
                                "硒鼓单元被改变 手动纸盒缺纸 主纸盒缺纸 自动选择纸盒缺纸  风扇错误  "
                                "充电器线异常 打印机IP冲突 断网DHCP无响应 "));
        const QMap<QString, QString> expected = {
            {"", "0 200030 200032 200036 200042 200044 200051 200054 200301 200324 "},
            {"fixed", "200000 200003 200031 200041 200043 200045 200080 200085 200090 205101 500000 "},
            {"定影器错误:", "201600 201604 201607 201613 201615 201621 "},
            {"运行错误:", "201610 201650 201701 201711 201721 201730 300100 300200 302651 "},
            {"打印机故障:", "205000 "},
            {"其他错误:",
             "1 200002 200006 200033 200037 200047 200052 200055 200082 200086 200091 200303 "
             "200336 "
             "201601 201606 201608 201611 201614 201619 201624 201652 201705 201715 201725 201731 "
             "205002 205102 300103 300204 302652 500003 "}};
        QCOMPARE(begins, expected);
    }

    void blocksAreReadInOrderAndWithinTheirEnd_data() {
        Columns<Blocks, QString>({"blocks", "shown"}); // of the last block
        const QByteArray toner = Entry(14, 1);
        const QByteArray mfp = Entry(0, 1);
        const QByteArray ones = States({1, 1, 1});
        const QByteArray cover = Block({Entry(9, kSecond, 3), mfp}, ones);
        const QByteArray codes = Block({Entry(34, kFirst, 5, 4)},
                                       QByteArray::fromHex("21A10700 22A10700 80130300 00000000 FFFFFFFF"));
        Row("in order", Blocks{Block({toner, mfp, toner})}, "墨粉较少 MFP错误 墨粉较少 ");
        Row("no entries", Blocks{Block({})}, "");
        Row("no bytes", Blocks{""}, "");
        Row("half a count", Blocks{"12345"}, "");
        Row("count 256", Blocks{Block({toner}).replace(4, 2, "\0\1", 2)}, "墨粉较少 ");
        Row("cut entry", Blocks{Block({toner, mfp}).left(21)}, "墨粉较少 ");
        Row("array", Blocks{cover}, "前盖打开 后盖打开 双面单元盖被打开 MFP错误 ");
        Row("array cut", Blocks{cover.left(27)}, "MFP错误 ");
        Row("array outside", Blocks{Block({Entry(6, 255, 255), mfp})}, "MFP错误 ");
        Row("codes", Blocks{codes}, "断网DHCP无响应 定影器错误:201600 其他错误:4294967295 ");
        Row("codes cut", Blocks{codes.left(33)}, "");
        // The tray flags last through the next block.
        const QString both = "手动纸盒错误 主纸盒错误 ";
        const QString opened = "手动纸盒打开 主纸盒打开 ";
        const QByteArray error = Entry(28, kSecond, 2);
        const QByteArray errors = Block({error, Entry(99, 0)}, ones);
        const QByteArray open = Block({Entry(10, kSecond, 2), error}, ones);
        const QByteArray late = Block({error, Entry(10, kSecond, 2)}, ones);
        const QByteArray empty =
            Block({Entry(12, kSecond, 2), Entry(28, kSecond + 4, 2)}, States({0, 5, 1, 1}));
        Row("same block", Blocks{open}, opened);
        Row("later entry", Blocks{late}, both + opened);
        Row("later, again", Blocks{late, late}, opened);
        Row("next block", Blocks{open, errors}, "");
        Row("third block", Blocks{open, errors, errors}, both);
        Row("nothing between", Blocks{open, Block({}), errors}, both);
        Row("open again", Blocks{open, open, errors}, "");
        Row("one empty", Blocks{empty}, "主纸盒错误 ");
        Row("open, cut", Blocks{Block({Entry(10, 255, 2), error}, ones)}, both);
    }

    void blocksAreReadInOrderAndWithinTheirEnd() {
        QFETCH(Blocks, blocks);
        Desk desk;
        for (const QByteArray& block : blocks) Parse(desk, block);
        QTEST(desk.window->ui->DetailError->toPlainText(), "shown");
    }
};

QTEST_MAIN(DecodersTest)
#include "tst_decoders.moc"
