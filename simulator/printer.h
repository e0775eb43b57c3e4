// SPDX-License-Identifier: MIT

#ifndef PRINTER_H
#define PRINTER_H

#include <QByteArray>
#include <QString>
#include <QVector>

#include <functional>

/// Name of the printer on the USB bus; the others are named by their addresses.
const char kUsbPrinter[] = "usb";

/// A condition that a printer's hardware state block reports.
struct Condition {
    enum Kind { Flag, Array, ErrorCodes };
    quint32 id;
    Kind kind;
    QVector<quint32> values; ///< the flag's value, or the array's elements
};

/// One simulated printer: what it reports, and how it encodes that.
struct Printer {
    QString name; ///< IPv4 address, or kUsbPrinter

    quint8 state = 4;                       ///< idle
    quint32 counters[3] = {1200, 800, 400}; ///< pages of the engine, the drum, the toner
    QVector<Condition> conditions = {};     ///< in the order of the block
    bool on = true;                         ///< when off, it does not answer and leaves the USB bus

    // For tests.
    QByteArray model = "ORIOLE";
    bool hangs = false; ///< USB requests are never completed
    /// Sees each request, and can change its answer; null means no answer.
    std::function<void(const QByteArray& request, QByteArray& answer)> meddle = nullptr;

    /// The answer frame to a request frame; null when the request is bad.
    QByteArray AnswerFrame(const QByteArray& request) const;

    /// The answer to a USB vendor request; null when the request fails.
    QByteArray UsbAnswer(int request) const;

    /// The hardware state block of `conditions`; null when they do not fit into one.
    QByteArray HardwareState() const;

private:
    QByteArray PageCounters() const;
};

#endif // PRINTER_H
