// SPDX-License-Identifier: MIT

// Simulated printers on the network and on a USB bus of their own, driven from standard input.

#include "console.h"
#ifdef ORIOLE_USB_BUS
#include "usbbus.h"
#endif

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <mutex>
#include <netinet/in.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

typedef std::chrono::steady_clock Clock;

const std::uint16_t kCommandPort = 12105;
const int kSignalled = 128;      // exit status of a command that a signal ended, less its number
const size_t kLongestModel = 59; // bytes that a request frame of the monitor carries

const char kUsage[] = "Usage: oriole-simulator [--model NAME] [ADDRESS...] [--usb COMMAND...]\n"
                      "Each ADDRESS (127.0.0.1, 127.0.0.2, ...) is a network printer. --usb runs "
                      "COMMAND with\na printer on the USB bus and ends with it. With no command on "
                      "standard input the\nprinters play a tour.\n";

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

[[noreturn]] void Fail(const std::string& message)
{
    std::cerr << "oriole-simulator: " << message << std::endl;
    exit(EXIT_FAILURE);
}

/// Opens the command port of a network printer.
int OpenPort(const std::string& address)
{
    sockaddr_in local = {};
    local.sin_family = AF_INET;
    local.sin_port = htons(kCommandPort);
    if (inet_pton(AF_INET, address.c_str(), &local.sin_addr) != 1)
        Fail("\"" + address + "\" is not an IPv4 address");
    const int port = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (port < 0 || bind(port, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0)
        Fail("cannot listen on " + address + ": " + strerror(errno));
    return port;
}

/// Starts a command whose standard input is empty: this program's is for the printers.
pid_t Start(char** command, const sigset_t& signals)
{
    const pid_t child = fork();
    if (child == 0) {
        sigprocmask(SIG_UNBLOCK, &signals, nullptr);
        dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
        execvp(command[0], command);
        std::cerr << "oriole-simulator: " << command[0] << ": " << strerror(errno) << std::endl;
        _exit(127);
    }
    return child;
}

/// The printers at work: what they answer, what is typed for them, and the tour.
class Simulation
{
public:
    Simulation(const std::vector<std::string>& names, const std::string& model)
    {
        for (const std::string& name : names)
            m_printers.push_back({name, model});
    }

    std::vector<Printer>& Printers() { return m_printers; }
    std::mutex& Lock() { return m_lock; }

    int Timeout() const;
    void Receive(size_t printer, int port);
    void SendDue();
    void Type(const char* input, size_t size);
    void EndTyping();
    void GoOnWithTour();

private:
    /// An answer that waits for its time.
    struct LateAnswer {
        Clock::time_point due;
        int port;
        sockaddr_in to;
        Bytes frame;
    };

    std::vector<Printer> m_printers;
    std::mutex m_lock; // of m_printers, which the USB bus reads on a thread of its own
    std::vector<LateAnswer> m_late;
    std::string m_typed; // a line that has not ended yet
    int m_lineNumber = 0;
    size_t m_tourStep = 0;
    Clock::time_point m_nextStep = Clock::now();
};

/// Milliseconds until an answer or a step of the tour is due; -1: none.
int Simulation::Timeout() const
{
    Clock::time_point next = m_lineNumber == 0 ? m_nextStep : Clock::time_point::max();
    for (const LateAnswer& answer : m_late)
        next = std::min(next, answer.due);
    if (next == Clock::time_point::max())
        return -1;
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now());
    return static_cast<int>(std::max<std::int64_t>(0, wait.count()));
}

/// Takes the requests that wait at a network printer's port.
void Simulation::Receive(size_t printer, int port)
{
    const Printer& asked = m_printers[printer];
    std::uint8_t datagram[512];
    LateAnswer answer = {Clock::now() + asked.delay, port, {}, {}};
    socklen_t size = sizeof answer.to;
    ssize_t got = 0;
    while ((got = recvfrom(port, datagram, sizeof datagram, 0,
                           reinterpret_cast<sockaddr*>(&answer.to), &size)) >= 0) {
        std::string problem;
        const auto frame = asked.AnswerFrame(Bytes(datagram, datagram + got), problem);
        if (!frame) {
            std::cerr << asked.name << ": bad request: " << problem << std::endl;
        } else if (!asked.drop) {
            answer.frame = *frame;
            m_late.push_back(answer);
        }
    }
}

/// Sends the answers that are due, in the order in which they were asked for.
void Simulation::SendDue()
{
    const auto due = [now = Clock::now()](const LateAnswer& answer) { return answer.due <= now; };
    for (const LateAnswer& answer : m_late) {
        if (due(answer))
            sendto(answer.port, answer.frame.data(), answer.frame.size(), 0,
                   reinterpret_cast<const sockaddr*>(&answer.to), sizeof answer.to);
    }
    m_late.erase(std::remove_if(m_late.begin(), m_late.end(), due), m_late.end());
}

