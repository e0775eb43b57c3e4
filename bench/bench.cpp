// SPDX-License-Identifier: MIT

// What scripts/bench runs. Each mode prints one number, or a number and the peak memory in KiB. It
// is built without access control: it calls the slots as the event loop would.

#include "console.h"
#include "mainwindow.h"
#include "ui_mainwindow.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTimer>
#include <QWindow>

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <sys/resource.h>
#include <unistd.h>

namespace
{

double Seconds(clockid_t clock)
{
    timespec now;
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// Ends the program when the window is first exposed; prints the milliseconds since `start`.
class FirstExposure : public QObject
{
public:
    explicit FirstExposure(double start) : m_start(start) {}
    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() == QEvent::Expose) {
            rusage usage;
            getrusage(RUSAGE_SELF, &usage);
            printf("%.1f %ld\n", (Seconds(CLOCK_REALTIME) - m_start) * 1e3, usage.ru_maxrss);
            fflush(stdout);
            _exit(EXIT_SUCCESS);
        }
        return false;
    }

private:
    double m_start;
};

/// Shows `window`, which has been started at `start` (s since 1970).
[[noreturn]] void Start(QMainWindow& window, const char* start)
{
    FirstExposure exposure(QByteArray(start).toDouble());
    window.show();
    window.windowHandle()->installEventFilter(&exposure);
    QApplication::exec();
    abort();
}

/// Processor time in ms of one call of `tick` and of painting what it changed: the median of some.
/// @param prepare  called before each tick; not counted
double Cost(MainWindow& window, const std::function<void()>& prepare,
            const std::function<void()>& tick)
{
    window.m_pTimer->stop(); // no other ticks than these
    window.show();
    QApplication::processEvents();
    std::vector<double> costs;
    for (int i = 0; i < 15; ++i) {
        prepare();
        const double before = Seconds(CLOCK_THREAD_CPUTIME_ID);
        tick();
        QApplication::processEvents();
        costs.push_back((Seconds(CLOCK_THREAD_CPUTIME_ID) - before) * 1e3);
    }
    std::sort(costs.begin(), costs.end());
    return costs[costs.size() / 2];
}

/// A network tick whose answers are there before it asks, so that no wait is counted.
void NetworkTick(MainWindow& window)
{
    Console console({"printer"}, "ORIOLE");
    console.Run("flag 14");
    window.m_nPortType = MainWindow::kNetworkPort;
    window.m_strPrinterIp = "127.0.0.1";
    window.OntimerOut();
    sockaddr_in address = {AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t size = sizeof address;
    if (bind(window.m_nSocket, reinterpret_cast<sockaddr*>(&address), size) != 0)
        abort();
    getsockname(window.m_nSocket, reinterpret_cast<sockaddr*>(&address), &size);
    strcpy(window.m_szModelName, "ORIOLE");
    const int printer = socket(AF_INET, SOCK_DGRAM, 0);
    int pages = 0;
    const auto prepare = [&] {
        console.Run(QString("counters %1 2 3").arg(++pages));
        for (const char* request :
             {"C1000B144F52494F4C45AA", "C1000B134F52494F4C45A9", "C1000B124F52494F4C45A8"}) {
            QString problem;
            const QByteArray answer =
                console.Printers()[0].AnswerFrame(QByteArray::fromHex(request), problem);
            sendto(printer, answer.constData(), answer.size(), 0,
                   reinterpret_cast<const sockaddr*>(&address), sizeof address);
        }
    };
    printf("%.2f\n", Cost(window, prepare, [&window] { window.OntimerOut(); }));
    close(printer);
}

/// The tick that reads a USB printer, without what the simulated bus takes to carry the requests.
void UsbTick(MainWindow& window)
{
    Console console({kUsbPrinter}, "ORIOLE");
    console.Run("flag 14");
    window.m_nPortType = MainWindow::kUsbPort;
    int pages = 0;
    const auto prepare = [&] {
        console.Run(QString("counters %1 2 3").arg(++pages));
        if (window.GetUsbPrinterHandle() != 1)
            abort();
    };
    const double tick = Cost(window, prepare, [&window] { window.OntimerOut(); });
    const double bus = Cost(window, prepare, [&window] {
        unsigned char answer[MainWindow::kUsbAnswerSize];
        for (const auto request :
             {MainWindow::kModelNameRequest, MainWindow::kPageCountersRequest,
              MainWindow::kPrinterStateRequest, MainWindow::kHardwareStateRequest})
            window.RequestUsb(request, answer);
        window.CloseUsbPrinter();
    });
    printf("%.2f\n", tick - bus);
}

/// Seconds from a change of the printer's state, which goes to `commands`, to its text: the mean.
void Change(const MainWindow& window, const char* commands)
{
    QFile file(commands);
    file.open(QFile::WriteOnly | QFile::Unbuffered);
    double sum = 0;
    const int changes = 8;
    for (int i = -1; i < changes; ++i) { // the first one waits for the printer to be shown
        QElapsedTimer elapsed;
        for (elapsed.start(); elapsed.elapsed() < i * 700;) // at another moment of the poll
            QApplication::processEvents(QEventLoop::AllEvents, 10);
        const QString text = i % 2 == 0 ? "打印中" : "空闲";
        file.write(i % 2 == 0 ? "state 2\n" : "state 4\n");
        elapsed.start();
        while (window.ui->PrinterStatus->text() != text && elapsed.elapsed() < 60000)
            QApplication::processEvents(QEventLoop::AllEvents, 10);
        if (elapsed.elapsed() >= 60000)
            abort();
        sum += i < 0 ? 0 : static_cast<double>(elapsed.elapsed()) / 1e3;
    }
    printf("%.1f\n", sum / changes);
}

} // namespace

int main(int argc, char* argv[])
{
    QApplication application(argc, argv);
    const QByteArray mode = argv[1];
    if (mode == "bare") {
        QMainWindow window;
        Ui_MainWindow().setupUi(&window);
        if (system("lpstat -v >/dev/null") != 0)
            return EXIT_FAILURE;
        Start(window, argv[2]);
    }
    MainWindow window(nullptr);
    if (mode == "monitor")
        Start(window, argv[2]);
    if (mode == "network-tick")
        NetworkTick(window);
    else if (mode == "usb-tick")
        UsbTick(window);
    else
        Change(window, argv[2]);
    return EXIT_SUCCESS;
}
