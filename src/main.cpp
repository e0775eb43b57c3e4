// SPDX-License-Identifier: MIT

#include "mainwindow.h"

#include <QApplication>
#include <QTextCodec>
#if QT_VERSION < 0x050000 // the size of the desktop
#include <QDesktopWidget>
#else
#include <QScreen>
#endif

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

int main(int argc, char* argv[])
{
    // If a standard descriptor is missing, whatever is opened next gets its number: the connection
    // to the display, say, into which the debug lines would then be written.
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) < 0)
            open("/dev/null", O_RDWR); // gets this number, the lowest that is free
    }
    // We may have been started with SIGCHLD ignored, and could then not wait for a command.
    signal(SIGCHLD, SIG_DFL);

    QApplication application(argc, argv);

    QTextCodec* utf8 = QTextCodec::codecForName("utf8");
#if QT_VERSION < 0x050000
    QTextCodec::setCodecForTr(utf8);
    QTextCodec::setCodecForLocale(utf8);
    QTextCodec::setCodecForCStrings(utf8);
    const QSize desktop = QApplication::desktop()->size();
#else // Translations and C strings are always UTF-8. Qt 6 has no QApplication::desktop().
    QTextCodec::setCodecForLocale(utf8);
    const QSize desktop = QGuiApplication::primaryScreen()->virtualSize(); // of all screens
#endif

    MainWindow window(nullptr);
    window.move(desktop.width() - window.width(), desktop.height() - window.height());
    window.show();
    return QApplication::exec();
}
