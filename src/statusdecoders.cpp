// SPDX-License-Identifier: MIT

// Turning what a printer answers, over either channel, into the texts of the window.

#include "mainwindow.h"
#include "ui_mainwindow.h"

#include <QtEndian>

#include <iterator>

namespace
{

// Page-counter record, 16 bytes: four 32-bit words, most significant byte first; the word at
// offset 4 is not used. A count is shown as a signed number.
const int kEngineCountOffset = 0;
const int kDrumCountOffset = 8;
const int kTonerCountOffset = 12;

// Hardware state block, offsets from its start:
//   4 number of status entries, 2 bytes, low byte first | 6... entries of 8 bytes | arrays
const int kEntryCountOffset = 4;
const int kEntriesOffset = 6;
// Status entry: 0 identifier | 2 type | 4 element count | 6 value: a flag, or the offset of the
// entry's element array in the block (0: no array). The odd bytes are not used.
const int kEntrySize = 8;
const int kEntryIdOffset = 0;
const int kEntryTypeOffset = 2;
const int kElementCountOffset = 4;
const int kEntryValueOffset = 6;
// Elements: 2 bytes, byte 0 the state of the position, byte 1 not used; or error codes, 4 bytes,
// low byte first.
const int kElementSize = 2;
const int kErrorCodeSize = 4;
const unsigned char kStatusEntry = 3;
const unsigned char kErrorCodeEntry = 4;

const unsigned char kActive = 1;
const unsigned char kNoPaper = 0;
const int kManualTray = 0; // index of its element in an array about the trays
const int kMainTray = 1;

/// The values that make a flag entry active.
enum ActiveWhen { kIsOne, kIsNonzero };

struct FlagEntry {
    int id;
    ActiveWhen activeWhen;
    const char* text;
};

const FlagEntry kFlagEntries[] = {
    {0, kIsOne, "MFP错误 "},
    {1, kIsOne, "双面单元错误 "},
    {3, kIsOne, "双面单元不存在 "},
    {4, kIsOne, "墨粉盒不存在 "},
    {5, kIsOne, "定影器不存在 "},
    {7, kIsNonzero, "未知错误 "},
    {14, kIsOne, "墨粉较少 "},
    {15, kIsOne, "定影器寿命将尽 "},
    {17, kIsOne, "主单元错误 "},
    {18, kIsOne, "传送卷错误 "},
    {19, kIsNonzero, "进纸器故障 "},
    {26, kIsNonzero, "废粉仓已满 "},
    {30, kIsNonzero, "硒鼓传感器故障 "},
    {31, kIsOne, "墨粉盒故障 "},
    {32, kIsNonzero, "硒鼓故障 "},
    {33, kIsNonzero, "硒鼓寿命已尽 "},
};

// Identifiers of the entries with an element array.
enum ArrayEntry {
    kPaperJam = 6,
    kCoverOpen = 9,
    kTrayOpen = 10,
    kPaperQuantity = 12,
    kTrayLifting = 25,
    kTrayError = 28,
    kErrorCodes = 34
};

struct ErrorText {
    quint32 code;
    const char* text;
};

// Spaces belong to the texts, also where doubled or missing. clang-format would fill the lines.
// clang-format off
const ErrorText kErrorTexts[] = {
    {200000, " 多重进纸失败 "},
    {200001, "自动选择纸盒缺纸  "},
    {200003, "进纸失败  "},
    {200004, " 温度自动调节 "},
    {200005, "印后纸张不匹配 "},
    {200031, "缺粉 "},
    {200041, "硒鼓不存在 "},
    {200043, "硒鼓寿命将尽  "},
    {200045, "硒鼓单元正在清理 "},
    {200046, "硒鼓单元被改变 "},
    {200080, "手动纸盒缺纸 "},
    {200081, "主纸盒缺纸 "},
    {200085, "自动选择纸盒缺纸  "},
    {200090, "风扇错误  "},
    {205101, "充电器线异常 "},
    {500000, "打印机IP冲突 "},
    {500001, "断网"},
    {500002, "DHCP无响应 "},
};
// clang-format on

// Codes shown as a heading and their number; codes without a heading are not shown.
struct ErrorGroup {
    quint32 first;
    quint32 last;
    const char* heading;
};

const char kFuserError[] = "定影器错误:";
const char kRunningError[] = "运行错误:";
const char kPrinterFault[] = "打印机故障:";
const char kOtherError[] = "其他错误:"; // every code that stands in neither table
const char* const kNotShown = nullptr;

const ErrorGroup kErrorGroups[] = {
    {0, 0, kNotShown},
    {200030, 200030, kNotShown},
    {200032, 200032, kNotShown},
    {200036, 200036, kNotShown},
    {200042, 200042, kNotShown},
    {200044, 200044, kNotShown},
    {200051, 200051, kNotShown},
    {200054, 200054, kNotShown},
    {200301, 200302, kNotShown},
    {200324, 200335, kNotShown},
    {201600, 201600, kFuserError},
    {201604, 201605, kFuserError},
    {201607, 201607, kFuserError},
    {201613, 201613, kFuserError},
    {201615, 201618, kFuserError},
    {201621, 201623, kFuserError},
    {201610, 201610, kRunningError},
    {201650, 201651, kRunningError},
    {201701, 201704, kRunningError},
    {201711, 201714, kRunningError},
    {201721, 201724, kRunningError},
    {201730, 201730, kRunningError},
    {300100, 300102, kRunningError},
    {300200, 300203, kRunningError},
    {302651, 302651, kRunningError},
    {205000, 205001, kPrinterFault},
};

QString ErrorCodeText(quint32 code)
{
    for (const ErrorText& error : kErrorTexts) {
        if (code == error.code)
            return error.text;
    }
    const char* heading = kOtherError;
    for (const ErrorGroup& group : kErrorGroups) {
        if (code >= group.first && code <= group.last)
            heading = group.heading;
    }
    return heading == kNotShown ? QString() : heading + QString::number(code) + " ";
}

/// Joins the texts of the active elements. `texts` is indexed by element; later ones have none.
template <int known>
QString ActiveTexts(const unsigned char* data, int count, const char* const (&texts)[known])
{
    QString joined;
    for (int k = 0; k < qMin(count, known); ++k) {
        if (data[k * kElementSize] == kActive)
            joined += texts[k];
    }
    return joined;
}

} // namespace

