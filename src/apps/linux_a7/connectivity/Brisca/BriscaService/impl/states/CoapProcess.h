#pragma once

#include <QProcess>

#include <sys/types.h>

#include <string>

/// Joins a directory and a name with exactly one '/'.
[[nodiscard]] std::string joinPath(const std::string& dir, const std::string& name);

/// The CoAP application as a child process. It writes to the service's own standard streams, and the kernel
/// ends it when the service ends in whatever way. Main thread only.
class CoapProcess : public QProcess
{
    Q_OBJECT

public:
    CoapProcess();
    /// Kills a running application and waits for its end.
    ~CoapProcess() override;

    /// Starts a new application. One that was killed before is waited for first, within @p timeoutMs.
    /// @param timeoutMs longest wait for the start, in milliseconds
    /// @return whether a new application runs
    [[nodiscard]] bool launch(int timeoutMs);
    /// Kills the application without waiting for its end.
    /// @return false when there was none
    bool killIfRunning();

protected:
    void setupChildProcess() override;

private:
    void reportEnd(int exitCode, ExitStatus exitStatus) const;

    bool m_endIsExpected = false;
    pid_t m_servicePid = 0;
};
