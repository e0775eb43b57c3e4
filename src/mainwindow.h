// SPDX-License-Identifier: MIT

#ifndef MAINWINDOW_H
#define MAINWINDOW_H

#include <QMainWindow>
#include <QString>

#include <cstddef>

class QStandardItemModel;
class QTimer;
class Ui_MainWindow;
struct libusb_context;
struct libusb_device_handle;

/// The monitor's window, and all that it knows of the printer that it watches.
///
/// Everything runs on the GUI thread. Three slots drive it: the listing of the print queues, the
/// selection of one of them, and the poll tick. Operations that can fail return 1 for success and
/// -1 for failure, unless they say otherwise; decoding never fails.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    /// Size in bytes of the buffer that receives an answer over USB.
    static const int kUsbAnswerSize = 500;

    /// Builds the form and the printer table, and lists the printers once. `main` passes null.
    explicit MainWindow(QWidget* parent);
    ~MainWindow() override;

    // --- USB channel (usbchannel.cpp) ---

    /// Opens the first printer on the USB bus, on a libusb context of its own. The poll tick calls
    /// it while no printer is open.
    /// @return 1: m_pUsbHandle is open; -1: no printer or no access, and nothing is left open
    int GetUsbPrinterHandle();

    // --- Network channel (networkchannel.cpp) ---

    /// Completes the request frame in `buf` and sends it to the selected network printer.
    /// @param cmd  payload, zero-terminated, or null for none; only its first 59 bytes are sent
    /// @param buf  64 bytes, zero but for the command code in byte 3
    /// @return the number of bytes sent, or -1
    int SendSockCmd(char* cmd, unsigned char* buf);

    // The four queries of a poll tick. Each sends one request and waits for one answer; 1 when a
    // valid answer came and was handed on, -1 otherwise, with nothing changed.

    /// Asks for the model name and copies it to `name`, at most 63 bytes and without a terminating
    /// zero: the 64-byte buffer must hold zeros.
    int GetPrinterType_net(char* name);
    /// Asks for the printer state and shows it.
    int GetPrinterStatus_net();
    /// Asks for the page counters and shows them.
    int GetPrinterPageNumber_net();
    /// Asks for the hardware state block and shows its faults. Takes at least one second once the
    /// request is sent.
    int GetPrinterDetailError_net();

    // --- Status decoding (statusdecoders.cpp), for both channels ---

    /// Shows the text of a printer state code.
    void SetPrinterState(unsigned char code);

    /// Shows the faults that a hardware state block lists, in the block's order.
    /// @param length  size in bytes of the buffer that starts at `block`; entries and arrays that
    ///                reach past it count as absent
    void ParseHardwareState(unsigned char* block, int length = kUsbAnswerSize);

    // The decoders of the block's element arrays: `count` elements from `data` on, all of them
    // readable; 2 bytes each, error codes 4. Each returns the joined texts of its active elements.

    QString GetPaperJamState(unsigned char* data, int count);
    QString GetPaperCoverOpenState(unsigned char* data, int count);
    /// Also sets the tray flags of the trays that are open.
    QString GetTrayOpenState(unsigned char* data, int count);
    /// Silent for a tray whose flag is set.
    QString GetTrayErrorState(unsigned char* data, int count);
    QString GetTrayLiftingStatus(unsigned char* data, int count);
    /// Only sets the tray flags of the trays that are empty.
    void GetPaperQuantity(unsigned char* data, int count);
    QString GetErrorCodeState(unsigned char* data, int count);

private slots:
    /// One poll tick: reads the selected printer and shows it, or shows it as offline.
    void OntimerOut();
    /// Watches the printer of the table's current row, row 0 when there is none.
    void GetSelectPrinterInfo();
    /// Lists the print queues of the monitored model, and watches one when that succeeds.
    void GetPrinterInfoByCommand();

private:
    enum PortType { kNoPort = 0, kUsbPort = 1, kNetworkPort = 2 };

    /// Vendor requests of the USB channel, in the order in which a tick issues them.
    enum UsbRequest {
        kModelNameRequest = 17,    // the name, as a byte string
        kPageCountersRequest = 51, // a page-counter record
        kPrinterStateRequest = 68, // byte 0: the printer state code
        kHardwareStateRequest = 0  // a hardware state block
    };

    /// The counters of a page-counter record, as shown.
    struct PageCounters {
        QString engine;
        QString drum;
        QString toner;
    };
    struct NetworkQuery;  // what sets one query apart
    struct ElementAction; // what one active array element does

    static const int kModelNameSize = 64;
    static const char kOfflineText[];

    // Poll tick; true when the display stands, false when the printer is to be shown as offline.
    bool PollUsbPrinter();
    bool PollNetworkPrinter();
    void ShowModelName();
    void ShowOffline();

    // USB channel.
    int RequestUsb(UsbRequest request, unsigned char* answer);
    void StoreModelName(const unsigned char* answer, int received);
    void CloseUsbPrinter();

    // Network channel.
    bool Exchange(const NetworkQuery& query, unsigned char* answer, size_t answerSize);
    void CloseSocket();

    // Status decoding.
    static PageCounters ReadPageCounters(const unsigned char* record);
    void ShowPageCounters(const PageCounters& counters);
    template <int actionCount>
    QString WalkElements(const unsigned char* data, int count, unsigned char tested,
                         const ElementAction (&actions)[actionCount]);

    /// UDP socket, -1 while there is none; made by the poll tick, closed by each listing.
    int m_nSocket;
    /// PortType of the selected printer; set by the selection.
    int m_nPortType;
    /// 1 while the manual tray counts as open or empty; set by the tray decoders, cleared by
    /// ParseHardwareState, within which it can be 2.
    int m_nManualTrayFlag;
    /// The same for the main tray.
    int m_nMainTrayFlag;
    /// Address of the selected network printer; set by the selection.
    QString m_strPrinterIp;
    /// What a printer last told of its model, zero-terminated; empty until one has.
    char m_szModelName[kModelNameSize];
    /// Made and ended together with m_pUsbHandle.
    libusb_context* m_pUsbContext;
    /// The open USB printer, null when closed; opened on one poll tick, read and closed on the
    /// next.
    libusb_device_handle* m_pUsbHandle;
    /// The widgets of the form.
    Ui_MainWindow* ui;
    /// The poll timer, made anew by each selection; null before the first.
    QTimer* m_pTimer;
    /// Its id; 0 while there is no poll timer.
    int m_nTimerId;
    /// The printer table: queue name in column 0; in column 1 "usb", an IPv4 address or nothing.
    QStandardItemModel* m_pModel;
};

#endif // MAINWINDOW_H
