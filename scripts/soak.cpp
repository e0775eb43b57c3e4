// SPDX-License-Identifier: MIT

// What scripts/soak runs: many ticks and listings, with the stand-ins of the tests for libusb and
// the clock, that must keep no descriptor, no memory and no libusb context.

#include "support.h"

#include <arpa/inet.h>
#include <functional>
#include <malloc.h>
#include <unistd.h>

namespace
{
void Soak(const std::function<void()>& round)
{
    const QDir descriptors("/proc/self/fd");
    const int rounds = qEnvironmentVariable("SOAK_ROUNDS", "100").toInt();
    size_t heap = 0;
    int open = 0;
    for (int i = -20; i < rounds; ++i) { // the first ones fill caches
        if (i == 0) {
            heap = mallinfo2().uordblks;
            open = descriptors.entryList(QDir::System).size();
        }
        round();
        DebugLines();
    }
    QCOMPARE(descriptors.entryList(QDir::System).size(), open);
    QVERIFY(mallinfo2().uordblks < heap + 16384);
}
} // namespace

class SoakTest : public QObject
{
    Q_OBJECT

private slots:
    void usbTicks()
    {
        Desk desk;
        desk.Select(1);
        fakeUsb.answers = {{17, "ORIOLE"},
                           {51, QByteArray(16, '\x01')},
                           {68, "\x04"},
                           {0, QByteArray::fromHex("00000000 0100 0E00030000000100")}};
        Soak([&desk] {
            desk.Tick(2); // opens, reads and closes
            QCOMPARE(fakeUsb.calls.count("init"), 1);
            QCOMPARE(fakeUsb.calls.count("exit"), 1);
            fakeUsb.calls.clear();
        });
    }

    void networkTicks()
    {
        Desk desk;
        desk.Select(2, "127.0.0.1");
        desk.Tick();
        strcpy(desk.window->m_szModelName, "ORIOLE");
        sockaddr_in monitor = {AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
        socklen_t size = sizeof monitor;
        const int bound = bind(desk.window->m_nSocket, reinterpret_cast<sockaddr*>(&monitor), size);
        QCOMPARE(bound, 0);
        getsockname(desk.window->m_nSocket, reinterpret_cast<sockaddr*>(&monitor), &size);
        const int printer = socket(AF_INET, SOCK_DGRAM, 0);
        Soak([&] {
            for (const char* answer :
                 {"C2000714010400", "C20016130100000001000000000000000200000003",
                  "C2001412010000000001000E0003000000010000"}) {
                const QByteArray frame = QByteArray::fromHex(answer);
                sendto(printer, frame.constData(), frame.size(), 0,
                       reinterpret_cast<sockaddr*>(&monitor), size);
            }
            desk.Tick();
        });
        QCOMPARE(desk.Shown(), QString("空闲|ORIOLE|1|2|3|墨粉较少 "));
        close(printer);
    }

    void listings()
    {
        Desk desk;
        int listing = 0;
        Soak([&desk, &listing] {
            desk.SetLpstat(++listing % 2 == 0 ? "exit 1" : "echo 'a ORIOLE'; echo 'a ORIOLE_2'");
            desk.window->GetPrinterInfoByCommand();
        });
        QCOMPARE(desk.Rows(), QString("ORIOLE>|ORIOLE_2>"));
    }
};

QTEST_MAIN(SoakTest)
#include "soak.moc"