void MainWindow::SetPrinterState(unsigned char code)
{
    static const char* const kTexts[] = {
        "未知状态", "热机中", "打印中", "错误", "空闲", "休眠", "作业取消中",
    };
    ui->PrinterStatus->setText(kTexts[code < std::size(kTexts) ? code : 0]);
}

/// Shows the three counters of a page-counter record. Two fields have misleading names:
/// CatridgetCount is the drum's, CompactCount the toner's.
void MainWindow::ShowPageCounters(const unsigned char* record)
{
    const auto count = [=](int at) { return QString::number(qFromBigEndian<qint32>(record + at)); };
    ui->PrinterCount->setText(count(kEngineCountOffset));
    ui->CatridgetCount->setText(count(kDrumCountOffset));
    ui->CompactCount->setText(count(kTonerCountOffset));
}

void MainWindow::ParseHardwareState(unsigned char* block, int length)
{
    m_nManualTrayReported = m_nMainTrayReported = 0;
    QString text;
    const int entryCount =
        length < kEntriesOffset ? 0 : qFromLittleEndian<quint16>(block + kEntryCountOffset);
    for (int i = 0; i < entryCount; ++i) {
        const int offset = kEntriesOffset + i * kEntrySize;
        if (offset + kEntrySize > length)
            break;
        const unsigned char* entry = block + offset;
        const int id = entry[kEntryIdOffset];
        const int value = entry[kEntryValueOffset];
        if (entry[kEntryTypeOffset] != (id == kErrorCodes ? kErrorCodeEntry : kStatusEntry))
            continue;
        // An array that is not there, or not wholly inside the block, counts as an empty one.
        int count = entry[kElementCountOffset];
        const int elementSize = id == kErrorCodes ? kErrorCodeSize : kElementSize;
        if (value == 0 || value + count * elementSize > length)
            count = 0;
        unsigned char* array = count > 0 ? block + value : nullptr;
        switch (id) {
        case kPaperJam: text += GetPaperJamState(array, count); break;
        case kCoverOpen: text += GetPaperCoverOpenState(array, count); break;
        case kTrayOpen: text += GetTrayOpenState(array, count); break;
        case kPaperQuantity: GetPaperQuantity(array, count); break;
        case kTrayLifting: text += GetTrayLiftingStatus(array, count); break;
        case kTrayError: text += GetTrayErrorState(array, count); break;
        case kErrorCodes: text += GetErrorCodeState(array, count); break;
        default:
            for (const FlagEntry& flag : kFlagEntries) {
                if (id == flag.id && (flag.activeWhen == kIsOne ? value == 1 : value != 0))
                    text += flag.text;
            }
        }
    }

    // What this block has reported holds until the end of the next one.
    m_nManualTrayFlag = m_nManualTrayReported;
    m_nMainTrayFlag = m_nMainTrayReported;
    ui->DetailError->setText(text);
}

