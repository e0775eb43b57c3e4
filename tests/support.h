// SPDX-FileCopyrightText: The oriole-monitor authors
// SPDX-License-Identifier: MIT

// What the tests put in the place of the world around the monitor. They are built without access
// control, so that they call the slots and set the members as the event loop and the printers do.

#ifndef SUPPORT_H
#define SUPPORT_H

#include "mainwindow.h"
#include "ui_mainwindow.h"

#include <QStandardItemModel>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

#include <deque>
#include <map>

/// The stand-in for libusb: plays scripted answers and writes every call down.
struct FakeUsb {
    std::map<int, QByteArray> answers; ///< by request; a request without one fails
    bool initFails = false;
    bool listFails = false;
    bool attached = true;
    QStringList calls; ///< since the last Calls()
    int alive = 0;     ///< contexts, handles and lists that have not been released

    QString Calls() { return std::exchange(calls, QStringList()).join(", "); }
};
extern FakeUsb fakeUsb;

/// The stand-ins for time() and sleep(). By default a clock with scripted readings and without
/// waits; or a real one, whose seconds turn whole seconds after the begin of a tick.
struct FakeClock {
    std::deque<time_t> readings; ///< consumed by time(), which then returns 0
    unsigned int slept = 0;      ///< s
    bool isReal = false;
    timespec tick = {};
};
extern FakeClock fakeClock;

/// Lines written to the debug output since the last call.
QStringList DebugLines();

/// Makes a fresh working directory with an `lpstat` on the PATH, and a window in it.
class Desk
{
public:
    explicit Desk(const QByteArray& lpstatScript = "exit 1");
    ~Desk();
    void SetLpstat(const QByteArray& script);
    void WriteFile(const QString& name, const QByteArray& content);
    void Select(int portType, const QString& address);
    void Tick(int times = 1);
    /// Status, model, engine, drum and toner counts, error text, with "|" between them.
    QString Shown() const;
    /// The rows of the printer table as "name>port", with "|" between them.
    QString Rows() const;

    QTemporaryDir directory;
    std::unique_ptr<MainWindow> window;
};

#define OFFLINE "离线 |||||"

/// Number of file descriptors that this process has open.
int OpenDescriptors();

#endif // SUPPORT_H
