// SPDX-License-Identifier: MIT

// Listing the print queues of the monitored model, and selecting the one to watch.

#include "mainwindow.h"
#include "ui_mainwindow.h"

#include <QDebug>
#include <QRegExp>
#include <QStandardItemModel>
#include <QStringList>
#include <QTimer>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

const char kListCommand[] = "lpstat -v";
const size_t kCaptureSize = 1024; // bytes of the command's output that count
const size_t kModelWordSize = 64; // bytes of type.dat that count
const int kMaxRows = 10;
const int kPollInterval = 2000; // ms

enum Column { kNameColumn, kPortColumn };

/// A file descriptor that is closed at the end of its scope.
struct Descriptor {
    const int fd;
    explicit Descriptor(int descriptor) : fd(descriptor) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor()
    {
        if (fd >= 0)
            close(fd);
    }
};

/// Body of the process that keeps the command's pipe from filling up while the monitor waits for
/// the command: reads `pipe` until `monitor` is shut down at its far end, then hands the first
/// kCaptureSize bytes over. What a program left behind by the command writes later is not read.
[[noreturn]] void KeepOutput(int pipe, int monitor)
{
    char kept[kCaptureSize];
    char dropped[4096];
    size_t size = 0;
    // The monitor comes first: once it is seen to be shut down, all that the command wrote is seen.
    pollfd sources[] = {{monitor, POLLIN, 0}, {pipe, POLLIN, 0}};
    while (poll(sources, 2, -1) > 0) {
        const bool ended = sources[0].revents != 0;
        const bool full = size == sizeof kept;
        if (ended && (full || sources[1].revents == 0))
            break;
        const ssize_t got = full ? read(pipe, dropped, sizeof dropped)
                                 : read(pipe, kept + size, sizeof kept - size);
        if (got <= 0)
            break;
        if (!full)
            size += static_cast<size_t>(got);
    }
    _exit(write(monitor, kept, size) < 0 ? EXIT_FAILURE : EXIT_SUCCESS);
}

/// Runs kListCommand with its standard output caught in a pipe, and waits for its end.
/// @param output  kCaptureSize zero bytes; receives what the command wrote first
/// @return whether the command could be run and ended with status 0
bool CaptureQueues(char* output)
{
    int ends[2];
    if (pipe(ends) != 0)
        return false;
    const Descriptor readEnd(ends[0]);
    const Descriptor writeEnd(ends[1]);
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0)
        return false;
    const Descriptor monitorEnd(ends[0]);
    const Descriptor keeperEnd(ends[1]);
    const Descriptor saved(dup(STDOUT_FILENO));
    if (saved.fd < 0)
        return false;
    // Neither of them is for the command, nor for what it may leave behind.
    fcntl(readEnd.fd, F_SETFD, FD_CLOEXEC);
    fcntl(saved.fd, F_SETFD, FD_CLOEXEC);
    const pid_t keeper = fork();
    if (keeper < 0)
        return false;
    if (keeper == 0) {
        close(monitorEnd.fd); // so that the monitor's death ends the keeper, too
        KeepOutput(readEnd.fd, keeperEnd.fd);
    }

    int status = -1;
    if (dup2(writeEnd.fd, STDOUT_FILENO) >= 0)
        status = system(kListCommand);
    shutdown(monitorEnd.fd, SHUT_WR);
    waitpid(keeper, nullptr, 0);
    // What the keeper has kept stands ready. When that is nothing the read fails, without a wait,
    // and there is no output.
    if (status == 0 && read(monitorEnd.fd, output, kCaptureSize) < 0)
        output[0] = '\0';
    dup2(saved.fd, STDOUT_FILENO);
    return status == 0;
}

/// The model word, a pattern: the first bytes of type.dat, up to kModelWordSize or a zero byte; or
/// "ORIOLE" when that file is empty or cannot be opened for reading and writing.
QString ReadModelFilter()
{
    QString filter("ORIOLE");
    if (FILE* file = fopen("type.dat", "r+")) {
        char word[kModelWordSize + 1] = {};
        if (fread(word, 1, kModelWordSize, file) > 0) {
            filter = QString(word);
            qDebug() << filter;
        }
        fclose(file);
    }
    return filter;
}

/// Port text of a queue's line: "usb", the address of a socket, or empty.
QString PortText(const QString& head, const QString& address)
{
    if (head.contains("usb"))
        return "usb";
    if (head.contains("socket"))
        return address.split(":").value(0);
    return QString();
}

/// Queue name in a line's head: "device for NAME: usb", or in other languages "… NAME …：usb".
QString QueueName(const QString& head)
{
    const QStringList words = head.split(" ");
    return head.contains(": ") ? words.value(2).remove(":") : words.value(1);
}

} // namespace

void MainWindow::GetPrinterInfoByCommand()
{
    ui->PrinterStatus->setText(kOfflineText);
    CloseSocket();
    CloseUsbPrinter();

    const QRegExp model(ReadModelFilter());
    char output[kCaptureSize + 1] = {};
    if (!CaptureQueues(output))
        return;

    int row = 0;
    const QStringList lines = QString(output).split("\n");
    for (int i = 0; i < lines.size() && row < kMaxRows; ++i) {
        if (model.indexIn(lines[i]) < 0)
            continue;
        if (row == 0)
            m_pModel->removeRows(0, m_pModel->rowCount());
        // "device for NAME: SCHEME://ADDRESS"
        const QStringList parts = lines[i].split("://");
        const QString head = parts.value(0);
        m_pModel->setItem(row, kNameColumn, new QStandardItem(QueueName(head)));
        m_pModel->setItem(row, kPortColumn, new QStandardItem(PortText(head, parts.value(1))));
        ++row;
    }

    GetSelectPrinterInfo();
    // Made by the first listing that gets here, and by no later one.
    connect(ui->tableView, SIGNAL(clicked(QModelIndex)), this, SLOT(GetSelectPrinterInfo()),
            static_cast<Qt::ConnectionType>(Qt::AutoConnection | Qt::UniqueConnection));
}

void MainWindow::GetSelectPrinterInfo()
{
    m_nPortType = kNoPort;
    int row = ui->tableView->currentIndex().row();
    if (row < 0) {
        ui->tableView->selectRow(0);
        row = 0;
    }
    ShowOffline();

    const QModelIndex port = ui->tableView->model()->index(row, kPortColumn);
    const QString portText = port.data(Qt::DisplayRole).toString();
    if (portText.contains("usb")) {
        m_nPortType = kUsbPort;
    } else {
        m_nPortType = kNetworkPort;
        m_strPrinterIp = portText;
        qDebug() << m_strPrinterIp;
    }

    if (m_nTimerId > 0) {
        m_pTimer->stop();
        delete m_pTimer;
        m_nTimerId = 0;
    }
    m_pTimer = new QTimer;
    m_pTimer->setInterval(kPollInterval);
    m_pTimer->start();
    m_nTimerId = m_pTimer->timerId();
    connect(m_pTimer, SIGNAL(timeout()), this, SLOT(OntimerOut()));
}
