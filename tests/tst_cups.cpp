// SPDX-License-Identifier: MIT

// The listing of a real print server's queues, by the real lpstat.

#include "support.h"

#include <csignal>

class CupsTest : public QObject {
    Q_OBJECT

private slots:
    void queuesAreListedInEveryLanguageUntilTheLastIsGone() {
        Desk desk;
        QFile::remove("lpstat");
        const QStringList queues = {
            "ORIOLE -E -v usb://Generic/LP?serial=1", "ORIOLE_2F -E -v socket://127.0.0.1:9100",
            "Plain -E -v socket://127.0.0.1:9101", "Second -E -v ipp://127.0.0.1/ORIOLE"};
        for (const QString& queue : queues) QCOMPARE(system(("lpadmin -p " + queue).toLocal8Bit()), 0);
        for (const char* locale : {"C", "zh_CN.UTF-8"}) {
            qputenv("LC_ALL", locale);
            desk.window->m_pModel->removeRows(0, 9);
            desk.window->GetPrinterInfoByCommand();
            QCOMPARE(desk.Rows(), QString("ORIOLE>usb|ORIOLE_2F>127.0.0.1|Second>"));
        }
        QCOMPARE(system("lpstat -v ORIOLE | grep -q '^用于 ORIOLE 的设备：usb://'"), 0);

        for (const char* queue : {"ORIOLE", "Plain", "Second"}) system(QByteArray("lpadmin -x ") + queue);
        desk.window->GetPrinterInfoByCommand();
        QCOMPARE(desk.Rows(), QString("ORIOLE_2F>127.0.0.1"));
        // Without a queue, as without a server, lpstat fails, and the old rows stay.
        system("lpadmin -x ORIOLE_2F");
        for (int serverGone = 0; serverGone < 2; ++serverGone) {
            const int timer = desk.window->m_nTimerId;
            desk.window->GetPrinterInfoByCommand();
            QCOMPARE(desk.Rows(), QString("ORIOLE_2F>127.0.0.1"));
            QCOMPARE(desk.window->m_nTimerId, timer);
            kill(qEnvironmentVariableIntValue("CUPS_PID"), SIGKILL);
        }
    }
};

QTEST_MAIN(CupsTest)
#include "tst_cups.moc"
