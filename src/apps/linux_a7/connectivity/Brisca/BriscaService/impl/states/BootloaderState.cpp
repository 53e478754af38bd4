#include "BootloaderState.h"

#include "An760.h"
#include "BluetoothManager.h"
#include "ImageFile.h"
#include "IoEfr32ManagerI.h"
#include "StateRequest.h"
#include "facade/Log.h"
#include "facade/LogText.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

BRISCA_LOG_NODE(logNode, "BriscaService.states.BootloaderState");

namespace {
constexpr int kMaxNameBytes = 248;      // of any Bluetooth device name
constexpr int kMaxNameBytesOnAir = 29;  // what the 31 bytes of a scan response leave for it

/// Cuts UTF-8 text in front of the character that does not fit.
QByteArray cutToBytes(QByteArray text, int limit)
{
    constexpr unsigned kContinuationMask = 0xC0;
    constexpr unsigned kContinuation = 0x80;
    if (text.size() > limit) {
        while ((static_cast<unsigned char>(text[limit]) & kContinuationMask) == kContinuation)
            --limit;
        text.truncate(limit);
    }
    return text;
}
}  // namespace

BootloaderState::BootloaderState(BriscaStateManagerI& stateManager, IoEfr32ManagerI& ioEfr32Manager,
                                 An760& bootloader)
    : m_stateManager(stateManager),
      m_ioEfr32Manager(ioEfr32Manager),
      m_bootloader(bootloader),
      m_updateLog(bootloader)
{
    connect(&bootloader, &An760::fwUpdateCompleteStatus, this,
            [this](bool success) { m_updateLog.end(success, m_request); });
    connect(&bootloader, &An760::fwUpdateCompleteStatus, this, &BootloaderState::fwUpdateCompleteStatus);
}

void BootloaderState::onEnter()
{
    m_updateLog.forget();
    const bool isOpen = openAndFindPrompt();
    // A prompt at the last attempt still counts as a failure: part of the state's behaviour.
    if (!isOpen || m_retryNumber >= kMaxRetryNumber) {
        m_stateManager.switchState(ERROR);
        return;
    }
    BRISCA_DEBUG(logNode, "Success at retry number %d", m_retryNumber);
}

bool BootloaderState::openAndFindPrompt()
{
    m_retryNumber = 0;
    bool isOpen = false;
    for (std::uint8_t attempt = 0; attempt <= kMaxRetryNumber; ++attempt) {
        isOpen = m_bootloader.open();
        if (!isOpen)
            continue;
        m_retryNumber = attempt;
        if (resetEfr32AndWaitPrompt())
            break;
        BRISCA_DEBUG(logNode, "Retry number: %d", attempt);
        m_bootloader.close();
    }
    return isOpen;
}

void BootloaderState::onExit()
{
    m_bootloader.close();
}

bool BootloaderState::resetEfr32AndWaitPrompt()
{
    std::vector<char> received;
    m_ioEfr32Manager.resetEfr32(false);
    const bool found = m_bootloader.sendCarriageReturn() && m_bootloader.waitCommandPrompt(received);
    BRISCA_DEBUG(logNode, "Text received:\n%s\n", std::string(received.begin(), received.end()).c_str());
    return found;
}

void BootloaderState::restart()
{
    leave("BriscaRestart", BOOTLOADER);
}

void BootloaderState::leave(const char* request, BriscaState state)
{
    m_request = request;
    m_stateManager.switchState(state);
}

QString BootloaderState::getFwVersion()
{
    QString version;
    if (accepts(BOOTLOADER, m_stateManager, logNode, "getFwVersion"))
        (void)m_bootloader.getFirmwareVersion(version);  // leaves the text empty when it fails
    return version;
}

void BootloaderState::setBleName(const QString& name)
{
    if (!accepts(BOOTLOADER, m_stateManager, logNode, "setBleName"))
        return;
    const QByteArray kept = cutToBytes(name.toUtf8(), kMaxNameBytes);
    if (kept.isEmpty() || kept.size() > kMaxNameBytesOnAir) {
        BRISCA_WARN(logNode, "The BLE name will not be on the air, which takes 1 to %d bytes (%s)",
                    kMaxNameBytesOnAir, printable(kept.toStdString()).c_str());
    }
    BluetoothManager::instance().setBleName(QString::fromUtf8(kept));
}

void BootloaderState::startFirmware()
{
    if (accepts(BOOTLOADER, m_stateManager, logNode, "startFirmware"))
        leave("startFirmwareApp", FIRMWARE);
}

bool BootloaderState::startFwUpdate(const QString& filename)
{
    if (!accepts(BOOTLOADER, m_stateManager, logNode, "startFwUpdate"))
        return false;
    auto image = std::make_unique<ImageFile>();
    if (const int result = image->open(QFile::encodeName(filename).constData()); result != 0) {
        BRISCA_ERROR(logNode, "The file can't be used (%s)", printable(filename.toStdString()).c_str());
        BRISCA_ERROR(logNode, "%s", result == -EINVAL ? "It is no regular file." : std::strerror(-result));
        return false;
    }
    startUpload(filename, std::move(image));
    return true;
}

void BootloaderState::startUpload(const QString& filename, std::unique_ptr<ImageFile> image)
{
    if (m_bootloader.uploadSilence())
        BRISCA_WARN(logNode, "A firmware update is running already; this one is not started (%s)",
                    printable(filename.toStdString()).c_str());
    else
        m_updateLog.begin(filename, image->size());
    m_bootloader.uploadImage(filename, std::move(image));
    if (!m_bootloader.uploadSilence())
        m_updateLog.neverBegun();
}
