// SPDX-License-Identifier: MIT

// What the tests share. They are built without access control: they call the slots and set the
// members as the event loop and the printers would.

#ifndef SUPPORT_H
#define SUPPORT_H

#include "mainwindow.h"
#include "ui_mainwindow.h"

#include <QStandardItemModel>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

/// Adds the columns of a _data function.
template <typename... Types>
void Columns(const std::array<const char*, sizeof...(Types)>& names) {
    size_t i = 0;
    (QTest::addColumn<Types>(names[i++]), ...);
}

/// Adds a row of a _data function: its name and the values of its columns.
template <typename... Values>
void Row(const char* name, const Values&... values) {
    (QTest::newRow(name) << ... << values);
}

/// Lines written to the debug output since the last call, with "|" between them.
QString DebugLines();

/// A window in a fresh working directory with an `lpstat` on the PATH.
struct Desk {
    explicit Desk(const QByteArray& lpstatScript = "exit 1");
    void SetLpstat(const QByteArray& script);
    void WriteFile(const QString& name, const QByteArray& content);
    void Select(int portType, const QString& address = QString()) const;
    void Tick(int times = 1) const;
    /// Status, model, engine, drum and toner counts, error text, with "|" between them.
    QString Shown() const;
    /// The rows of the printer table as "name>port", with "|" between them.
    QString Rows() const;

    QTemporaryDir directory;
    std::unique_ptr<MainWindow> window;
};

const QString kOffline = "离线 |||||";

// Stand-ins for libusb, time() and sleep(), of the tests that are linked with fakes.cpp.

struct FakeUsb {
    std::map<int, QByteArray> answers; ///< by request; a request without one fails
    QString fails;                     ///< the call that fails: "init", "list" or "open"
    QStringList calls;                 ///< since the last Calls(), with their arguments

    QString Calls() { return std::exchange(calls, QStringList()).join(", "); }
};
extern FakeUsb fakeUsb;

/// A clock that moves on by `step` seconds each time that it is read, and never waits.
struct FakeClock {
    int step = 1;
    int reads = 0;
    unsigned int slept = 0; ///< s
};
extern FakeClock fakeClock;

#endif // SUPPORT_H
