// SPDX-License-Identifier: MIT

#include "mainwindow.h"

#include <QApplication>
#include <QDesktopWidget>
#include <QTextCodec>

int main(int argc, char* argv[])
{
    QApplication application(argc, argv);

    QTextCodec* utf8 = QTextCodec::codecForName("utf8");
#if QT_VERSION < 0x050000
    QTextCodec::setCodecForTr(utf8);
    QTextCodec::setCodecForLocale(utf8);
    QTextCodec::setCodecForCStrings(utf8);
#else // Qt 5 reads translations and C strings as UTF-8 in any case.
    QTextCodec::setCodecForLocale(utf8);
#endif

    const QWidget* desktop = QApplication::desktop();
    const int desktopWidth = desktop->width();
    const int desktopHeight = desktop->height();

    MainWindow window(nullptr);
    window.move(desktopWidth - window.width(), desktopHeight - window.height());
    window.show();
    return QApplication::exec();
}
