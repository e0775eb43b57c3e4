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
    m_pModel->setHorizontalHeaderItem(kNameColumn, new QStandardItem("打印机名称"));
    m_pModel->setHorizontalHeaderItem(kPortColumn, new QStandardItem("打印端口"));
    ui->tableView->setModel(m_pModel);
    ui->tableView->setColumnWidth(kNameColumn, 155);
    ui->tableView->setColumnWidth(kPortColumn, 152);
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
