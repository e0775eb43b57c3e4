// SPDX-FileCopyrightText: The oriole-monitor authors
// SPDX-License-Identifier: MIT

#include "support.h"

#include <libusb.h>
#include <unistd.h>

FakeUsb fakeUsb;
FakeClock fakeClock;

// --- time ---

extern "C" time_t time(time_t* result) noexcept
{
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (!fakeClock.readings.empty()) {
        now.tv_sec = fakeClock.readings.front();
        fakeClock.readings.pop_front();
    }
    if (result)
        *result = now.tv_sec;
    return now.tv_sec;
}

extern "C" unsigned int sleep(unsigned int seconds)
{
    fakeClock.slept += seconds;
    return 0;
}

// --- libusb ---

namespace
{
int acquire(const QString& call, bool succeeds)
{
    fakeUsb.calls += call;
    fakeUsb.alive += succeeds ? 1 : 0;
    return succeeds ? 0 : LIBUSB_ERROR_OTHER;
}

void release(const QString& call)
{
    fakeUsb.calls += call;
    --fakeUsb.alive;
}

template <typename T>
T* Token()
{
    static char token;
    return reinterpret_cast<T*>(&token);
}
} // namespace

int libusb_init(libusb_context** context)
{
    *context = fakeUsb.initFails ? nullptr : Token<libusb_context>();
    return acquire("init", !fakeUsb.initFails);
}

void libusb_set_debug(libusb_context*, int level)
{
    fakeUsb.calls += QString("debug %1").arg(level);
}

ssize_t libusb_get_device_list(libusb_context*, libusb_device*** list)
{
    *list = Token<libusb_device*>();
    return acquire("list", !fakeUsb.listFails);
}

void libusb_free_device_list(libusb_device**, int unref)
{
    release(QString("free %1").arg(unref));
}

libusb_device_handle* libusb_open_device_with_vid_pid(libusb_context*, uint16_t vid, uint16_t pid)
{
    const QString call =
        QString("open %1:%2").arg(vid, 4, 16, QChar('0')).arg(pid, 4, 16, QChar('0'));
    return acquire(call, fakeUsb.attached) == 0 ? Token<libusb_device_handle>() : nullptr;
}

void libusb_close(libusb_device_handle*)
{
    release("close");
}

void libusb_exit(libusb_context*)
{
    release("exit");
}

int libusb_control_transfer(libusb_device_handle*, uint8_t type, uint8_t request, uint16_t value,
                            uint16_t index, unsigned char* data, uint16_t length,
                            unsigned int timeout)
{
    fakeUsb.calls += QString("%1/%2/%3/%4/%5 %6ms")
                         .arg(type, 0, 16)
                         .arg(request)
                         .arg(value)
                         .arg(index)
                         .arg(length)
                         .arg(timeout);
    const auto answer = fakeUsb.answers.find(request);
    if (answer == fakeUsb.answers.end())
        return LIBUSB_ERROR_TIMEOUT;
    memcpy(data, answer->second.constData(), answer->second.size());
    return answer->second.size();
}

// --- debug output, desk ---

namespace
{
QStringList debugLines;

void Collect(QtMsgType, const QMessageLogContext&, const QString& line)
{
    debugLines += line;
}
} // namespace

QStringList DebugLines()
{
    return std::exchange(debugLines, QStringList());
}

Desk::Desk(const QByteArray& lpstatScript)
{
    static const QByteArray path = qgetenv("PATH");
    fakeUsb = FakeUsb();
    fakeClock = FakeClock();
    qInstallMessageHandler(Collect);
    QDir::setCurrent(directory.path());
    qputenv("PATH", QFile::encodeName(directory.path()) + ":" + path);
    SetLpstat(lpstatScript);
    window.reset(new MainWindow(nullptr));
    DebugLines();
}

Desk::~Desk()
{
    qInstallMessageHandler(nullptr);
}

void Desk::SetLpstat(const QByteArray& script)
{
    WriteFile("lpstat", "#!/bin/sh\n[ \"$*\" = -v ] || exit 9\n" + script + "\n");
    QFile::setPermissions(directory.filePath("lpstat"), QFile::ReadOwner | QFile::ExeOwner);
}

void Desk::WriteFile(const QString& name, const QByteArray& content)
{
    QFile::remove(directory.filePath(name));
    QFile file(directory.filePath(name));
    QVERIFY(file.open(QFile::WriteOnly));
    file.write(content);
}

void Desk::Select(int portType, const QString& address)
{
    window->m_nPortType = portType;
    window->m_strPrinterIp = address;
}

void Desk::Tick(int times)
{
    for (int i = 0; i < times; ++i)
        window->OntimerOut();
}

QString Desk::Shown() const
{
    const Ui_MainWindow& ui = *window->ui;
    return QStringList({ui.PrinterStatus->text(), ui.PrinterType->text(), ui.PrinterCount->text(),
                        ui.CatridgetCount->text(), ui.CompactCount->text(),
                        ui.DetailError->toPlainText()})
        .join("|");
}

QString Desk::Rows() const
{
    QStringList rows;
    for (int row = 0; row < window->m_pModel->rowCount(); ++row)
        rows +=
            window->m_pModel->item(row, 0)->text() + ">" + window->m_pModel->item(row, 1)->text();
    return rows.join("|");
}

int OpenDescriptors()
{
    return QDir("/proc/self/fd").entryList(QDir::Files | QDir::System).size();
}
