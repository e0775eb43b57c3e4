// SPDX-License-Identifier: MIT

// Fuzz targets: $FUZZ_TARGET names the one to run, "Answer", "Block" or "List".

#include "support.h"

#include <sys/socket.h>
#include <unistd.h>

namespace
{
void (*target)(const QByteArray&);
QByteArray received; // what the printer answers, or the command writes

Desk* desk;

MainWindow& Window()
{
    DebugLines();
    return *desk->window;
}

/// A hardware state block in a buffer of its size.
void Block(const QByteArray& input)
{
    std::vector<unsigned char> exact(input.begin(), input.end());
    Window().ParseHardwareState(exact.data(), int(exact.size()));
    if ((Window().m_nManualTrayFlag | Window().m_nMainTrayFlag) > 1)
        abort();
}

/// Byte 0 selects a query, the rest is its answer.
void Answer(const QByteArray& input)
{
    MainWindow& window = Window();
    received = input.mid(1);
    switch (input.isEmpty() ? 0 : input[0] & 3) {
    case 0: window.GetPrinterType_net(window.m_szModelName); break;
    case 1: window.GetPrinterStatus_net(); break;
    case 2: window.GetPrinterPageNumber_net(); break;
    default: window.GetPrinterDetailError_net();
    }
    if (window.m_szModelName[63] != '\0')
        abort();
}

/// type.dat, a byte of 255, and the output of lpstat. A counted repeat in a pattern may cost any
/// amount of memory, which is the matter of who writes it: there are no braces in these.
void List(const QByteArray& input)
{
    MainWindow& window = Window();
    const int end = input.indexOf('\xFF');
    QFile file("type.dat");
    file.open(QFile::WriteOnly);
    file.write(input.left(end).replace('{', '('));
    file.close();
    received = input.mid(end + 1);
    window.GetPrinterInfoByCommand();
    if (window.m_pModel->rowCount() > 10)
        abort();
}
} // namespace

extern "C" ssize_t sendto(int, const void*, size_t n, int, const sockaddr*, socklen_t)
{
    return static_cast<ssize_t>(n);
}

extern "C" ssize_t recvfrom(int, void* buf, size_t n, int, sockaddr*, socklen_t*)
{
    const size_t got = std::min(n, size_t(received.size()));
    memcpy(buf, received.constData(), got);
    return static_cast<ssize_t>(got);
}

extern "C" int system(const char*)
{
    return write(STDOUT_FILENO, received.constData(), received.size()) == received.size() ? 0 : 1;
}

// NOLINTNEXTLINE(readability-non-const-parameter): libFuzzer gives it so
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static QApplication application(*argc, *argv);
    static Desk theDesk;
    desk = &theDesk;
    target = std::map<QByteArray, void (*)(const QByteArray&)>{
        {"Answer", Answer}, {"Block", Block}, {"List", List}}[qgetenv("FUZZ_TARGET")];
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const char* data, size_t size)
{
    target(QByteArray(data, int(size)));
    return 0;
}
