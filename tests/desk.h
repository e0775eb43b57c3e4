// SPDX-License-Identifier: MIT

#ifndef DESK_H
#define DESK_H

#include "mainwindow.h"
#include "ui_mainwindow.h"

#include <QHostAddress>
#include <QStandardItemModel>
#include <QtTest>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

/// Compares two texts. When they differ, both are printed as they are, Chinese characters included.
#define COMPARE_TEXTS(actual, expected) QCOMPARE(QUOTED(actual), QUOTED(expected))
#define QUOTED(text) qUtf8Printable('"' + QString(text) + '"')

/// What a descriptor is: "pipe:[8812]", say.
inline QString File(const QString& descriptor)
{
    return QFile::symLinkTarget("/proc/self/fd/" + descriptor).section('/', -1);
}

/// The descriptors that are open, each as "number>file". Without sockets and eventfds, which the
/// simulated USB bus opens and closes at will.
inline QSet<QString> OpenDescriptors()
{
    QSet<QString> open;
    for (const QString& number : QDir("/proc/self/fd").entryList(QDir::Files | QDir::System)) {
        const QString file = File(number);
        if (!file.isEmpty() && !file.startsWith("socket:") && !file.contains("eventfd"))
            open += number + ">" + file;
    }
    return open;
}

// An address of this process's own, so that tests can run in parallel.
const QString kAddress = QHostAddress(0x7F000000 + static_cast<quint32>(getpid())).toString();
const QString kOffline = "|离线 ||||"; // as Desk::Shown() has it

/// A window in a fresh working directory, with an `lpstat` that runs a script. Checks at its end
/// that no descriptor stays open, and that standard output is what it was.
struct Desk {
    explicit Desk(const QByteArray& lpstat = "exit 1")
    {
        static const QByteArray path = qgetenv("PATH");
        qInstallMessageHandler([](QtMsgType type, const QMessageLogContext&, const QString& line) {
            if (type == QtDebugMsg || line.contains("bad request"))
                debugLines += line;
            else
                fputs(qUtf8Printable(line + "\n"), stderr);
        });
        signal(SIGPIPE, SIG_IGN); // so that a listing that loses standard output gets its FAIL line
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
        const QString output = File("1");
        dup2(standardOutput, STDOUT_FILENO); // where a FAIL line goes
        COMPARE_TEXTS(afterScript + output, afterScript + outputBefore);
        QVERIFY2(!(fcntl(standardOutput, F_GETFL) & O_NONBLOCK),
                 "a listing left standard output non-blocking");
        const QStringList left = (OpenDescriptors() - openBefore).values();
        COMPARE_TEXTS("left open: " + left.join(" "), "left open: ");
    }

    void SetLpstat(const QByteArray& commands)
    {
        afterScript = "standard output after \"" + commands + "\": ";
        QFile file("lpstat");
        QVERIFY(file.open(QFile::WriteOnly));
        file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        file.write("#!/bin/sh\n[ \"$*\" = -v ] || exit 9\n" + commands + "\n");
    }

    void Tick(int times = 1) const
    {
        for (int i = 0; i < times; ++i)
            window->OntimerOut();
    }

    QList<QLineEdit*> Fields() const { return window->findChildren<QLineEdit*>(); }

    /// Writes "old" into all six fields.
    void Fill() const
    {
        for (QLineEdit* field : Fields())
            field->setText("old");
        window->ui->DetailError->setText("old");
    }

    /// Model, status, engine, drum and toner counts, error text, with "|" between them.
    QString Shown() const
    {
        QString shown;
        for (const QLineEdit* field : Fields())
            shown += field->text() + "|";
        return shown + window->ui->DetailError->toPlainText();
    }

    /// The lines of the debug output since the last call, with "|" between them.
    QString TakeDebugLines() const { return std::exchange(debugLines, QStringList()).join("|"); }

    inline static QStringList debugLines;
    inline static const int standardOutput = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    inline static const QString outputBefore = File("1");
    const QSet<QString> openBefore = OpenDescriptors();
    QString afterScript;
    // In the build folder: programs might not be allowed to run in /tmp.
    QTemporaryDir directory{QCoreApplication::applicationDirPath() + "/desk-XXXXXX"};
    std::unique_ptr<MainWindow> window;
};

#endif // DESK_H
