#pragma once

#include <QProcess>

#include <sys/types.h>

class QDeadlineTimer;

/// The CoAP application as a child process with a session of its own, which ends with it. It writes to the
/// service's own standard streams and knows nothing of the service's systemd. The kernel ends it when the
/// service ends in whatever way; its children are then the unit's business. Main thread only.
class CoapProcess : public QProcess
{
    Q_OBJECT

public:
    CoapProcess();
    /// Kills a running application and waits for its end.
    ~CoapProcess() override;

    /// Starts a new application, when the one before has ended with all its processes. A failure gets one
    /// ERROR line with path and reason.
    /// @param timeoutMs longest wait for both, in milliseconds
    /// @return whether a new application runs
    [[nodiscard]] bool launch(int timeoutMs);
    /// Kills the application and every process of its session without waiting for their ends, also those that
    /// outlive an application that has ended by itself.
    /// @return false when the application itself was not running
    bool killIfRunning();

protected:
    void setupChildProcess() override;

private:
    bool waitForEnd(const QDeadlineTimer& deadline);
    void reportEnd(int exitCode, ExitStatus exitStatus);

    bool m_endIsExpected = false;
    pid_t m_servicePid = 0;
    pid_t m_session = 0;  // of the application started last, while processes of it may live
};
