// SPDX-License-Identifier: MIT

#ifndef PRINTER_H
#define PRINTER_H

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

typedef std::vector<std::uint8_t> Bytes;

/// Name of the printer on the USB bus; the others are named by their addresses.
const char kUsbPrinter[] = "usb";

/// How a simulated printer spoils its network answers.
enum class Malformed { None, Start, Code, Result, Short };

/// A condition that a printer's hardware state block reports.
struct Condition {
    enum Kind { Flag, Array, ErrorCodes };
    std::uint8_t id;
    Kind kind;
    std::vector<std::uint32_t> values; ///< the flag's value, or the array's elements
};

/// One simulated printer: what it would tell, and the frames and records in which it tells it.
struct Printer {
    std::string name; ///< address, or "usb"
    std::string model;

    std::uint8_t state = 4;
    std::array<std::uint32_t, 3> counters = {1200, 800, 400}; ///< engine, drum, toner
    std::vector<Condition> conditions = {};                   ///< in the order of the block

    bool drop = false;   ///< network: no answers; USB: requests are accepted and never completed
    bool plugged = true; ///< USB only
    std::chrono::milliseconds delay{0};
    Malformed malformed = Malformed::None;

    /// The answer frame to a request frame, spoiled as `malformed` says.
    /// @param problem  receives what is wrong with the request when there is no answer to it
    std::optional<Bytes> AnswerFrame(const Bytes& request, std::string& problem) const;

    /// The answer to a USB vendor request; none when the printer does not know the request.
    std::optional<Bytes> UsbAnswer(int request) const;

    /// The hardware state block of `conditions`; none when they do not fit into one.
    std::optional<Bytes> HardwareState() const;

private:
    Bytes PageCounters() const;
};

#endif // PRINTER_H