/// Takes what has been typed, and carries the lines out that are complete. The first one ends the
/// tour, and finds the printers as they were at the start.
void Simulation::Type(const char* input, size_t size)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    m_typed.append(input, size);
    for (size_t end = 0; (end = m_typed.find('\n')) != std::string::npos;) {
        if (m_lineNumber++ == 0) {
            for (Printer& printer : m_printers)
                printer = Printer{printer.name, printer.model};
        }
        const std::string problem = RunCommand(m_typed.substr(0, end), m_printers);
        m_typed.erase(0, end + 1);
        if (problem.empty())
            std::cout << "ok" << std::endl;
        else
            std::cerr << "line " << m_lineNumber << ": " << problem << std::endl;
    }
}

/// There is nothing more to come: a last line that has not ended ends here.
void Simulation::EndTyping()
{
    if (!m_typed.empty())
        Type("\n", 1);
}

void Simulation::GoOnWithTour()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    while (m_lineNumber == 0 && m_nextStep <= Clock::now()) {
        const TourStep& step = kTour[m_tourStep];
        m_tourStep = (m_tourStep + 1) % kTourSteps;
        m_nextStep += std::chrono::seconds(step.seconds);
        RunCommand(step.line, m_printers);
    }
}

} // namespace

int main(int argc, char* argv[])
{
    std::string model = "ORIOLE";
    std::vector<std::string> names;
    char** command = nullptr;
    for (int i = 1; i < argc && !command; ++i) {
        const std::string argument = argv[i];
        const bool hasValue = i + 1 < argc;
        if (argument == "--help") {
            std::cout << kUsage << kConsoleHelp;
            return EXIT_SUCCESS;
        }
        if (argument == "--usb" && hasValue) {
            command = argv + i + 1;
        } else if (argument == "--model" && hasValue) {
            model = argv[++i];
        } else if (argument[0] != '-') {
            names.push_back(argument);
        } else {
            Fail("\"" + argument + "\"?\n" + kUsage);
        }
    }
    if (model.empty() || model.size() > kLongestModel)
        Fail("a model name has 1 to 59 bytes");
    if (names.empty() && !command)
        Fail(std::string("which printers?\n") + kUsage);
    const size_t networkPrinters = names.size();
    if (command)
        names.push_back(kUsbPrinter);
    Simulation simulation(names, model);

    // Waited for: the end of this program or of its command, what is typed, and requests.
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGCHLD, SIGHUP, SIGINT, SIGTERM})
        sigaddset(&signals, number);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    struct sigaction ended = {};
    ended.sa_flags = SA_NOCLDSTOP; // a command that is only stopped has not ended
    sigaction(SIGCHLD, &ended, nullptr);
    std::vector<pollfd> sources = {{signalfd(-1, &signals, SFD_CLOEXEC), POLLIN, 0},
                                   {STDIN_FILENO, POLLIN, 0}};
    const size_t firstPort = sources.size();
    for (size_t i = 0; i < networkPrinters; ++i)
        sources.push_back({OpenPort(names[i]), POLLIN, 0});

    pid_t child = -1;
#ifdef ORIOLE_USB_BUS
    std::unique_ptr<UsbBus> bus;
    if (command) {
        bus = std::make_unique<UsbBus>(simulation.Printers().back(), simulation.Lock());
    }
#else
    if (command)
        Fail("built without a USB bus, since libumockdev was not found");
#endif
    std::cout << "ready" << std::endl;
    if (command)
        child = Start(command, signals);

    while (poll(sources.data(), sources.size(), simulation.Timeout()) >= 0 &&
           sources[0].revents == 0) {
        for (size_t i = 0; i < networkPrinters; ++i)
            simulation.Receive(i, sources[firstPort + i].fd);
        if (sources[1].revents != 0) {
            char input[4096];
            const ssize_t got = read(STDIN_FILENO, input, sizeof input);
            if (got > 0)
                simulation.Type(input, static_cast<size_t>(got));
            else {
                simulation.EndTyping();
                sources[1].fd = -1; // all goes on as it is
            }
        }
        simulation.GoOnWithTour();
#ifdef ORIOLE_USB_BUS
        if (bus)
            bus->Update();
#endif
        simulation.SendDue();
    }

    signalfd_siginfo end = {};
    if (read(sources[0].fd, &end, sizeof end) < 0)
        return EXIT_FAILURE;
    int status = 0;
    if (child > 0) {
        kill(child, SIGTERM); // of no effect when it has ended by itself
        waitpid(child, &status, 0);
    }
    if (end.ssi_signo != SIGCHLD)
        return EXIT_SUCCESS;
    return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalled + WTERMSIG(status);
}
