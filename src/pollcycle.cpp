// SPDX-License-Identifier: MIT

// The poll tick: reads the selected printer over its channel and shows what it answered.

#include "mainwindow.h"
#include "ui_mainwindow.h"

#include <QDebug>
#include <QtEndian>

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
    ShowModelName();
    qDebug() << m_szModelName;
    return GetPrinterStatus_net() == 1 && GetPrinterPageNumber_net() == 1 &&
           GetPrinterDetailError_net() == 1;
}

bool MainWindow::PollUsbPrinter()
{
    if (!m_pUsbHandle)
        return GetUsbPrinterHandle() > 0; // read on the next tick

    // All answers go into one buffer: behind a short answer stand bytes of the ones before it.
    unsigned char answer[kUsbAnswerSize] = {};
    int received = RequestUsb(kModelNameRequest, answer);
    if (received > 0) {
        StoreModelName(answer, received);
        ShowModelName();
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

void MainWindow::ShowModelName() { ui->PrinterType->setText(m_szModelName); }

void MainWindow::ShowOffline()
{
    ui->PrinterStatus->setText(kOfflineText);
    ui->PrinterType->clear();
    ui->PrinterCount->clear();
    ui->CatridgetCount->clear();
    ui->CompactCount->clear();
    ui->DetailError->clear();
}
