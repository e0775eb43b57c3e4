// SPDX-License-Identifier: MIT

// Simulated printers on the network and on a USB bus of their own, driven from standard input.

#include "console.h"
#include "networkport.h"

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
on a USB bus. Until a command is typed, the printers play a tour.
)";

struct TourStep {
    int seconds; // that pass before the next step
    const char* line;
};

const TourStep kTour[] = {
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
const size_t kTourSteps = sizeof kTour / sizeof kTour[0];

int endPipe[2]; // a signal handler may write to a pipe, and do little else

void Say(const QString& line) { std::cout << line.toStdString() << std::endl; }

/// The printers at work, and the tour that they play until a command is carried out.
class Simulation : public QObject
{
public:
    explicit Simulation(const QStringList& names);

private:
    void ReadInput();
    void GoOnWithTour();

    Console m_console;
    std::vector<std::unique_ptr<NetworkPort>> m_ports;
    QSocketNotifier m_input{STDIN_FILENO, QSocketNotifier::Read};
    QByteArray m_typed; // a line that has not ended yet
    QTimer m_tour;
    size_t m_tourStep = 0;
};

Simulation::Simulation(const QStringList& names) : m_console(names)
{
    for (const Printer& printer : m_console.Printers()) {
        if (printer.name == kUsbPrinter)
            continue;
        m_ports.push_back(std::make_unique<NetworkPort>(printer));
        NetworkPort* port = m_ports.back().get();
        if (!port->Open())
            throw std::runtime_error("no printer can be at " + printer.name.toStdString() +
                                     ": simulated printers are running already, or it is "
                                     "no address of this machine");
        connect(port, &NetworkPort::readyRead, port, &NetworkPort::Answer);
    }
    connect(&m_input, &QSocketNotifier::activated, this, &Simulation::ReadInput);
    connect(&m_tour, &QTimer::timeout, this, &Simulation::GoOnWithTour);
    GoOnWithTour();
    if (m_console.HasBus())
        Say("the USB printer is seen by: UMOCKDEV_DIR=" + qgetenv("UMOCKDEV_DIR") +
            " umockdev-wrapper PROGRAM");
    Say("ready; type commands (help lists them), or Ctrl-C to end");
}

/// Takes what has been typed, and carries out the lines that are complete.
void Simulation::ReadInput()
{
    char input[4096];
    const ssize_t got = read(STDIN_FILENO, input, sizeof input);
    m_input.setEnabled(got > 0);
    if (got < 0) // in the background of a shell, which may bring this program back
        QTimer::singleShot(1000, &m_input, [this] { m_input.setEnabled(true); });
    else
        m_typed += got > 0 ? QByteArray(input, static_cast<int>(got)) : "\n";
    for (int end = 0; (end = m_typed.indexOf('\n')) >= 0; m_typed.remove(0, end + 1)) {
        const QString reply = m_console.Run(QString::fromUtf8(m_typed.left(end)));
        if (reply == "ok")
            m_tour.stop();
        if (!reply.isEmpty())
            Say(reply);
    }
}

void Simulation::GoOnWithTour()
{
    int seconds = 0;
    while (seconds == 0) {
        m_console.Run(kTour[m_tourStep].line);
        seconds = kTour[m_tourStep].seconds;
        m_tourStep = (m_tourStep + 1) % kTourSteps;
    }
    m_tour.start(seconds * 1000);
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    QStringList names = QCoreApplication::arguments().mid(1);
    names.removeDuplicates();
    if (names.isEmpty() || !names.filter("-").isEmpty()) {
        Say(kUsage + ConsoleHelp());
        return names.contains("--help") ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    signal(SIGTTIN, SIG_IGN); // reading in the background is to fail, and not to stop the program
    try {
        if (pipe(endPipe) != 0)
            throw std::runtime_error("cannot make a pipe");
        QSocketNotifier end(endPipe[0], QSocketNotifier::Read);
        QObject::connect(&end, &QSocketNotifier::activated, qApp, &QCoreApplication::quit);
        for (const int number : {SIGHUP, SIGINT, SIGTERM})
            signal(number, [](int) { (void)!write(endPipe[1], "", 1); });
        Simulation simulation(names);
        return QCoreApplication::exec();
    } catch (const std::runtime_error& problem) {
        std::cerr << "oriole-simulator: " << problem.what() << std::endl;
        return EXIT_FAILURE;
    }
}
