#pragma once

#include "BriscaState.h"
#include "StateHandlerI.h"
#include "UpdateLog.h"

#include <QObject>
#include <QString>

#include <cstdint>
#include <memory>
#include <string>

class An760;
class BriscaStateManagerI;
class ImageFile;
class IoEfr32ManagerI;

/// BOOTLOADER: the chip waits in its bootloader, whose menu serves the requests of this state. Entering it
/// resets the chip, which stops any firmware. Main thread only; the entry blocks until the prompt came.
class BootloaderState : public QObject, public StateHandlerI
{
    Q_OBJECT

public:
    /// Keeps all three; the client's update result is emitted on as this object's own.
    BootloaderState(BriscaStateManagerI& stateManager, IoEfr32ManagerI& ioEfr32Manager, An760& bootloader);

    /// Up to four attempts to open the serial port, reset the chip and see its prompt; switches to ERROR when
    /// they fail. The port stays open on success.
    void onEnter() override;
    void onExit() override;

    /// Enters this state again, from whichever state is current.
    void restart();
    /// The chip's information text up to and including its prompt; empty in another state or on failure.
    [[nodiscard]] QString getFwVersion();
    /// Keeps the name, at most its first 248 bytes of UTF-8, for the next start of the BLE stack; one WARN
    /// line when it will not be on the air (none, or more than 29 bytes). Refused with one line in another
    /// state.
    void setBleName(const QString& name);
    /// Switches to FIRMWARE; refused with one line in another state.
    void startFirmware();
    /// Starts the upload of a firmware image on a thread of its own; its result arrives as
    /// fwUpdateCompleteStatus(). While one runs, another is not started, and the result arrives once.
    /// @return false when the state is another one or @p filename is no regular file that can be read
    [[nodiscard]] bool startFwUpdate(const QString& filename);
    /// Why the last update has failed, in the words of the log; empty when none has since this state was
    /// entered.
    [[nodiscard]] const std::string& updateFailure() const { return m_updateLog.failure(); }
    /// One reset pulse, one carriage return, then the wait for the prompt, which has no time-out.
    [[nodiscard]] bool resetEfr32AndWaitPrompt();

Q_SIGNALS:
    void fwUpdateCompleteStatus(bool success);

private:
    /// @return whether the last attempt could open the serial port
    bool openAndFindPrompt();
    void startUpload(const QString& filename, std::unique_ptr<ImageFile> image);
    void leave(const char* request, BriscaState state);

    static constexpr std::uint8_t kMaxRetryNumber = 3;

    BriscaStateManagerI& m_stateManager;
    IoEfr32ManagerI& m_ioEfr32Manager;
    An760& m_bootloader;
    std::uint8_t m_retryNumber = 0;  // attempt at which the serial port was last opened
    const char* m_request = "";      // what made the service leave this state last
    UpdateLog m_updateLog;
};
