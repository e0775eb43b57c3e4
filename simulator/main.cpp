// SPDX-License-Identifier: MIT

// Simulated printers on the network and on a USB bus of their own, driven from standard input.

#include "simulator.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTimer>

#include <csignal>
#include <iostream>
#include <stdexcept>
#include <unistd.h>

namespace
{

const char kUsage[] =
    R"(Usage: oriole-simulator PRINTER...
Each PRINTER is the IPv4 address of one on the network (127.0.0.1, 127.0.0.2, ...), or "usb" for one
on a USB bus. Until a command is typed, the printers run through a demonstration.
)";

const int kWrongArguments = 2; // exit status

struct Step {
    int seconds; // before the next step
    const char* line;
};

const Step kDemonstration[] = {
    {0, "counters 1200 800 400"},
    {4, "state 4"}, // idle
    {4, "state 1"}, // warming up
    {2, "state 2"}, // printing
    {2, "counters 1201 801 401"},
    {2, "counters 1202 802 402"},
    {4, "flag 14"}, // toner low
    {0, "state 3"},
    {0, "array 9 1 0 0"},           // front cover open
    {8, "array 6 0 0 0 0 0 0 0 1"}, // jam at the registration sensor
    {0, "clear"},
    {6, "errors 200031 201604 500001"}, // out of toner, a fuser error, network lost
    {0, "clear"},
    {6, "state 5"}, // sleeping
};

int endPipe[2]; // a signal handler can do little besides writing to a pipe

void Say(const QString& line) { std::cout << line.toStdString() << std::endl; }

/// Reads typed commands; runs the demonstration until the first one succeeds.
class Console : public QObject
{
public:
    explicit Console(Simulator& simulator);

private:
    void ReadInput();
    void ContinueDemonstration();

    Simulator& m_simulator;
    QSocketNotifier m_input{STDIN_FILENO, QSocketNotifier::Read};
    QByteArray m_typed; // a line without its end
    QTimer m_demonstration;
    size_t m_step = 0;
};

Console::Console(Simulator& simulator) : m_simulator(simulator)
{
    connect(&m_input, &QSocketNotifier::activated, this, &Console::ReadInput);
    connect(&m_demonstration, &QTimer::timeout, this, &Console::ContinueDemonstration);
    ContinueDemonstration();
    if (m_simulator.HasBus())
        Say("to see the USB printer, run: UMOCKDEV_DIR=" + qgetenv("UMOCKDEV_DIR") +
            " umockdev-wrapper PROGRAM");
    Say("ready; type a command (help lists them), or press Ctrl-C to exit");
}

/// Takes what has been typed, and carries out its complete lines.
void Console::ReadInput()
{
    char input[4096];
    const ssize_t got = read(STDIN_FILENO, input, sizeof input);
    if (got < 0) { // in the background of a shell; may return to the foreground
        m_input.setEnabled(false);
        QTimer::singleShot(1000, &m_input, [this] { m_input.setEnabled(true); });
        return;
    }
    m_typed.append(input, static_cast<int>(got));
    if (got == 0) { // the end of the input also ends its last line
        m_input.setEnabled(false);
        m_typed += '\n';
    }
    while (m_typed.contains('\n')) {
        const int end = static_cast<int>(m_typed.indexOf('\n'));
        const QString reply = m_simulator.Run(QString::fromUtf8(m_typed.left(end)));
        m_typed.remove(0, end + 1);
        if (reply == "ok")
            m_demonstration.stop();
        if (!reply.isEmpty())
            Say(reply);
    }
}

void Console::ContinueDemonstration()
{
    int seconds = 0;
    while (seconds == 0) {
        m_simulator.Run(kDemonstration[m_step].line);
        seconds = kDemonstration[m_step].seconds;
        m_step = (m_step + 1) % std::size(kDemonstration);
    }
    m_demonstration.start(seconds * 1000);
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    QStringList names = QCoreApplication::arguments().mid(1);
    names.removeDuplicates();
    if (names.contains("--help")) {
        Say(kUsage + CommandHelp());
        return EXIT_SUCCESS;
    }
    if (names.isEmpty() || !names.filter("-").isEmpty()) {
        std::cerr << kUsage;
        return kWrongArguments;
    }
    signal(SIGTTIN, SIG_IGN); // let reading in the background fail instead of stopping us
    try {
        if (pipe(endPipe) != 0)
            throw std::runtime_error("cannot make a pipe");
        QSocketNotifier end(endPipe[0], QSocketNotifier::Read);
        QObject::connect(&end, &QSocketNotifier::activated, qApp, &QCoreApplication::quit);
        // A signal that killed the program would leave its USB bus's folder behind.
        for (const int number : {SIGHUP, SIGINT, SIGTERM})
            signal(number, [](int) { (void)!write(endPipe[1], "", 1); });
        Simulator simulator(names);
        const Console console(simulator);
        return QCoreApplication::exec();
    } catch (const std::runtime_error& problem) {
        std::cerr << "oriole-simulator: " << problem.what() << std::endl;
        return EXIT_FAILURE;
    }
}
