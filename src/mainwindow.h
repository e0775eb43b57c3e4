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

/// The monitor's window. It holds the whole state of the program.
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

    /// Builds the form and the printer table, and lists the printers once.
    explicit MainWindow(QWidget* parent);
    ~MainWindow() override;

    // --- USB channel (usbchannel.cpp) ---

    /// Opens the first printer on the USB bus. Called by the poll tick while no printer is open.
    /// @return 1: m_pUsbHandle is open, in its own libusb context; -1: no printer, or no permission
    ///         to open it; nothing is left open
    int GetUsbPrinterHandle();

    // --- Network channel (networkchannel.cpp) ---

    /// Completes the request frame in `buf` and sends it to the selected network printer. Called
    /// by the four queries.
    /// @param cmd  payload, zero-terminated, or null for none; only its first 59 bytes are sent
    /// @param buf  64 bytes: the command code in byte 3, zeros elsewhere
    /// @return the number of bytes sent, or -1
    int SendSockCmd(char* cmd, unsigned char* buf);

    // The four queries of a poll tick. Each sends one request and waits for one answer. They return
    // 1 when a valid answer came and was used, -1 otherwise, with nothing changed.

    /// Asks for the model name.
    /// @param name  64 bytes, the first of them zero; receives the name, cut to 63 bytes. After a
    ///              shorter one, the rest is kept
    int GetPrinterType_net(char* name);
    /// Asks for the printer state and shows it.
    int GetPrinterStatus_net();
    /// Asks for the page counters and shows them.
    int GetPrinterPageNumber_net();
    /// Asks for the hardware state block and shows its faults. Takes at least a second
    /// once the request is sent.
    int GetPrinterDetailError_net();

    // --- Status decoding (statusdecoders.cpp), for both channels ---

    /// Shows the text of a printer state code.
    void SetPrinterState(unsigned char code);

    /// Shows the faults that a hardware state block lists, in the block's order.
    /// @param length  size in bytes of the buffer that starts at `block`; entries and arrays that
    ///                reach past it count as absent
    void ParseHardwareState(unsigned char* block, int length = kUsbAnswerSize);

    // The decoders of the block's element arrays, called by ParseHardwareState. `data` points at
    // `count` elements, all of them readable. An error code has 4 bytes, any other element 2. Each
    // decoder returns the joined texts of the active elements, in their order.

    QString GetPaperJamState(unsigned char* data, int count);
    QString GetPaperCoverOpenState(unsigned char* data, int count);
    /// Also sets the flags of the trays that are open.
    QString GetTrayOpenState(unsigned char* data, int count);
    /// Skips a tray whose flag is set.
    QString GetTrayErrorState(unsigned char* data, int count);
    QString GetTrayLiftingStatus(unsigned char* data, int count);
    /// Sets the flags of the trays that are empty. Returns no text.
    void GetPaperQuantity(unsigned char* data, int count);
    QString GetErrorCodeState(unsigned char* data, int count);

private slots:
    /// One poll tick: reads the selected printer and shows it, or shows it as offline.
    void OntimerOut();
    /// Starts polling the printer of the table's current row, or of row 0 when there is none.
    void GetSelectPrinterInfo();
    /// Lists the print queues of the monitored model, and selects one when that succeeds.
    void GetPrinterInfoByCommand();

private:
    enum PortType { kNoPort = 0, kUsbPort = 1, kNetworkPort = 2 };
    enum Column { kNameColumn, kPortColumn }; // of the printer table

    /// Vendor requests of the USB channel, in the order in which a tick issues them.
    enum UsbRequest {
        kModelNameRequest = 17,    // the name, as a byte string
        kPageCountersRequest = 51, // a page-counter record
        kPrinterStateRequest = 68, // byte 0: the printer state code
        kHardwareStateRequest = 0  // a hardware state block
    };
    struct NetworkQuery;

    static const int kModelNameSize = 64;
    /// Status text while a printer cannot be reached, and until it has first answered.
    static constexpr char kOfflineText[] = "离线 ";

    // Polling. The two polls return false when the printer is to be shown as offline.
    void RestartPollTimer();
    bool PollUsbPrinter();
    bool PollNetworkPrinter();
    void ShowOffline();

    // USB channel.
    int RequestUsb(UsbRequest request, unsigned char* answer);
    void StoreModelName(const unsigned char* answer, int received);
    void CloseUsbPrinter();

    // Network channel.
    void OpenSocket();
    bool Ask(const NetworkQuery& query, unsigned char* answer, size_t answerSize);
    void CloseSocket();

    // Status decoding.
    void ShowPageCounters(const unsigned char* record);
    void FlagTrays(const unsigned char* data, int count, unsigned char state);

    /// UDP socket, -1 when there is none; opened by the poll tick, closed by each listing.
    int m_nSocket = -1;
    /// PortType of the selected printer; set by the selection.
    int m_nPortType = kNoPort;
    /// The trays' flags, each 0 or 1, set by the tray decoders and ParseHardwareState. A flag of 1
    /// hides its tray's error: the tray was reported open or empty by this hardware state block
    /// (its "reported" is then also 1) or by the one before.
    int m_nManualTrayFlag = 0;
    int m_nMainTrayFlag = 0;
    int m_nManualTrayReported = 0;
    int m_nMainTrayReported = 0;
    /// Address of the selected network printer; set by the selection.
    QString m_strPrinterIp;
    /// The model name, zero-terminated; empty until a printer has reported one.
    char m_szModelName[kModelNameSize] = {};
    /// The libusb context of the open USB printer; valid only while m_pUsbHandle is set.
    libusb_context* m_pUsbContext = nullptr;
    /// The open USB printer, null when closed. One tick opens it, the next reads and closes it.
    libusb_device_handle* m_pUsbHandle = nullptr;
    /// The widgets of the form.
    Ui_MainWindow* ui;
    /// The poll timer, made anew by each selection; null before the first.
    QTimer* m_pTimer = nullptr;
    /// Id of the poll timer, 0 before the first.
    int m_nTimerId = 0;
    /// The printer table: the queue's name, and its port: "usb", an address or nothing.
    QStandardItemModel* m_pModel = nullptr;
};

#endif // MAINWINDOW_H
