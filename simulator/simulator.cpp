// SPDX-License-Identifier: MIT

#include "simulator.h"

#include <algorithm>
#include <climits>
#include <iterator>

namespace
{

typedef QVector<quint32> Numbers;

const quint32 kByte = 255;
const quint32 kWord = UINT32_MAX;
const quint32 kErrorCodesId = 34;

void Clear(Printer& printer, quint32 id)
{
    QVector<Condition>& all = printer.conditions;
    const auto hasId = [id](const Condition& condition) { return condition.id == id; };
    all.erase(std::remove_if(all.begin(), all.end(), hasId), all.end());
}

/// Puts a condition after all others. Removes an earlier one with the same identifier.
void Raise(Printer& printer, quint32 id, Condition::Kind kind, const Numbers& values)
{
    Clear(printer, id);
    printer.conditions += {id, kind, values};
}

struct Command {
    const char* name;
    const char* takes; // arguments, all of them numbers
    int fewest;
    int most;
    quint32 limit; // of each number
    const char* help;
    void (*effect)(Printer& printer, const Numbers& n);
};

const Command kCommands[] = {
    {"state", "CODE", 1, 1, kByte, "1 warming up 2 printing 3 error 4 idle 5 sleeping 6 cancelling",
     [](Printer& printer, const Numbers& n) { printer.state = static_cast<quint8>(n[0]); }},
    {"counters", "ENGINE DRUM TONER", 3, 3, kWord, "pages printed",
     [](Printer& printer, const Numbers& n) { std::copy(n.begin(), n.end(), printer.counters); }},
    {"flag", "ID [VALUE]", 1, 2, kByte, "raise an on-off fault (VALUE: 1)",
     [](Printer& printer, const Numbers& n) {
         Raise(printer, n[0], Condition::Flag, {n.value(1, 1)});
     }},
    {"array", "ID STATE...", 2, INT_MAX, kByte,
     "raise a fault that has positions, one STATE for each",
     [](Printer& printer, const Numbers& n) { Raise(printer, n[0], Condition::Array, n.mid(1)); }},
    {"errors", "CODE...", 1, INT_MAX, kWord, "raise error codes",
     [](Printer& printer, const Numbers& n) {
         Raise(printer, kErrorCodesId, Condition::ErrorCodes, n);
     }},
    {"clear", "[ID]", 0, 1, kByte, "clear one fault (error codes: 34), or all",
     [](Printer& printer, const Numbers& n) {
         if (n.isEmpty())
             printer.conditions.clear();
         else
             Clear(printer, n[0]);
     }},
    {"off", "", 0, 0, 0, "switch off: no answers, not on the USB bus",
     [](Printer& printer, const Numbers&) { printer.on = false; }},
    {"on", "", 0, 0, 0, "switch on again",
     [](Printer& printer, const Numbers&) { printer.on = true; }},
};

const char kCommonNumbers[] =
    R"(Common faults:
  flag 14             toner low             flag 33             drum at the end of its life
  flag 4              no toner cartridge    flag 26             waste toner bin full
  array 6 0 1         jam, manual tray      array 9 1 0 1       front and duplex covers open
  array 6 0 0 0 1     jam, first sensor     array 10 0 1        main tray open
  array 12 1 0        main tray empty       array 28 0 1        main tray error
  errors 200031       out of toner          errors 500001       network lost)";

} // namespace

QString CommandHelp()
{
    QString help = "Commands, one per line. A line that starts with a printer's address, or with "
                   "\"usb\", goes to\nthat printer; any other goes to all of them.\n";
    for (const Command& command : kCommands) {
        help += QString("  %1 %2").arg(command.name, command.takes).leftJustified(30) +
                command.help + "\n";
    }
    return help + kCommonNumbers;
}

Simulator::Simulator(const QStringList& names)
{
    for (const QString& name : names)
        m_printers.push_back({name});
    for (const Printer& printer : m_printers) { // which must not move from now on
        if (printer.name == kUsbPrinter)
            m_bus = std::make_unique<UsbBus>(printer, m_lock);
        else
            m_ports.push_back(std::make_unique<NetworkPort>(printer));
    }
}

QString Simulator::Run(const QString& line)
{
    QStringList words = line.simplified().split(' ', Qt::SkipEmptyParts);
    if (words.isEmpty())
        return "";
    const auto isNamed = [&words](const Printer& printer) { return printer.name == words[0]; };
    QString target;
    if (std::any_of(m_printers.begin(), m_printers.end(), isNamed))
        target = words.takeFirst();
    if (words.isEmpty())
        return "no command after " + target + "; help lists them";
    const QString name = words.takeFirst();
    if (name == "help")
        return CommandHelp();
    const Command* command =
        std::find_if(std::begin(kCommands), std::end(kCommands),
                     [&name](const Command& known) { return name == known.name; });
    if (command == std::end(kCommands))
        return "unknown command \"" + name + "\"; help lists them";

    Numbers numbers;
    bool good = words.size() >= command->fewest && words.size() <= command->most;
    for (const QString& word : words) {
        bool isNumber = false;
        numbers += word.toUInt(&isNumber);
        good = good && isNumber && numbers.last() <= command->limit;
    }
    if (!good && command->most == 0)
        return name + " takes no arguments";
    if (!good)
        return QString("usage: %1 %2, with numbers from 0 to %3")
            .arg(name, command->takes, QString::number(command->limit));

    QString reply = "ok";
    const QMutexLocker guard(&m_lock);
    for (Printer& printer : m_printers) {
        if (!target.isEmpty() && target != printer.name)
            continue;
        const Printer before = printer;
        command->effect(printer, numbers);
        if (printer.HardwareState().isNull()) {
            printer = before;
            reply = "too many faults for one hardware state block";
        }
    }
    if (m_bus)
        m_bus->Update();
    return reply;
}
