// SPDX-License-Identifier: MIT

// The poll timer and its tick: reads the selected printer and shows what it answered.

#include "mainwindow.h"
#include "ui_mainwindow.h"

#include <QDebug>
#include <QTimer>
#include <QtEndian>

/// Replaces the poll timer, so that a whole interval passes before the next tick.
void MainWindow::RestartPollTimer()
{
    const int interval = 2000; // ms
    if (m_nTimerId > 0) {
        m_pTimer->stop();
        delete m_pTimer;
        m_nTimerId = 0; // none until the next one starts
    }
    m_pTimer = new QTimer;
#if QT_VERSION >= 0x050000 // default timers may tick 5 % early; in Qt 4 they do not
    m_pTimer->setTimerType(Qt::PreciseTimer);
#endif
    m_pTimer->start(interval);
    m_nTimerId = m_pTimer->timerId();
    connect(m_pTimer, SIGNAL(timeout()), this, SLOT(OntimerOut()));
}

void MainWindow::OntimerOut()
{
    bool online = false;
    if (m_nPortType == kNetworkPort)
        online = PollNetworkPrinter();
    else if (m_nPortType == kUsbPort)
        online = PollUsbPrinter();
    if (!online) {
        CloseUsbPrinter();
        ShowOffline();
    }
}

bool MainWindow::PollNetworkPrinter()
{
    if (m_nSocket == -1) {
        OpenSocket(); // used from the next tick on
        return false;
    }
    if (m_szModelName[0] == '\0') {
        GetPrinterType_net(m_szModelName); // shown from the next tick on
        return false;
    }
    ui->PrinterType->setText(m_szModelName);
    qDebug() << m_szModelName;
    return GetPrinterStatus_net() == 1 && GetPrinterPageNumber_net() == 1 &&
           GetPrinterDetailError_net() == 1;
}

bool MainWindow::PollUsbPrinter()
{
    if (!m_pUsbHandle)
        return GetUsbPrinterHandle() > 0; // read on the next tick

    // One buffer, on purpose: after a short answer, the rest still holds what earlier ones left.
    unsigned char answer[kUsbAnswerSize] = {};
    int received = RequestUsb(kModelNameRequest, answer);
    if (received > 0) {
        StoreModelName(answer, received);
        ui->PrinterType->setText(m_szModelName);
    }
    if (RequestUsb(kPageCountersRequest, answer) > 0) {
        qDebug() << QString::number(qFromBigEndian<qint32>(answer)); // the engine's, at offset 0
        ShowPageCounters(answer);
    }
    if (RequestUsb(kPrinterStateRequest, answer) > 0)
        SetPrinterState(answer[0]);
    received = RequestUsb(kHardwareStateRequest, answer);
    qDebug("nRecvLen:%d", received);
    if (received < 1)
        return false;
    ParseHardwareState(answer, sizeof answer);
    CloseUsbPrinter();
    return true;
}

void MainWindow::ShowOffline()
{
    ui->PrinterStatus->setText(kOfflineText);
    ui->PrinterType->clear();
    ui->PrinterCount->clear();
    ui->CatridgetCount->clear();
    ui->CompactCount->clear();
    ui->DetailError->clear();
}
