// SPDX-License-Identifier: MIT

// What the tests share. They are built without access control: they call the slots and set the
// members as the event loop and the printers would.

#ifndef SUPPORT_H
#define SUPPORT_H

#include "console.h"
#include "mainwindow.h"
#include "ui_mainwindow.h"

#include <QStandardItemModel>
#include <QTemporaryDir>
#include <QtTest>

#include <random>

const QString kOffline = "|离线 ||||";

/// The rows of a table: "LEFT => RIGHT." a line, without the full stop.
inline QVector<QPair<QString, QString>> Table(const char* table)
{
    QVector<QPair<QString, QString>> rows;
    for (const QString& line : QString(table).split('\n', Qt::SkipEmptyParts))
        rows += {line.section(" => ", 0, 0), line.section(" => ", 1).chopped(1)};
    return rows;
}

/// Whether two texts are the same. Says, in plain characters, when they are not.
inline bool Same(const QString& shown, const QString& expected)
{
    if (shown != expected)
        fprintf(stderr, "shown:    %s\nexpected: %s\n", qUtf8Printable(shown + "."),
                qUtf8Printable(expected + "."));
    return shown == expected;
}

/// How many are open, without eventfds: the simulated bus's threads make some whenever they start.
inline int OpenDescriptors()
{
    int count = 0;
    for (const QFileInfo& file : QDir("/proc/self/fd").entryInfoList(QDir::Files | QDir::System))
        count += file.symLinkTarget().contains("eventfd") ? 0 : 1;
    return count;
}

/// Carries out console lines, "LINE; LINE", each of which has to be a good one.
inline void Run(Console& console, const QString& lines)
{
    for (const QString& line : lines.split(';'))
        QVERIFY(Same(line + ": " + console.Run(line), line + ": ok"));
}

/// A window in a fresh working directory with an `lpstat` on the PATH.
struct Desk {
    explicit Desk(const QByteArray& lpstat = "exit 1")
    {
        static const QByteArray path = qgetenv("PATH");
        qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext&, const QString& line) { debugLines += line; });
        QDir::setCurrent(directory.path());
        qputenv("PATH", QFile::encodeName(directory.path()) + ":" + path);
        SetLpstat(lpstat);
        window.reset(new MainWindow(nullptr));
        DebugLines();
    }

    void SetLpstat(const QByteArray& script) const
    {
        Write("lpstat", "#!/bin/sh\n[ \"$*\" = -v ] || exit 9\n" + script + "\n");
        QFile::setPermissions("lpstat", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    void Write(const QString& name, const QByteArray& content) const
    {
        QFile file(name);
        QVERIFY(file.open(QFile::WriteOnly) && file.write(content) == content.size());
    }

    void Tick(int times = 1) const
    {
        for (int i = 0; i < times; ++i)
            window->OntimerOut();
    }

    /// Sets all six status fields.
    void Fill(const QString& text) const
    {
        for (QLineEdit* field : window->findChildren<QLineEdit*>())
            field->setText(text);
        window->ui->DetailError->setText(text);
    }

    /// Model, status, engine, drum and toner counts, error text, with "|" between them.
    QString Shown() const
    {
        QString shown;
        for (const QLineEdit* field : window->findChildren<QLineEdit*>())
            shown += field->text() + "|";
        return shown + window->ui->DetailError->toPlainText();
    }

    /// The rows of the printer table as "name>port", with "|" between them.
    QString Rows() const
    {
        QStringList rows;
        for (int i = 0; i < window->m_pModel->rowCount(); ++i)
            rows +=
                window->m_pModel->item(i, 0)->text() + ">" + window->m_pModel->item(i, 1)->text();
        return rows.join("|");
    }

    /// Lines written to the debug output since the last call, with "|" between them.
    QString DebugLines() const { return std::exchange(debugLines, QStringList()).join("|"); }

    inline static QStringList debugLines;
    QTemporaryDir directory;
    std::unique_ptr<MainWindow> window;
};

#endif // SUPPORT_H