/// Sets the flags of the trays whose element is in `state`.
void MainWindow::FlagTrays(const unsigned char* data, int count, unsigned char state)
{
    if (count > kManualTray && data[kManualTray * kElementSize] == state)
        m_nManualTrayFlag = m_nManualTrayReported = 1;
    if (count > kMainTray && data[kMainTray * kElementSize] == state)
        m_nMainTrayFlag = m_nMainTrayReported = 1;
}

QString MainWindow::GetPaperJamState(unsigned char* data, int count)
{
    // Along the paper path: the trays, then in turn a sensor and the stretch after it.
    static const char* const kTexts[] = {
        "",
        "手动纸盒卡纸 ",
        "主纸盒卡纸 ",
        "卡纸在Main Feed Sensor ",
        "卡纸在Main Feed Sensor和Spare Sensor之间 ",
        "卡纸在Spare sensor ",
        "卡纸在Spare sensor与Registration sensor之间 ",
        "卡纸在Registration sensor ",
        "卡纸在Registration sensor及Fuser out sensor之间 ",
        "卡纸在Fuser out sensor ",
        "卡纸在Fuser out sensor及Exit sensor之间 ",
        "卡纸在Exit sensor ",
        "卡纸在Exit sensor及Duplex sensor之间 ",
        "卡纸在Duplex sensor ",
        "卡纸在Duplex sensor及Spare sensor之间 ",
    };
    return ActiveTexts(data, count, kTexts);
}

QString MainWindow::GetPaperCoverOpenState(unsigned char* data, int count)
{
    static const char* const kTexts[] = {"前盖打开 ", "后盖打开 ", "双面单元盖被打开 "};
    return ActiveTexts(data, count, kTexts);
}

QString MainWindow::GetTrayOpenState(unsigned char* data, int count)
{
    static const char* const kTexts[] = {"手动纸盒打开 ", "主纸盒打开 "};
    FlagTrays(data, count, kActive);
    return ActiveTexts(data, count, kTexts);
}

void MainWindow::GetPaperQuantity(unsigned char* data, int count)
{
    FlagTrays(data, count, kNoPaper);
}

QString MainWindow::GetTrayLiftingStatus(unsigned char* data, int count)
{
    static const char* const kTexts[] = {"手动纸盒抬纸中 ", "主纸盒抬纸中 "};
    return ActiveTexts(data, count, kTexts);
}

QString MainWindow::GetTrayErrorState(unsigned char* data, int count)
{
    const char* const texts[] = {m_nManualTrayFlag ? "" : "手动纸盒错误 ",
                                 m_nMainTrayFlag ? "" : "主纸盒错误 "};
    return ActiveTexts(data, count, texts);
}

QString MainWindow::GetErrorCodeState(unsigned char* data, int count)
{
    QString texts;
    for (int i = 0; i < count; ++i)
        texts += ErrorCodeText(qFromLittleEndian<quint32>(data + i * kErrorCodeSize));
    return texts;
}
