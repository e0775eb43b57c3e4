// SPDX-License-Identifier: MIT

#include "console.h"

#include <algorithm>
#include <climits>
#include <iterator>

namespace
{

typedef QVector<quint32> Numbers;

/// The printers that a command is for.
enum Channel { kAll, kNetwork, kUsb };

struct Command {
    const char* name;
    Channel channel;
    const char* takes; // arguments; [optional], one or more..., or one|of|these|words
    quint32 limit;     // of each number
    const char* help;
};

const quint32 kByte = 255;
const quint32 kErrorCodesId = 34;

const Command kCommands[] = {
    {"state", kAll, "CODE", kByte,
     "1 warming up 2 printing 3 error 4 idle 5 sleeping 6 cancelling"},
    {"counters", kAll, "ENGINE DRUM TONER", UINT32_MAX, "pages printed"},
    {"flag", kAll, "ID [VALUE]", kByte, "raise a fault that is on or off (VALUE: 1)"},
    {"array", kAll, "ID STATE...", kByte, "raise a fault that has positions, one STATE each"},
    {"errors", kAll, "CODE...", UINT32_MAX, "raise error codes"},
    {"raw", kAll, "HEX...", 0, "tell these bytes as the whole hardware state"},
    {"frame", kNetwork, "HEX...", 0, "answer every request with these bytes (network)"},
    {"clear", kAll, "[ID]", kByte, "clear one fault (error codes: 34), or all; end raw and frame"},
    {"drop", kAll, "on|off", 0, "give no answers; over USB, never complete a request"},
    {"delay", kNetwork, "MS", 60000, "answer late (network)"},
    {"malformed", kNetwork, "start|code|result|short|off", 0, "spoil the answers (network)"},
    {"stall", kUsb, "17|51|68|0|off", 0, "make one request fail (USB)"},
    {"empty", kUsb, "17|51|68|0|off", 0, "answer one request without a byte (USB)"},
    {"unplug", kUsb, "", 0, "take the printer off the bus (USB)"},
    {"plug", kUsb, "", 0, "put it back (USB)"},
};

const char kCommonNumbers[] =
    R"(Common faults:
  flag 14             toner low             flag 33             drum at the end of its life
  flag 4              no toner cartridge    flag 26             waste toner bin full
  array 6 0 1         jam, manual tray      array 9 1 0 1       front and duplex covers open
  array 6 0 0 0 1     jam, first sensor     array 10 0 1        main tray open
  array 12 1 0        main tray empty       array 28 0 1        main tray error
  errors 200031       out of toner          errors 500001       network lost
)";

QString Usage(const Command& command)
{
    const QString takes = *command.takes ? command.takes : "no arguments";
    return QString(command.name) + " takes " + takes +
           (command.limit ? ", each from 0 to " + QString::number(command.limit) : "");
}

/// Whether `words` are arguments that `command` takes. Fills `numbers` when they are numbers.
bool ReadArguments(const Command& command, const QStringList& words, Numbers& numbers)
{
    const QString takes = command.takes;
    if (takes.contains('|'))
        return words.size() == 1 && takes.split('|').contains(words[0]);
    if (takes == "HEX...") {
        const QByteArray hex = words.join("").toUtf8();
        return !hex.isEmpty() && QByteArray::fromHex(hex).toHex() == hex.toLower();
    }
    const int most = takes.endsWith("...") ? INT_MAX : takes.split(' ', Qt::SkipEmptyParts).size();
    const int fewest = takes.split(' ', Qt::SkipEmptyParts).size() - takes.count('[');
    for (const QString& word : words) {
        bool good = false;
        numbers += word.toUInt(&good);
        if (!good || numbers.last() > command.limit)
            return false;
    }
    return numbers.size() >= fewest && numbers.size() <= most;
}

void Clear(Printer& printer, quint32 id)
{
    QVector<Condition>& all = printer.conditions;
    const auto hasId = [id](const Condition& condition) { return condition.id == id; };
    all.erase(std::remove_if(all.begin(), all.end(), hasId), all.end());
}

