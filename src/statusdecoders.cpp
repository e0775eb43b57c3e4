// SPDX-License-Identifier: MIT

// Turning what a printer answers, over either channel, into the texts of the window.

#include "mainwindow.h"
#include "ui_mainwindow.h"

#include <QtEndian>

#include <algorithm>
#include <iterator>

namespace
{

// Page-counter record, 16 bytes: four 32-bit words, most significant byte first; the word at
// offset 4 has no use here. A count is shown as a signed number.
const int kEngineCountOffset = 0;
const int kDrumCountOffset = 8;
const int kTonerCountOffset = 12;

// Hardware state block, offsets from its start:
//   4 number of status entries, 2 bytes, low byte first | 6... entries of 8 bytes | arrays
const int kEntryCountOffset = 4;
const int kEntriesOffset = 6;
// Status entry: 0 identifier | 2 type | 4 element count | 6 value, a flag or the offset of the
// entry's element array in the block (0: no array). The odd bytes have no use here.
const int kEntrySize = 8;
const int kEntryIdOffset = 0;
const int kEntryTypeOffset = 2;
const int kElementCountOffset = 4;
const int kEntryValueOffset = 6;
// Elements: 2 bytes, byte 0 the state of the position, byte 1 without use; or error codes, 4 bytes,
// low byte first.
const int kElementSize = 2;
const int kErrorCodeSize = 4;
const unsigned char kStatusEntry = 3;
const unsigned char kErrorCodeEntry = 4;

const unsigned char kActive = 1;
const unsigned char kNoPaper = 0;

// A tray flag within the walk of a block. Between two blocks it is 0 or kTrayReported.
const int kTrayReported = 1;       // open or empty in this block, or in the one before
const int kTrayReportedBefore = 2; // only in the block before, as far as this one is read

struct ErrorText {
    quint32 code;
    const char* text;
};

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

// Codes shown as a heading and their number; silent codes have no heading and are not shown.
struct ErrorGroup {
    quint32 first;
    quint32 last;
    const char* heading;
};

const char kFuserError[] = "定影器错误:";
const char kRunningError[] = "运行错误:";
const char kPrinterFault[] = "打印机故障:";
const char kOtherError[] = "其他错误:"; // every code that stands in neither table
const char* const kSilent = nullptr;

const ErrorGroup kErrorGroups[] = {
    {0, 0, kSilent},
    {200030, 200030, kSilent},
    {200032, 200032, kSilent},
    {200036, 200036, kSilent},
    {200042, 200042, kSilent},
    {200044, 200044, kSilent},
    {200051, 200051, kSilent},
    {200054, 200054, kSilent},
    {200301, 200302, kSilent},
    {200324, 200335, kSilent},
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

QString TextOfErrorCode(quint32 code)
{
    for (const ErrorText& error : kErrorTexts) {
        if (code == error.code)
            return error.text;
    }
    const char* heading = kOtherError;
    for (const ErrorGroup& group : kErrorGroups) {
        if (code >= group.first && code <= group.last) {
            heading = group.heading;
            break;
        }
    }
    return heading == kSilent ? QString() : heading + QString::number(code) + " ";
}

} // namespace

void MainWindow::SetPrinterState(unsigned char code)
{
    static const char* const kTexts[] = {
        "未知状态", "热机中", "打印中", "错误", "空闲", "休眠", "作业取消中",
    };
    const size_t known = sizeof kTexts / sizeof kTexts[0];
    ui->PrinterStatus->setText(kTexts[code < known ? code : 0]);
}

MainWindow::PageCounters MainWindow::ReadPageCounters(const unsigned char* record)
{
    return {QString::number(qFromBigEndian<qint32>(record + kEngineCountOffset)),
            QString::number(qFromBigEndian<qint32>(record + kDrumCountOffset)),
            QString::number(qFromBigEndian<qint32>(record + kTonerCountOffset))};
}

void MainWindow::ShowPageCounters(const PageCounters& counters)
{
    ui->PrinterCount->setText(counters.engine);
    ui->CatridgetCount->setText(counters.drum);
    ui->CompactCount->setText(counters.toner);
}

void MainWindow::ParseHardwareState(unsigned char* block, int length)
{
    // When an entry's value makes it active.
    enum Test { kIsOne, kIsNonzero };
    struct EntryMeaning {
        unsigned char id;
        unsigned char type;
        Test test;
        const char* text = nullptr;                                    // of a flag entry
        QString (MainWindow::*decoder)(unsigned char*, int) = nullptr; // of an element array
    };
    static const EntryMeaning kMeanings[] = {
        {0, kStatusEntry, kIsOne, "MFP错误 "},
        {1, kStatusEntry, kIsOne, "双面单元错误 "},
        {3, kStatusEntry, kIsOne, "双面单元不存在 "},
        {4, kStatusEntry, kIsOne, "墨粉盒不存在 "},
        {5, kStatusEntry, kIsOne, "定影器不存在 "},
        {6, kStatusEntry, kIsNonzero, nullptr, &MainWindow::GetPaperJamState},
        {7, kStatusEntry, kIsNonzero, "未知错误 "},
        {9, kStatusEntry, kIsNonzero, nullptr, &MainWindow::GetPaperCoverOpenState},
        {10, kStatusEntry, kIsNonzero, nullptr, &MainWindow::GetTrayOpenState},
        {12, kStatusEntry, kIsNonzero}, // GetPaperQuantity, the one decoder without a text
        {14, kStatusEntry, kIsOne, "墨粉较少 "},
        {15, kStatusEntry, kIsOne, "定影器寿命将尽 "},
        {17, kStatusEntry, kIsOne, "主单元错误 "},
        {18, kStatusEntry, kIsOne, "传送卷错误 "},
        {19, kStatusEntry, kIsNonzero, "进纸器故障 "},
        {25, kStatusEntry, kIsNonzero, nullptr, &MainWindow::GetTrayLiftingStatus},
        {26, kStatusEntry, kIsNonzero, "废粉仓已满 "},
        {28, kStatusEntry, kIsNonzero, nullptr, &MainWindow::GetTrayErrorState},
        {30, kStatusEntry, kIsNonzero, "硒鼓传感器故障 "},
        {31, kStatusEntry, kIsOne, "墨粉盒故障 "},
        {32, kStatusEntry, kIsNonzero, "硒鼓故障 "},
        {33, kStatusEntry, kIsNonzero, "硒鼓寿命已尽 "},
        {34, kErrorCodeEntry, kIsNonzero, nullptr, &MainWindow::GetErrorCodeState},
    };

    // What the block before reported of a tray counts through this block, and ends with it.
    int* const trayFlags[] = {&m_nManualTrayFlag, &m_nMainTrayFlag};
    for (int* flag : trayFlags) {
        if (*flag == kTrayReported)
            *flag = kTrayReportedBefore;
    }

    QString text;
    const int entryCount =
        length < kEntriesOffset ? 0 : qFromLittleEndian<quint16>(block + kEntryCountOffset);
    for (int i = 0; i < entryCount; ++i) {
        const int offset = kEntriesOffset + i * kEntrySize;
        if (offset + kEntrySize > length)
            break;
        const unsigned char* entry = block + offset;
        const unsigned char value = entry[kEntryValueOffset];
        const EntryMeaning* meaning = std::find_if(
            std::begin(kMeanings), std::end(kMeanings), [entry](const EntryMeaning& m) {
                return m.id == entry[kEntryIdOffset] && m.type == entry[kEntryTypeOffset];
            });
        if (meaning == std::end(kMeanings) || (meaning->test == kIsOne ? value != 1 : value == 0))
            continue;
        if (meaning->text) {
            text += meaning->text;
            continue;
        }
        const int count = entry[kElementCountOffset];
        const int size = meaning->type == kErrorCodeEntry ? kErrorCodeSize : kElementSize;
        if (value + count * size > length)
            continue;
        if (meaning->decoder)
            text += (this->*meaning->decoder)(block + value, count);
        else
            GetPaperQuantity(block + value, count);
    }

    for (int* flag : trayFlags) {
        if (*flag == kTrayReportedBefore)
            *flag = 0;
    }
    ui->DetailError->setText(text);
}

/// What an element in its decoder's tested state does; a decoder's table is indexed by element.
struct MainWindow::ElementAction {
    const char* text = nullptr;            // shown
    int MainWindow::*sets = nullptr;       // tray flag that it sets
    int MainWindow::*silencedBy = nullptr; // tray flag that keeps the text from being shown
};

/// The walk of all element-array decoders: carries out the actions of the elements whose state is
/// `tested`, in element order, and returns their joined texts. Elements past the table do nothing.
template <int actionCount>
QString MainWindow::WalkElements(const unsigned char* data, int count, unsigned char tested,
                                 const ElementAction (&actions)[actionCount])
{
    QString texts;
    for (int k = 0; k < qMin(count, actionCount); ++k) {
        const ElementAction& action = actions[k];
        if (data[k * kElementSize] != tested)
            continue;
        if (action.text && !(action.silencedBy && this->*action.silencedBy))
            texts += action.text;
        if (action.sets)
            this->*action.sets = kTrayReported;
    }
    return texts;
}

QString MainWindow::GetPaperJamState(unsigned char* data, int count)
{
    // Along the paper path: the trays, then by turns a sensor and the stretch behind it.
    static const ElementAction kPositions[] = {
        {},
        {"手动纸盒卡纸 "},
        {"主纸盒卡纸 "},
        {"卡纸在Main Feed Sensor "},
        {"卡纸在Main Feed Sensor和Spare Sensor之间 "},
        {"卡纸在Spare sensor "},
        {"卡纸在Spare sensor与Registration sensor之间 "},
        {"卡纸在Registration sensor "},
        {"卡纸在Registration sensor及Fuser out sensor之间 "},
        {"卡纸在Fuser out sensor "},
        {"卡纸在Fuser out sensor及Exit sensor之间 "},
        {"卡纸在Exit sensor "},
        {"卡纸在Exit sensor及Duplex sensor之间 "},
        {"卡纸在Duplex sensor "},
        {"卡纸在Duplex sensor及Spare sensor之间 "},
    };
    return WalkElements(data, count, kActive, kPositions);
}

QString MainWindow::GetPaperCoverOpenState(unsigned char* data, int count)
{
    static const ElementAction kCovers[] = {
        {"前盖打开 "},
        {"后盖打开 "},
        {"双面单元盖被打开 "},
    };
    return WalkElements(data, count, kActive, kCovers);
}

QString MainWindow::GetTrayOpenState(unsigned char* data, int count)
{
    static const ElementAction kTrays[] = {
        {"手动纸盒打开 ", &MainWindow::m_nManualTrayFlag},
        {"主纸盒打开 ", &MainWindow::m_nMainTrayFlag},
    };
    return WalkElements(data, count, kActive, kTrays);
}

void MainWindow::GetPaperQuantity(unsigned char* data, int count)
{
    static const ElementAction kTrays[] = {
        {nullptr, &MainWindow::m_nManualTrayFlag},
        {nullptr, &MainWindow::m_nMainTrayFlag},
    };
    WalkElements(data, count, kNoPaper, kTrays);
}

QString MainWindow::GetTrayLiftingStatus(unsigned char* data, int count)
{
    static const ElementAction kTrays[] = {
        {"手动纸盒抬纸中 "},
        {"主纸盒抬纸中 "},
    };
    return WalkElements(data, count, kActive, kTrays);
}

QString MainWindow::GetTrayErrorState(unsigned char* data, int count)
{
    static const ElementAction kTrays[] = {
        {"手动纸盒错误 ", nullptr, &MainWindow::m_nManualTrayFlag},
        {"主纸盒错误 ", nullptr, &MainWindow::m_nMainTrayFlag},
    };
    return WalkElements(data, count, kActive, kTrays);
}

QString MainWindow::GetErrorCodeState(unsigned char* data, int count)
{
    QString texts;
    for (int i = 0; i < count; ++i)
        texts += TextOfErrorCode(qFromLittleEndian<quint32>(data + i * kErrorCodeSize));
    return texts;
}
