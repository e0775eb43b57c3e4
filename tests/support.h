// SPDX-FileCopyrightText: The oriole-monitor authors
// SPDX-License-Identifier: MIT

// A window on a desk of its own. The tests are built without access control: they call the slots
// and set the members as the event loop and the printers would.

#ifndef SUPPORT_H
#define SUPPORT_H

#include "mainwindow.h"
#include "ui_mainwindow.h"

#include <QStandardItemModel>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

#include <functional>

/// Adds the columns of a _data function; its rows are added as usual.
template <typename... Types>
void Columns(const std::array<const char*, sizeof...(Types)>& names)
{
    size_t i = 0;
    (QTest::addColumn<Types>(names[i++]), ...);
}

/// Lines written to the debug output since the last call.
QStringList DebugLines();

/// A fresh working directory with an `lpstat` on the PATH, and a window in it.
class Desk
{
public:
    explicit Desk(const QByteArray& lpstatScript = "exit 1");
    void SetLpstat(const QByteArray& script);
    void WriteFile(const QString& name, const QByteArray& content);
    void Select(int portType, const QString& address = QString());
    void Tick(int times = 1);
    /// Status, model, engine, drum and toner counts, error text, with "|" between them.
    QString Shown() const;
    /// The rows of the printer table as "name>port", with "|" between them.
    QString Rows() const;

    QTemporaryDir directory;
    std::unique_ptr<MainWindow> window;
};

/// Repeats `round`, $SOAK_ROUNDS times or a few, and verifies that no descriptor and no memory is
/// kept from round to round.
void Soak(const std::function<void()>& round);

const char kOffline[] = "离线 |||||";

#endif // SUPPORT_H
