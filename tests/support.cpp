// SPDX-FileCopyrightText: The oriole-monitor authors
// SPDX-License-Identifier: MIT

#include "support.h"

FakeUsb fakeUsb;
FakeClock fakeClock;

extern "C" time_t time(time_t* timer) noexcept
{
    time_t now = 0;
    if (fakeClock.isReal) {
        timespec elapsed;
        clock_gettime(CLOCK_MONOTONIC, &elapsed);
        now = elapsed.tv_sec - fakeClock.tick.tv_sec - (elapsed.tv_nsec < fakeClock.tick.tv_nsec);
    } else if (!fakeClock.readings.empty()) {
        now = fakeClock.readings.front();
        fakeClock.readings.pop_front();
    }
    if (timer)
        *timer = now;
    return now;
}

extern "C" unsigned int sleep(unsigned int seconds)
{
    fakeClock.slept += seconds;
    const timespec length = {static_cast<time_t>(seconds), 0};
    return fakeClock.isReal ? static_cast<unsigned int>(nanosleep(&length, nullptr)) : 0;
}

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
    for (int i = 0; i < times; ++i) {
        clock_gettime(CLOCK_MONOTONIC, &fakeClock.tick);
        window->OntimerOut();
    }
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
