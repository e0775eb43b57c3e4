// SPDX-License-Identifier: MIT

#ifndef PRINTER_H
#define PRINTER_H

#include <QByteArray>
#include <QString>
#include <QVector>

#include <optional>

/// Name of the printer on the USB bus; the others are named by their addresses.
const char kUsbPrinter[] = "usb";

/// A condition that a printer's hardware state block reports.
struct Condition {
    enum Kind { Flag, Array, ErrorCodes };
    quint32 id;
    Kind kind;
    QVector<quint32> values; ///< the flag's value, or the array's elements
};

/// One simulated printer: what it would tell, and the frames and records in which it tells it.
struct Printer {
    QString name; ///< address, or "usb"
    QByteArray model;

    quint8 state = 4;                       ///< idle
    quint32 counters[3] = {1200, 800, 400}; ///< pages of the engine, the drum, the toner
    QVector<Condition> conditions = {};     ///< in the order of the block
    QByteArray raw = {};                    ///< a hardware state block to tell instead
    QByteArray frame = {};                  ///< what to answer to every request instead (network)

    bool drop = false;         ///< network: no answers; USB: requests that are never completed
    int delay = 0;             ///< ms before an answer (network)
    QString malformed = "off"; ///< how answers are spoiled (network)
    int stalled = -1;          ///< a request that fails (USB)
    int empty = -1;            ///< a request that is answered without a byte (USB)
    bool plugged = true;       ///< on the bus (USB)

    /// The answer frame to a request frame, spoiled as `malformed` says.
    /// @param problem  receives what is wrong with the request when the answer is empty
    QByteArray AnswerFrame(const QByteArray& request, QString& problem) const;

    /// The answer to a USB vendor request; none when the request fails.
    std::optional<QByteArray> UsbAnswer(int request) const;

    /// The hardware state block of `conditions`; empty when they do not fit into one.
    QByteArray HardwareState() const;

private:
    QByteArray PageCounters() const;
};

#endif // PRINTER_H
