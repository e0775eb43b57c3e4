// SPDX-License-Identifier: MIT

#include "console.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <sstream>

const char kConsoleHelp[] =
    R"(Commands, one a line. A line that begins with a printer's address, or with "usb",
goes to that printer; any other goes to all of them.
  state CODE                    0 to 255; 1 warming up, 2 printing, 3 error, 4 idle, 5 sleeping,
                                6 cancelling a job
  counters ENGINE DRUM TONER    pages printed
  flag ID [VALUE]               raise a flag entry of the hardware state (VALUE: 1)
  array ID STATE...             raise an entry with an array of states, one a position
  errors CODE...                raise the error-code entry
  clear [ID]                    clear one entry, or all
  drop on|off                   give no answers; over USB, never complete a request
  delay MS                      answer late (network)
  malformed start|code|result|short|off
                                spoil the answers (network)
  unplug, plug                  take the printer off the bus, put it back (USB)
)";

namespace
{

typedef std::vector<std::uint32_t> Numbers;
typedef std::string Problem; // empty: none

/// Puts a condition in the place of one with the same identifier, or behind all others.
Problem Raise(Printer& printer, std::uint32_t id, Condition::Kind kind, const Numbers& values)
{
    Printer changed = printer;
    const Condition condition = {static_cast<std::uint8_t>(id), kind, values};
    const auto place =
        std::find_if(changed.conditions.begin(), changed.conditions.end(),
                     [&condition](const Condition& other) { return other.id == condition.id; });
    if (place != changed.conditions.end())
        *place = condition;
    else
        changed.conditions.push_back(condition);
    if (!changed.HardwareState())
        return "the hardware state has no room for it";
    printer = changed;
    return "";
}

Problem Clear(Printer& printer, const Numbers& ids)
{
    const auto cleared = [&ids](const Condition& condition) {
        return ids.empty() || condition.id == ids[0];
    };
    std::vector<Condition>& all = printer.conditions;
    const auto end = std::remove_if(all.begin(), all.end(), cleared);
    if (!ids.empty() && end == all.end())
        return "entry " + std::to_string(ids[0]) + " is not raised";
    all.erase(end, all.end());
    return "";
}

/// The printers that a command is for.
enum Channel { kAll, kNetwork, kUsb };

struct Command {
    const char* name;
    Channel channel;
    size_t fewest; // arguments
    size_t most;
    std::uint32_t limit;              // of each number
    std::vector<std::string> choices; // words that stand for the numbers from 0 on
    Problem (*run)(Printer&, const Numbers&);
};

const std::uint32_t kByte = 255;
const std::uint32_t kAnyNumber = UINT32_MAX;
const std::uint32_t kErrorCodesId = 34;
const std::uint32_t kLongestDelay = 60000; // ms

const Command kCommands[] = {
    {"state",
     kAll,
     1,
     1,
     kByte,
     {},
     [](Printer& printer, const Numbers& n) {
         printer.state = static_cast<std::uint8_t>(n[0]);
         return Problem();
     }},
    {"counters",
     kAll,
     3,
     3,
     kAnyNumber,
     {},
     [](Printer& printer, const Numbers& n) {
         std::copy(n.begin(), n.end(), printer.counters.begin());
         return Problem();
     }},
    {"flag",
     kAll,
     1,
     2,
     kByte,
     {},
     [](Printer& printer, const Numbers& n) {
         return Raise(printer, n[0], Condition::Flag, {n.size() > 1 ? n[1] : 1});
     }},
    {"array",
     kAll,
     2,
     1 + kByte,
     kByte,
     {},
     [](Printer& printer, const Numbers& n) {
         return Raise(printer, n[0], Condition::Array, Numbers(n.begin() + 1, n.end()));
     }},
    {"errors",
     kAll,
     1,
     kByte,
     kAnyNumber,
     {},
     [](Printer& printer, const Numbers& n) {
         return Raise(printer, kErrorCodesId, Condition::ErrorCodes, n);
     }},
    {"clear", kAll, 0, 1, kByte, {}, Clear},
    {"drop",
     kAll,
     1,
     1,
     0,
     {"off", "on"},
     [](Printer& printer, const Numbers& n) {
         printer.drop = n[0] != 0;
         return Problem();
     }},
    {"delay",
     kNetwork,
     1,
     1,
     kLongestDelay,
     {},
     [](Printer& printer, const Numbers& n) {
         printer.delay = std::chrono::milliseconds(n[0]);
         return Problem();
     }},
    {"malformed",
     kNetwork,
     1,
     1,
     0,
     {"off", "start", "code", "result", "short"},
     [](Printer& printer, const Numbers& n) {
         printer.malformed = static_cast<Malformed>(n[0]);
         return Problem();
     }},
    {"unplug",
     kUsb,
     0,
     0,
     0,
     {},
     [](Printer& printer, const Numbers&) {
         printer.plugged = false;
         return Problem();
     }},
    {"plug",
     kUsb,
     0,
     0,
     0,
     {},
     [](Printer& printer, const Numbers&) {
         printer.plugged = true;
         return Problem();
     }},
};

bool IsFor(Channel channel, const std::string& printer)
{
    return channel == kAll || (printer == kUsbPrinter) == (channel == kUsb);
}

/// Reads an argument of `command`; an empty text in `problem` says that it is good.
std::uint32_t ReadArgument(const Command& command, const std::string& word, Problem& problem)
{
    const std::vector<std::string>& choices = command.choices;
    if (!choices.empty()) {
        const auto choice = std::find(choices.begin(), choices.end(), word);
        if (choice == choices.end())
            problem = "\"" + word + "\" is not one of the choices that --help lists";
        return static_cast<std::uint32_t>(choice - choices.begin());
    }
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    if (error != std::errc() || end != word.data() + word.size() || number > command.limit)
        problem = "\"" + word + "\" is not a number from 0 to " + std::to_string(command.limit);
    return static_cast<std::uint32_t>(number);
}

} // namespace

std::string RunCommand(const std::string& line, std::vector<Printer>& printers)
{
    std::istringstream stream(line);
    std::vector<std::string> words((std::istream_iterator<std::string>(stream)), {});
    if (words.empty())
        return "";
    std::string target;
    for (const Printer& printer : printers) {
        if (words[0] == printer.name)
            target = printer.name;
    }
    if (!target.empty())
        words.erase(words.begin());

    if (words.empty())
        return "there is no command behind \"" + target + "\"";
    const std::string name = words[0];
    const Command* command =
        std::find_if(std::begin(kCommands), std::end(kCommands),
                     [&name](const Command& known) { return known.name == name; });
    if (command == std::end(kCommands))
        return "unknown command \"" + name + "\"\n" + kConsoleHelp;
    const size_t arguments = words.size() - 1;
    if (arguments < command->fewest || arguments > command->most) {
        const std::string fewest = std::to_string(command->fewest);
        const std::string most = std::to_string(command->most);
        return "\"" + name + "\" takes " + (fewest == most ? most : fewest + " to " + most) +
               (most == "1" ? " argument" : " arguments");
    }
    Problem problem;
    Numbers numbers;
    for (size_t i = 1; i < words.size() && problem.empty(); ++i)
        numbers.push_back(ReadArgument(*command, words[i], problem));
    if (!target.empty() && !IsFor(command->channel, target))
        return "\"" + name + "\" is not for the printer " + target;
    for (Printer& printer : printers) {
        const bool meant =
            target.empty() ? IsFor(command->channel, printer.name) : printer.name == target;
        if (problem.empty() && meant)
            problem = command->run(printer, numbers);
    }
    return problem;
}
