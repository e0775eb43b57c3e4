// SPDX-License-Identifier: MIT

// Listing the print queues of the monitored model, and selecting the one to watch.

#include "mainwindow.h"
#include "ui_mainwindow.h"

#include <QDebug>
#include <QRegExp>
#include <QStandardItemModel>
#include <QStringList>
#include <QTimer>

#include <cerrno>
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

/// A file descriptor, closed at the end of its scope at the latest.
struct Descriptor {
    int fd;
    explicit Descriptor(int descriptor) : fd(descriptor) {}
    ~Descriptor() { Close(); }
    void Close()
    {
        if (fd >= 0)
            close(fd);
        fd = -1;
    }
    Q_DISABLE_COPY(Descriptor)
};

/// The reader: a process that empties the command's pipe while the monitor waits for the command,
/// which could otherwise write no more than a pipe holds. When the monitor ends its side of
/// `monitor`, the reader sends it the first kCaptureSize bytes of the output.
[[noreturn]] void ReadOutput(int pipe, int monitor)
{
    char bytes[4 * kCaptureSize]; // what is read behind the first kCaptureSize is overwritten
    size_t kept = 0;
    // In this order: all that the command wrote is in the pipe before the monitor's end is seen.
    pollfd sources[] = {{monitor, POLLIN, 0}, {pipe, POLLIN, 0}};
    while (TEMP_FAILURE_RETRY(poll(sources, 2, -1)) > 0) {
        // A program that the command left behind may go on writing; that is not waited for.
        const bool ended = sources[0].revents != 0;
        if (ended && (sources[1].revents == 0 || kept == kCaptureSize))
            break;
        const ssize_t got = TEMP_FAILURE_RETRY(read(pipe, bytes + kept, sizeof bytes - kept));
        if (got <= 0)
            break;
        kept = qMin(kept + static_cast<size_t>(got), kCaptureSize);
    }
    _exit(TEMP_FAILURE_RETRY(write(monitor, bytes, kept)) < 0 ? EXIT_FAILURE : EXIT_SUCCESS);
}

/// Runs kListCommand with its standard output caught in a pipe, and waits for its end.
/// @param output  kCaptureSize zero bytes; receives the first bytes that the command wrote
/// @return whether the command was run and ended with status 0, and its output could be read
bool CaptureQueues(char* output)
{
    int ends[2];
    if (pipe(ends) != 0)
        return false;
    Descriptor readEnd(ends[0]);
    Descriptor writeEnd(ends[1]);
    // Over this the monitor tells the reader that the command has ended, and gets its output.
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        return false;
    Descriptor monitorEnd(ends[0]);
    Descriptor readerEnd(ends[1]);
    const Descriptor saved(dup(STDOUT_FILENO));
    if (saved.fd < 0 || fcntl(saved.fd, F_SETFD, FD_CLOEXEC) != 0)
        return false;
    const pid_t reader = fork();
    if (reader < 0)
        return false;
    if (reader == 0) {
        monitorEnd.Close(); // the reader's copy would hide the monitor's death from it
        ReadOutput(readEnd.fd, readerEnd.fd);
    }
    // Now the reader alone can read: if it dies, writing ends the command by SIGPIPE.
    readEnd.Close();
    readerEnd.Close();

    int status = -1;
    if (dup2(writeEnd.fd, STDOUT_FILENO) >= 0) {
        writeEnd.Close(); // the command has the pipe as its standard output only
        status = system(kListCommand);
        dup2(saved.fd, STDOUT_FILENO);
    }
    shutdown(monitorEnd.fd, SHUT_WR);
    int readerStatus = -1;
    TEMP_FAILURE_RETRY(waitpid(reader, &readerStatus, 0));
    return status == 0 && readerStatus == 0 &&
           TEMP_FAILURE_RETRY(read(monitorEnd.fd, output, kCaptureSize)) >= 0;
}

/// The model word, a pattern: the first kModelWordSize bytes of type.dat, up to a zero byte. It is
/// "ORIOLE" when that file is empty, or cannot be opened for reading and writing.
QString ReadModelFilter()
{
    QString filter("ORIOLE");
    if (FILE* file = fopen("type.dat", "r+")) {
        char word[kModelWordSize + 1] = {};
        if (fread(word, 1, kModelWordSize, file) > 0)
            filter = QString(word);
        qDebug() << filter;
        fclose(file);
    }
    return filter;
}

/// Port text of a queue: "usb", the address of a socket, or empty.
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
    // Unique: only the first listing that gets here makes the connection.
    connect(ui->tableView, SIGNAL(clicked(QModelIndex)), this, SLOT(GetSelectPrinterInfo()),
            Qt::UniqueConnection);
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
#if QT_VERSION >= 0x050000 // where a timer may otherwise tick up to 5 % too early; Qt 4's does not
    m_pTimer->setTimerType(Qt::PreciseTimer);
#endif
    m_pTimer->start(kPollInterval);
    m_nTimerId = m_pTimer->timerId();
    connect(m_pTimer, SIGNAL(timeout()), this, SLOT(OntimerOut()));
}
