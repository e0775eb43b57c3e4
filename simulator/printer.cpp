// SPDX-License-Identifier: MIT

#include "printer.h"

#include <numeric>

namespace
{

// Request frame: 0 start | 1 zero | 2 frame length | 3 command | 4... model name | last: checksum
// Answer frame:  0 start | 1 zero | 2 frame length | 3 command | 4... data       | last: checksum
const std::uint8_t kRequestStart = 0xC1;
const std::uint8_t kAnswerStart = 0xC2;
const std::uint8_t kResultOk = 0x01;
const size_t kHeadSize = 4;
const size_t kFrameOverhead = kHeadSize + 1;
enum FrameOffset { kStart = 0, kLength = 2, kCommand = 3, kResult = 4 };

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
const size_t kEntriesOffset = 6;
const size_t kEntrySize = 8;
const std::uint8_t kStatusEntry = 3;
const std::uint8_t kErrorCodeEntry = 4;
const size_t kMaxArrayOffset = 255;
const size_t kMaxBlockSize = 494; // what a 500-byte answer frame holds

std::uint8_t Checksum(const Bytes& bytes, size_t size)
{
    return static_cast<std::uint8_t>(std::accumulate(bytes.begin(), bytes.begin() + size, 0U));
}

std::string CheckRequest(const Bytes& request, const std::string& model)
{
    if (request.size() < kFrameOverhead)
        return "it is shorter than a frame";
    if (request[kStart] != kRequestStart)
        return "its start byte is wrong";
    if (request[kStart + 1] != 0)
        return "its second byte is not zero";
    if (request[kLength] != request.size())
        return "its frame length is wrong";
    if (request.back() != Checksum(request, request.size() - 1))
        return "its checksum is wrong";
    const std::string payload(request.begin() + kHeadSize, request.end() - 1);
    if (payload != (request[kCommand] == kModelNameCommand ? "" : model))
        return "its payload is \"" + payload + "\"";
    return "";
}

void Append(Bytes& bytes, const Bytes& more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
}

} // namespace

std::optional<Bytes> Printer::AnswerFrame(const Bytes& request, std::string& problem) const
{
    problem = CheckRequest(request, model);
    if (!problem.empty())
        return std::nullopt;

    Bytes frame = {kAnswerStart, 0, 0, request[kCommand]};
    if (frame[kCommand] != kModelNameCommand)
        frame.push_back(kResultOk);
    switch (frame[kCommand]) {
    case kModelNameCommand: frame.insert(frame.end(), model.begin(), model.end()); break;
    case kStateCommand: frame.push_back(state); break;
    case kPageCountersCommand: Append(frame, PageCounters()); break;
    case kHardwareStateCommand: Append(frame, HardwareState().value_or(Bytes())); break;
    default: problem = "its command is unknown"; return std::nullopt;
    }
    frame[kLength] = static_cast<std::uint8_t>(frame.size() + 1);
    frame.push_back(Checksum(frame, frame.size()));

    switch (malformed) {
    case Malformed::None: break;
    case Malformed::Start: frame[kStart] = kRequestStart; break;
    case Malformed::Code: frame[kCommand] ^= 0xFFU; break;
    case Malformed::Result: frame[kResult] = 0; break;
    case Malformed::Short: frame.resize(kCommand); break;
    }
    return frame;
}

std::optional<Bytes> Printer::UsbAnswer(int request) const
{
    switch (request) {
    case kModelNameRequest: {
        Bytes name(model.begin(), model.end());
        name.push_back(0);
        return name;
    }
    case kPageCountersRequest: return PageCounters();
    case kStateRequest: return Bytes{state};
    case kHardwareStateRequest: return HardwareState();
    default: return std::nullopt;
    }
}

std::optional<Bytes> Printer::HardwareState() const
{
    const size_t count = conditions.size();
    Bytes block(kEntriesOffset + kEntrySize * count);
    block[4] = static_cast<std::uint8_t>(count);
    for (size_t i = 0; i < count; ++i) {
        const Condition& condition = conditions[i];
        const size_t entry = kEntriesOffset + kEntrySize * i;
        block[entry] = condition.id;
        block[entry + 2] = condition.kind == Condition::ErrorCodes ? kErrorCodeEntry : kStatusEntry;
        if (condition.kind == Condition::Flag) {
            block[entry + 6] = static_cast<std::uint8_t>(condition.values[0]);
            continue;
        }
        if (block.size() > kMaxArrayOffset)
            return std::nullopt;
        block[entry + 4] = static_cast<std::uint8_t>(condition.values.size());
        block[entry + 6] = static_cast<std::uint8_t>(block.size());
        for (const std::uint32_t value : condition.values) {
            const int size = condition.kind == Condition::ErrorCodes ? 4 : 2;
            for (int byte = 0; byte < size; ++byte) // low byte first
                block.push_back(static_cast<std::uint8_t>(value >> (8 * byte)));
        }
    }
    if (block.size() > kMaxBlockSize)
        return std::nullopt;
    return block;
}

/// Four words, high byte first: the engine's, one without use, the drum's, the toner cartridge's.
Bytes Printer::PageCounters() const
{
    Bytes record;
    for (const std::uint32_t word : {counters[0], 0xFFFFFFFFU, counters[1], counters[2]}) {
        for (int shift = 24; shift >= 0; shift -= 8)
            record.push_back(static_cast<std::uint8_t>(word >> shift));
    }
    return record;
}
