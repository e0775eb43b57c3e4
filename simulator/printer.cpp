// SPDX-License-Identifier: MIT

// The protocol is written down here a second time, on purpose: with a header shared by the monitor
// and its printers, a mistake in it would go unnoticed.

#include "printer.h"

#include <QDataStream>
#include <QIODevice>

#include <numeric>

namespace
{

// Request frame: 0 start | 1 zero | 2 frame length | 3 command | 4... model name | last: checksum
// Answer frame:  0 start | 1 any  | 2 frame length | 3 command | 4... data       | last: checksum
const char kRequestStart = '\xC1';
const char kAnswerStart = '\xC2';
const char kResultOk = 1;
const int kHeadSize = 4;
const int kFrameOverhead = kHeadSize + 1;
const int kLongestPayload = 59; // what a request of 64 bytes holds
enum FrameOffset { kStart = 0, kZero = 1, kLength = 2, kCommand = 3 };

enum Command {
    kModelNameCommand = 0x01,
    kHardwareStateCommand = 0x12,
    kPageCountersCommand = 0x13,
    kStateCommand = 0x14
};
enum UsbRequest {
    kHardwareStateRequest = 0,
    kModelNameRequest = 17,
    kPageCountersRequest = 51,
    kStateRequest = 68
};

// Hardware state block: 4 bytes | entry count, 2 bytes, low byte first | entries | arrays
// Entry: 0 identifier | 2 type | 4 element count | 6 flag, or offset of the array in the block
const int kEntryCountOffset = 4;
const int kEntriesOffset = 6;
const int kEntrySize = 8;
const char kStatusEntry = 3;
const char kErrorCodeEntry = 4;
const int kMaxArrayOffset = 255;
const int kMaxBlockSize = 494; // what a 500-byte answer frame holds
// Unused bytes hold this, so that reading one shows.
const char kUnused = '\xEE';

char Checksum(const QByteArray& bytes)
{
    return static_cast<char>(std::accumulate(bytes.begin(), bytes.end(), 0));
}

bool IsGood(const QByteArray& request, const QByteArray& model)
{
    if (request.size() < kFrameOverhead)
        return false;
    const QByteArray payload =
        request[kCommand] == kModelNameCommand ? "" : model.left(kLongestPayload);
    return request[kStart] == kRequestStart && request[kZero] == 0 &&
           static_cast<quint8>(request[kLength]) == request.size() &&
           request.back() == Checksum(request.chopped(1)) &&
           request.mid(kHeadSize).chopped(1) == payload;
}

} // namespace

QByteArray Printer::AnswerFrame(const QByteArray& request) const
{
    if (!IsGood(request, model))
        return QByteArray();
    const char command = request[kCommand];
    QByteArray answer(kHeadSize, kUnused);
    answer[kStart] = kAnswerStart;
    answer[kCommand] = command;
    if (command != kModelNameCommand)
        answer += kResultOk;
    switch (command) {
    case kModelNameCommand: answer += model; break;
    case kStateCommand: answer += static_cast<char>(state); break;
    case kPageCountersCommand: answer += PageCounters(); break;
    case kHardwareStateCommand: answer += HardwareState(); break;
    default: return QByteArray();
    }
    answer[kLength] = static_cast<char>(answer.size() + 1);
    return answer + Checksum(answer);
}

QByteArray Printer::UsbAnswer(int request) const
{
    switch (request) {
    case kModelNameRequest: return model + '\0';
    case kPageCountersRequest: return PageCounters();
    case kStateRequest: return QByteArray(1, static_cast<char>(state));
    case kHardwareStateRequest: return HardwareState();
    default: return QByteArray();
    }
}

QByteArray Printer::HardwareState() const
{
    QByteArray block(kEntriesOffset + kEntrySize * conditions.size(), kUnused);
    block[kEntryCountOffset] = static_cast<char>(conditions.size());
    block[kEntryCountOffset + 1] = 0;
    for (int i = 0; i < conditions.size(); ++i) {
        const Condition& condition = conditions[i];
        const int entry = kEntriesOffset + kEntrySize * i;
        const bool codes = condition.kind == Condition::ErrorCodes;
        block[entry] = static_cast<char>(condition.id);
        block[entry + 2] = codes ? kErrorCodeEntry : kStatusEntry;
        if (condition.kind == Condition::Flag) {
            block[entry + 6] = static_cast<char>(condition.values[0]);
            continue;
        }
        if (block.size() > kMaxArrayOffset)
            return QByteArray();
        block[entry + 4] = static_cast<char>(condition.values.size());
        block[entry + 6] = static_cast<char>(block.size());
        QDataStream array(&block, QIODevice::Append);
        array.setByteOrder(QDataStream::LittleEndian);
        for (const quint32 value : condition.values) {
            if (codes)
                array << value;
            else
                array << static_cast<quint8>(value) << static_cast<quint8>(kUnused);
        }
    }
    return block.size() > kMaxBlockSize ? QByteArray() : block;
}

/// Four words, high byte first: the engine's, one that means nothing, the drum's, the toner's.
QByteArray Printer::PageCounters() const
{
    QByteArray record;
    QDataStream(&record, QIODevice::WriteOnly)
        << counters[0] << quint32(0xEEEEEEEE) << counters[1] << counters[2];
    return record;
}
