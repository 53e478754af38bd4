#pragma once

#include "An760I.h"
#include "SerialPort.h"
#include "UploadProgress.h"

#include <QObject>
#include <QPointer>
#include <QThread>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>

class CancelEvent;
class ImageFile;

/// Client of the chip's standalone UART bootloader (AN760), whose console shows a menu and the prompt "BL >".
///
/// All operations run on the thread of the object (the main thread), which needs an event loop for uploads.
/// While an upload runs, its worker thread is the only user of the serial line: every other operation but
/// close() fails, with its own log line, and puts no byte on the line.
class An760 : public QObject, public An760I
{
    Q_OBJECT

public:
    /// Opens nothing.
    /// @param port path of the terminal device
    explicit An760(const char* port);
    /// Ends a running upload, without a report, and closes the port.
    ~An760() override;

    bool open() override;
    /// Ends a running upload within 300 ms, whatever its receiver does, and reports its outcome by
    /// fwUpdateCompleteStatus() before the port is closed; the report is true when the upload had just
    /// succeeded.
    void close() override;
    bool sendCarriageReturn() override;
    /// Each byte is waited for without limit: the wait ends by the prompt, or when a read fails because the
    /// line was hung up. Of a longer text the newest 64 KiB are kept.
    bool waitCommandPrompt(std::vector<char>& received) override;
    bool getFirmwareVersion(QString& version) override;
    bool startFirmware() override;
    /// The outcome is reported exactly once by fwUpdateCompleteStatus(), unless the upload could not be
    /// started at all (port closed, upload running, console not writable), which is one ERROR line. When a
    /// failure comes the console has its prompt back, unless the chip does not show it within 10 s.
    void updateFirmware(const QString& filePath) override;
    /// The same with a file that may be open already, so that the very file is sent that has been looked at.
    virtual void uploadImage(const QString& filePath, std::unique_ptr<ImageFile> image);

    /// Throws away what the bootloader has sent so far and sends one menu key.
    /// @return false when the port is closed, busy with an upload, or did not take the byte
    [[nodiscard]] bool send(const char& c);

    /// Time since the running upload has last heard a byte of the chip, or since its start when none has come
    /// yet; nothing while no upload runs. Any thread.
    [[nodiscard]] std::optional<std::chrono::milliseconds> uploadSilence() const;
    /// How far the upload is; of the last one while none runs. Any thread.
    [[nodiscard]] const UploadProgress& uploadProgress() const { return m_progress; }

Q_SIGNALS:
    /// Outcome of an upload; emitted on the thread of this object, when the worker and its thread are gone.
    void fwUpdateCompleteStatus(bool success);

public Q_SLOTS:
    void onFwCompleteStatus(bool success);
    void errorString(const QString& text);

private:
    /// Who may use the serial line.
    enum class LineUser {
        Console,  // this client, when the port is open
        Upload,   // the worker thread
        Nobody,   // the port is being closed
    };

    [[nodiscard]] bool consoleUsable() const;
    [[nodiscard]] bool readUntilPrompt(std::vector<char>& received);
    void startUpload(const QString& filePath, std::unique_ptr<ImageFile> image);
    void endUpload();
    void joinWorker();

    SerialPort m_port;
    std::atomic<LineUser> m_lineUser = LineUser::Console;  // set by the object's thread only
    UploadProgress m_progress;
    QPointer<QThread> m_thread;  // of the running upload; null when there is none
    std::unique_ptr<CancelEvent> m_cancel;
};
