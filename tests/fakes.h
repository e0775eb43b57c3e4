// SPDX-FileCopyrightText: The oriole-monitor authors
// SPDX-License-Identifier: MIT

// Stand-ins for libusb and for time() and sleep(), linked into a test in their place.

#ifndef FAKES_H
#define FAKES_H

#include <QStringList>

#include <map>
#include <utility>

struct FakeUsb {
    std::map<int, QByteArray> answers; ///< by request; a request without one fails
    QString fails;                     ///< the call that fails: "init", "list" or "open"
    QStringList calls;                 ///< all calls, with their arguments
    int alive = 0;                     ///< contexts, handles and lists that are not yet released

    /// The calls since the last time, with ", " between them.
    QString Calls() { return std::exchange(calls, QStringList()).join(", "); }
};
extern FakeUsb fakeUsb;

/// A clock that moves on by `step` seconds each time that it is read, and never waits.
struct FakeClock {
    time_t now = 1000;
    int step = 1;
    int reads = 0;
    unsigned int slept = 0; ///< s
};
extern FakeClock fakeClock;

#endif // FAKES_H
