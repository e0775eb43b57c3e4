// SPDX-License-Identifier: MIT

// Listing the print queues of the monitored model, and selecting the one to watch.

#include "mainwindow.h"
#include "ui_mainwindow.h"

#include <QDebug>
#include <QRegExp>
#include <QStandardItemModel>
#include <QStringList>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <optional>
#include <unistd.h>

namespace
{

const char kListCommand[] = "lpstat -v";
const size_t kCaptureSize = 1024; // bytes of the command's output that count
const int kPipeSize = 1 << 20;    // bytes that it can write; a write beyond them fails
const size_t kModelWordSize = 64; // bytes of type.dat that count
const int kMaxRows = 10;

/// Runs kListCommand, catches its standard output in a pipe, and waits until it has ended.
/// @return the first kCaptureSize bytes that it wrote, up to a zero byte; nothing if it could not
///         be run or failed
std::optional<QString> CaptureQueues()
{
    int ends[2];
    if (pipe(ends) != 0)
        return std::nullopt;
    // The pipe is read after the command has ended, so neither side may block.
    for (const int end : ends)
        fcntl(end, F_SETFL, O_NONBLOCK);
    fcntl(ends[1], F_SETPIPE_SZ, kPipeSize); // if that fails, the pipe holds less
    const int saved = dup(STDOUT_FILENO);
    // The command inherits none of these; the pipe is only its standard output.
    for (const int descriptor : {ends[0], ends[1], saved})
        fcntl(descriptor, F_SETFD, FD_CLOEXEC);

    std::optional<QString> output;
    if (saved >= 0 && dup2(ends[1], STDOUT_FILENO) >= 0) {
        if (system(kListCommand) == 0) {
            char bytes[kCaptureSize + 1] = {};
            const bool wrote = read(ends[0], bytes, kCaptureSize) > 0;
            output = wrote ? QString(bytes) : QString();
        }
        dup2(saved, STDOUT_FILENO);
    }
    for (const int descriptor : {ends[0], ends[1], saved})
        close(descriptor);
    return output;
}

/// The model word, a pattern: the first kModelWordSize bytes of type.dat, up to a zero byte. It is
/// "ORIOLE" when that file is empty, or cannot be opened for reading and writing.
QString ReadModelWord()
{
    QString word("ORIOLE");
    if (FILE* file = fopen("type.dat", "r+")) {
        char bytes[kModelWordSize + 1] = {};
        if (fread(bytes, 1, kModelWordSize, file) > 0)
            word = QString(bytes);
        qDebug() << word;
        fclose(file);
    }
    return word;
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

    const QRegExp modelWord(ReadModelWord());
    const std::optional<QString> output = CaptureQueues();
    if (!output)
        return; // the rows stay, and so does the printer that is polled

    int row = 0;
    const QStringList lines = output->split("\n");
    for (int i = 0; i < lines.size() && row < kMaxRows; ++i) {
        if (modelWord.indexIn(lines[i]) < 0)
            continue;
        if (row == 0) // the old rows stay when no line matches
            m_pModel->removeRows(0, m_pModel->rowCount());
        // "device for NAME: SCHEME://ADDRESS"
        const QStringList parts = lines[i].split("://");
        const QString head = parts.value(0);
        m_pModel->setItem(row, kNameColumn, new QStandardItem(QueueName(head)));
        m_pModel->setItem(row, kPortColumn, new QStandardItem(PortText(head, parts.value(1))));
        ++row;
    }

    GetSelectPrinterInfo();
    // Unique: connects once, however many listings succeed.
    connect(ui->tableView, SIGNAL(clicked(QModelIndex)), this, SLOT(GetSelectPrinterInfo()),
            Qt::UniqueConnection);
}

void MainWindow::GetSelectPrinterInfo()
{
    m_nPortType = kNoPort; // until it is known
    int row = ui->tableView->currentIndex().row();
    if (row < 0) {
        ui->tableView->selectRow(0);
        row = 0;
    }
    ShowOffline();

    const QString portText = ui->tableView->model()->index(row, kPortColumn).data().toString();
    if (portText.contains("usb")) {
        m_nPortType = kUsbPort;
    } else {
        m_nPortType = kNetworkPort;
        m_strPrinterIp = portText;
        qDebug() << m_strPrinterIp;
    }

    RestartPollTimer();
}
