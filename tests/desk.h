// SPDX-License-Identifier: MIT

#ifndef DESK_H
#define DESK_H

#include "mainwindow.h"
#include "ui_mainwindow.h"

#include <QHostAddress>
#include <QStandardItemModel>
#include <QtTest>

#include <unistd.h>

/// A text that a failing QCOMPARE prints as it is, Chinese characters included.
struct Text : QString {
    Text(const QString& text) : QString(text) {}
    Text(const char* text) : QString(text) {}
};
inline char* toString(const Text& text) { return qstrdup(qUtf8Printable("\"" + text + "\"")); }

/// The descriptors that are open, each as "number>file". Without sockets and eventfds, which the
/// simulated USB bus opens and closes at will.
inline Text OpenDescriptors()
{
    QStringList open;
    for (const QFileInfo& entry : QDir("/proc/self/fd").entryInfoList(QDir::Files | QDir::System))
        open += entry.fileName() + ">" + QFile::symLinkTarget(entry.filePath());
    return open.filter(QRegularExpression("^((?!socket|eventfd).)+$")).join(" ");
}

// For a simulated printer of this process alone: several can run at the same time.
const QString kAddress = QHostAddress(0x7F000000 + static_cast<quint32>(getpid())).toString();
const QString kOffline = "|离线 ||||"; // as Desk::Shown() has it

/// A window in a fresh working directory, with an `lpstat` that runs a script. Nothing stays open.
struct Desk {
    explicit Desk(const QByteArray& lpstat = "exit 1")
    {
        static const QByteArray path = qgetenv("PATH");
        qInstallMessageHandler([](QtMsgType type, const QMessageLogContext&, const QString& line) {
            if (type == QtDebugMsg)
                debugLines += line;
            else
                fputs(qUtf8Printable(line + "\n"), stderr);
        });
        QDir::setCurrent(directory.path());
        qputenv("PATH", QFile::encodeName(directory.path()) + ":" + path);
        SetLpstat(lpstat);
        QFile::copy(ORIOLE_SOURCE "/resources/orioleMon.ico", "orioleMon.ico");
        window.reset(new MainWindow(nullptr));
        debugLines.clear();
    }
    ~Desk()
    {
        window.reset();
        QTRY_COMPARE(OpenDescriptors(), openBefore);
    }

    void SetLpstat(const QByteArray& script) const
    {
        QFile file("lpstat");
        QVERIFY(file.open(QFile::WriteOnly));
        file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        file.write("#!/bin/sh\n[ \"$*\" = -v ] || exit 9\n" + script + "\n");
    }

    void Tick(int times = 1) const
    {
        for (int i = 0; i < times; ++i)
            window->OntimerOut();
    }

    QList<QLineEdit*> Fields() const
    {
        const Ui_MainWindow& ui = *window->ui;
        return {ui.PrinterType, ui.PrinterStatus, ui.PrinterCount, ui.CatridgetCount,
                ui.CompactCount};
    }

    /// Writes "old" into all six fields.
    void Fill() const
    {
        for (QLineEdit* field : Fields())
            field->setText("old");
        window->ui->DetailError->setText("old");
    }

    /// Model, status, engine, drum and toner counts, error text, with "|" between them.
    Text Shown() const
    {
        QString shown;
        for (const QLineEdit* field : Fields())
            shown += field->text() + "|";
        return shown + window->ui->DetailError->toPlainText();
    }

    /// The lines of the debug output since the last call, with "|" between them.
    Text TakeDebugLines() const { return std::exchange(debugLines, QStringList()).join("|"); }

    inline static QStringList debugLines;
    const Text openBefore = OpenDescriptors();
    QTemporaryDir directory;
    std::unique_ptr<MainWindow> window;
};

#endif // DESK_H