/// Puts a condition behind all others, in the place of one with the same identifier.
QString Raise(Printer& printer, const Condition& condition)
{
    const Printer before = printer;
    Clear(printer, condition.id);
    printer.conditions += condition;
    if (!printer.HardwareState().isEmpty())
        return "ok";
    printer = before;
    return "the hardware state has no room for it";
}

/// Carries a command out on one printer; returns the reply.
QString Apply(const QString& name, const QStringList& words, const Numbers& n, Printer& printer)
{
    if (name == "state") {
        printer.state = static_cast<quint8>(n[0]);
    } else if (name == "counters") {
        std::copy(n.begin(), n.end(), printer.counters);
    } else if (name == "flag") {
        return Raise(printer, {n[0], Condition::Flag, {n.value(1, 1)}});
    } else if (name == "array") {
        return Raise(printer, {n[0], Condition::Array, n.mid(1)});
    } else if (name == "errors") {
        return Raise(printer, {kErrorCodesId, Condition::ErrorCodes, n});
    } else if (name == "raw") {
        printer.raw = QByteArray::fromHex(words.join("").toUtf8());
    } else if (name == "frame") {
        printer.frame = QByteArray::fromHex(words.join("").toUtf8());
    } else if (name == "clear") {
        printer.raw.clear();
        printer.frame.clear();
        n.isEmpty() ? printer.conditions.clear() : Clear(printer, n[0]);
    } else if (name == "drop") {
        printer.drop = words[0] == "on";
    } else if (name == "delay") {
        printer.delay = static_cast<int>(n[0]);
    } else if (name == "malformed") {
        printer.malformed = words[0];
    } else if (name == "stall") {
        printer.stalled = words[0] == "off" ? -1 : words[0].toInt();
    } else if (name == "empty") {
        printer.empty = words[0] == "off" ? -1 : words[0].toInt();
    } else {
        printer.plugged = name == "plug";
    }
    return "ok";
}

} // namespace

QString ConsoleHelp()
{
    QString help = "Commands, one a line. A line that begins with a printer's address, or with "
                   "\"usb\", goes to\nthat printer; any other goes to all of them.\n";
    for (const Command& command : kCommands) {
        help += QString("  %1 %2").arg(command.name, command.takes).leftJustified(40) +
                command.help + "\n";
    }
    return help + kCommonNumbers;
}

Console::Console(const QStringList& names, const QByteArray& model)
{
    for (const QString& name : names)
        m_printers.push_back({name, model});
    for (const Printer& printer : m_printers) {
        if (printer.name == kUsbPrinter)
            m_bus = std::make_unique<UsbBus>(printer, m_lock);
    }
}

QString Console::Run(const QString& line)
{
    QStringList words = line.split(' ', Qt::SkipEmptyParts);
    if (words.isEmpty())
        return "";
    if (words[0] == "help")
        return ConsoleHelp();
    QString target;
    for (const Printer& printer : m_printers) {
        if (words[0] == printer.name)
            target = words.takeFirst();
    }
    const QString name = words.isEmpty() ? "" : words.takeFirst();
    const Command* command =
        std::find_if(std::begin(kCommands), std::end(kCommands),
                     [&name](const Command& known) { return name == known.name; });
    if (command == std::end(kCommands))
        return "\"" + name + "\" is no command; help lists them";
    Numbers numbers;
    if (!ReadArguments(*command, words, numbers))
        return Usage(*command);

    QString reply = name + " is not for this printer";
    const QMutexLocker guard(&m_lock);
    for (Printer& printer : m_printers) {
        const Channel channel = printer.name == kUsbPrinter ? kUsb : kNetwork;
        if ((target.isEmpty() || target == printer.name) &&
            (command->channel == kAll || command->channel == channel))
            reply = Apply(name, words, numbers, printer);
    }
    if (m_bus)
        m_bus->Update();
    return reply;
}
