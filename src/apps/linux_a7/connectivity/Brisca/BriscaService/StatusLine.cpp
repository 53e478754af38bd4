#include "StatusLine.h"

#include "An760.h"
#include "BluetoothManager.h"
#include "BootloaderState.h"
#include "BriscaStateManager.h"
#include "Systemd.h"
#include "facade/LogText.h"

#include <algorithm>

namespace {
using namespace std::chrono_literals;

constexpr auto kPeriod = 250ms;
constexpr auto kPause = 100ms;
constexpr int kAdvertising = 2;
constexpr int kConnected = 4;

long long tensOfSeconds(std::chrono::system_clock::time_point since)
{
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now() - since);
    return seconds.count() / 10 * 10;
}
}  // namespace

StatusLine::StatusLine(BriscaStateManager& stateManager, const BootloaderState& bootloaderState,
                       const An760& bootloader)
    : m_stateManager(stateManager), m_bootloaderState(bootloaderState), m_bootloader(bootloader)
{
    stateManager.setObserver([this](bool begins) { onEntry(begins); });
    QObject::connect(&m_timer, &QTimer::timeout, [this] { look(); });
}

void StatusLine::start()
{
    m_timer.start(kPeriod);
    look();
}

void StatusLine::onEntry(bool begins)
{
    if (const BriscaState state = m_stateManager.getCurrentState(); begins && state != ERROR)
        m_tried = state;
    m_isEntering = begins;
    if (begins)
        look();
}

void StatusLine::look()
{
    const auto now = std::chrono::steady_clock::now();
    if (now - m_toldAt < kPause)
        return;  // the next look tells it
    if (const std::string current = text(); current != m_told) {
        m_told = current;
        m_toldAt = now;
        Systemd::status(m_told);
    }
}

std::string StatusLine::text() const
{
    switch (m_stateManager.getCurrentState()) {
        case BOOTLOADER:
            return m_isEntering ? "waiting for the chip's prompt" : bootloaderText();
        case FIRMWARE:
            return m_isEntering ? "FIRMWARE: starting" : firmwareText();
        case ERROR:
            return m_tried == FIRMWARE ? "ERROR: the firmware could not be started"
                                       : "ERROR: the bootloader shows no prompt";
        case DISABLED:
        case DEFAULT:
            break;
    }
    return to_string(m_stateManager.getCurrentState());
}

std::string StatusLine::bootloaderText() const
{
    if (m_bootloader.uploadSilence()) {
        const UploadProgress& progress = m_bootloader.uploadProgress();
        const std::int64_t bytes = std::max<std::int64_t>(progress.fileBytes, 1);
        return "firmware update: " + std::to_string(100 * progress.acknowledgedBytes / bytes) + " %";
    }
    const std::string& failure = m_bootloaderState.updateFailure();
    return failure.empty() ? "BOOTLOADER" : "BOOTLOADER: firmware update failed: " + failure;
}

std::string StatusLine::firmwareText()
{
    const BluetoothManager& bluetooth = BluetoothManager::instance();
    if (const auto since = bluetooth.chipSilentSince())
        return "FIRMWARE: the chip has not answered for " + std::to_string(tensOfSeconds(*since)) + " s";
    switch (BluetoothManager::peekBleState()) {
        case kConnected:
            return "FIRMWARE: phone connected";
        case kAdvertising:
            // A line end in the name would begin another message to systemd.
            return "FIRMWARE: on the air as " + printable(bluetooth.getBleName().toStdString());
        default:
            return "FIRMWARE: not on the air";
    }
}
