// SPDX-FileCopyrightText: The oriole-monitor authors
// SPDX-License-Identifier: MIT

#include "support.h"

#include <malloc.h>

namespace
{
QStringList debugLines;

void Collect(QtMsgType, const QMessageLogContext&, const QString& line) { debugLines += line; }
} // namespace

QStringList DebugLines() { return std::exchange(debugLines, QStringList()); }

Desk::Desk(const QByteArray& lpstatScript)
{
    static const QByteArray path = qgetenv("PATH");
    static const QtMessageHandler before = qInstallMessageHandler(Collect);
    Q_UNUSED(before)
    QDir::setCurrent(directory.path());
    qputenv("PATH", QFile::encodeName(directory.path()) + ":" + path);
    SetLpstat(lpstatScript);
    window.reset(new MainWindow(nullptr));
    DebugLines();
}

void Desk::SetLpstat(const QByteArray& script)
{
    WriteFile("lpstat", "#!/bin/sh\n[ \"$*\" = -v ] || exit 9\n" + script + "\n");
    QFile::setPermissions("lpstat", QFile::ReadOwner | QFile::ExeOwner);
}

void Desk::WriteFile(const QString& name, const QByteArray& content)
{
    QFile::remove(name);
    QFile file(name);
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
    QStringList shown;
    for (const QLineEdit* field :
         {window->ui->PrinterStatus, window->ui->PrinterType, window->ui->PrinterCount,
          window->ui->CatridgetCount, window->ui->CompactCount})
        shown += field->text();
    return (shown << window->ui->DetailError->toPlainText()).join("|");
}

QString Desk::Rows() const
{
    QStringList rows;
    for (int i = 0; i < window->m_pModel->rowCount(); ++i)
        rows += window->m_pModel->item(i, 0)->text() + ">" + window->m_pModel->item(i, 1)->text();
    return rows.join("|");
}

void Soak(const std::function<void()>& round)
{
    const QDir descriptors("/proc/self/fd");
    const int rounds = qEnvironmentVariable("SOAK_ROUNDS", "50").toInt();
    size_t heap = 0;
    int open = 0;
    for (int i = -20; i < rounds; ++i) { // the first ones fill caches
        if (i == 0) {
            heap = mallinfo2().uordblks;
            open = descriptors.entryList(QDir::System).size();
        }
        round();
        DebugLines();
    }
    QCOMPARE(descriptors.entryList(QDir::System).size(), open);
    QVERIFY(mallinfo2().uordblks < heap + 16384);
}
