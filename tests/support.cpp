// SPDX-License-Identifier: MIT

#include "support.h"

namespace {
QStringList debugLines;

void Collect(QtMsgType, const QMessageLogContext&, const QString& line) { debugLines += line; }
} // namespace

QString DebugLines() { return std::exchange(debugLines, QStringList()).join("|"); }

Desk::Desk(const QByteArray& lpstatScript) {
    static const QByteArray path = qgetenv("PATH");
    qInstallMessageHandler(Collect);
    QDir::setCurrent(directory.path());
    qputenv("PATH", QFile::encodeName(directory.path()) + ":" + path);
    SetLpstat(lpstatScript);
    window.reset(new MainWindow(nullptr));
    DebugLines();
}

void Desk::SetLpstat(const QByteArray& script) {
    WriteFile("lpstat", "#!/bin/sh\n[ \"$*\" = -v ] || exit 9\n" + script + "\n");
    QFile::setPermissions("lpstat", QFile::ReadOwner | QFile::ExeOwner);
}

void Desk::WriteFile(const QString& name, const QByteArray& content) {
    QFile::remove(name);
    QFile file(name);
    QVERIFY(file.open(QFile::WriteOnly));
    file.write(content);
}

void Desk::Select(int portType, const QString& address) const {
    window->m_nPortType = portType;
    window->m_strPrinterIp = address;
}

void Desk::Tick(int times) const {
    for (int i = 0; i < times; ++i) window->OntimerOut();
}

QString Desk::Shown() const {
    QStringList shown;
    for (const QLineEdit* field :
         {window->ui->PrinterStatus, window->ui->PrinterType, window->ui->PrinterCount,
          window->ui->CatridgetCount, window->ui->CompactCount})
        shown += field->text();
    return (shown << window->ui->DetailError->toPlainText()).join("|");
}

QString Desk::Rows() const {
    QStringList rows;
    for (int i = 0; i < window->m_pModel->rowCount(); ++i)
        rows += window->m_pModel->item(i, 0)->text() + ">" + window->m_pModel->item(i, 1)->text();
    return rows.join("|");
}
