// SPDX-License-Identifier: MIT

#include "mainwindow.h"
#include "ui_mainwindow.h"

#include <QIcon>
#include <QStandardItemModel>
#include <QTimer>

MainWindow::MainWindow(QWidget* parent) : QMainWindow(parent), ui(new Ui_MainWindow)
{
    ui->setupUi(this);
    setWindowIcon(QIcon("./orioleMon.ico"));

    m_pModel = new QStandardItemModel;
    m_pModel->setHorizontalHeaderItem(0, new QStandardItem("打印机名称"));
    m_pModel->setHorizontalHeaderItem(1, new QStandardItem("打印端口"));
    ui->tableView->setModel(m_pModel);
    ui->tableView->setColumnWidth(0, 155);
    ui->tableView->setColumnWidth(1, 152);
    ui->tableView->setSelectionBehavior(QAbstractItemView::SelectRows);
    ui->tableView->setEditTriggers(QAbstractItemView::NoEditTriggers);

    GetPrinterInfoByCommand();
    connect(ui->RefreshPrinter, SIGNAL(clicked()), this, SLOT(GetPrinterInfoByCommand()));
}

MainWindow::~MainWindow()
{
    CloseUsbPrinter();
    CloseSocket();
    delete ui;
    delete m_pTimer;
    delete m_pModel;
}
