#pragma once

#include <QElapsedTimer>
#include <QString>
#include <QTimer>

#include <string>

class An760;

/// Tells in the log how a firmware update goes: its start, each quarter, a chip that has fallen silent, and
/// how it ended. Main thread only; looks at the upload once a second.
class UpdateLog
{
public:
    /// @param bootloader whose upload is followed
    explicit UpdateLog(const An760& bootloader);
    /// An update that still runs is told as ended by the end of the service.
    ~UpdateLog();
    UpdateLog(const UpdateLog&) = delete;
    UpdateLog& operator=(const UpdateLog&) = delete;

    /// An upload of this file is to be started.
    void begin(const QString& filePath, qint64 bytes);
    /// The upload has ended. Does nothing when that has been told already.
    /// @param request what ended it when it was cancelled
    void end(bool success, const char* request);
    /// The upload could not be started. Does nothing when its end has been told already.
    void neverBegun();

    /// Why the last update has failed; empty when it has not, or since forget().
    [[nodiscard]] const std::string& failure() const { return m_failure; }
    void forget() { m_failure.clear(); }

private:
    [[nodiscard]] bool stop();
    void look();
    void tellQuarters();
    void tellSilence();
    void fail(const std::string& reason);
    [[nodiscard]] std::string reason(int result, const char* request) const;
    [[nodiscard]] double seconds() const { return static_cast<double>(m_time.elapsed()) / 1000; }

    const An760& m_bootloader;
    QTimer m_timer;  // runs from begin() to the end
    QElapsedTimer m_time;
    int m_quarters = 0;  // told so far
    bool m_silent = false;
    std::string m_failure;
};
