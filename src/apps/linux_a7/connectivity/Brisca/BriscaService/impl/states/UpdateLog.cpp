#include "UpdateLog.h"

#include "An760.h"
#include "facade/Log.h"
#include "facade/LogText.h"

#include <cerrno>
#include <cstring>

BRISCA_LOG_NODE(logNode, "BriscaService.states.BootloaderState");

namespace {
constexpr std::chrono::seconds kLookPeriod{1};
constexpr std::chrono::seconds kSilence{10};
constexpr int kPercentOfQuarter = 25;
constexpr int kRefused = -1;

long long toSeconds(std::chrono::milliseconds time)
{
    return std::chrono::duration_cast<std::chrono::seconds>(time).count();
}
}  // namespace

UpdateLog::UpdateLog(const An760& bootloader) : m_bootloader(bootloader)
{
    QObject::connect(&m_timer, &QTimer::timeout, [this] { look(); });
}

UpdateLog::~UpdateLog()
{
    fail(reason(-ECANCELED, "the end of the service"));
}

void UpdateLog::begin(const QString& filePath, qint64 bytes)
{
    BRISCA_NOTIC(logNode, "Firmware update started: %s, %lld bytes",
                 printable(filePath.toStdString()).c_str(), bytes);
    m_time.start();
    m_quarters = 0;
    m_silent = false;
    m_failure.clear();
    m_timer.start(kLookPeriod);
}

void UpdateLog::neverBegun()
{
    if (stop())
        BRISCA_ERROR(logNode, "Firmware update failed: the chip's console could not be asked for it");
}

/// Whether an update was being followed.
bool UpdateLog::stop()
{
    const bool running = m_timer.isActive();
    m_timer.stop();
    return running;
}

void UpdateLog::look()
{
    tellQuarters();
    tellSilence();
}

// The whole is told by the line of the end.
void UpdateLog::tellQuarters()
{
    const UploadProgress& progress = m_bootloader.uploadProgress();
    const std::int64_t done = progress.acknowledgedBytes;
    const std::int64_t bytes = progress.fileBytes;
    for (; m_quarters < 3 && bytes > 0 && done * 4 >= bytes * (m_quarters + 1); ++m_quarters)
        BRISCA_NOTIC(logNode, "Firmware update: %d %% after %.1f s", (m_quarters + 1) * kPercentOfQuarter,
                     seconds());
}

void UpdateLog::tellSilence()
{
    const UploadProgress& progress = m_bootloader.uploadProgress();
    const bool silent = progress.silence() >= kSilence;
    if (silent && !m_silent)
        BRISCA_WARN(logNode, "Firmware update: nothing heard from the chip for %lld s, at block %lld of %lld",
                    toSeconds(progress.silence()), static_cast<long long>(progress.block()),
                    static_cast<long long>(progress.blocks()));
    m_silent = silent;
}

void UpdateLog::end(bool success, const char* request)
{
    if (!success) {
        fail(reason(m_bootloader.uploadProgress().result, request));
        return;
    }
    if (!stop())
        return;
    tellQuarters();
    BRISCA_NOTIC(logNode, "Firmware update finished after %.1f s", seconds());
}

void UpdateLog::fail(const std::string& reason)
{
    if (!stop())
        return;
    m_failure = reason;
    const UploadProgress& progress = m_bootloader.uploadProgress();
    BRISCA_ERROR(logNode, "Firmware update failed after %.1f s at block %lld of %lld, repeated %d times: %s",
                 seconds(), static_cast<long long>(progress.block()),
                 static_cast<long long>(progress.blocks()), progress.repeats.load(), reason.c_str());
}

std::string UpdateLog::reason(int result, const char* request) const
{
    switch (result) {
        case kRefused:
            return "refused by the chip";
        case -ENODATA:
            return "the file has become shorter";
        case -ECANCELED:
            break;
        default:
            return std::string(std::strerror(-result)) + "(" + std::to_string(-result) + ")";
    }
    const auto silence = m_bootloader.uploadProgress().silence();
    const std::string unanswered =
        silence < kSilence ? "" : "not answered for " + std::to_string(toSeconds(silence)) + " s, ";
    return unanswered + "cancelled by " + request;
}
