#include "CommandLine.h"
#include "Failure.h"
#include "Station.h"

#include <QDBusPendingCallWatcher>
#include <QDateTime>
#include <QTimer>

#include <memory>
#include <optional>

namespace {
using namespace std::chrono_literals;

/// Prints what happens to the service, one line each.
class Monitor
{
public:
    explicit Monitor(Command& command) : m_report(command.report), m_station(command)
    {
        followSignals();
        QObject::connect(&m_timer, &QTimer::timeout, [this] { look(); });
        m_timer.start(500ms);  // no signal tells a change of state
        look();
    }
    /// Throws, outside of Qt's event handling, what an answer has brought, and when the bus is gone.
    void throwFailure() const
    {
        if (m_error)
            m_station.fail(*m_error);
        if (!m_station.bus().isConnected())
            throw Failure{Exit::NoService, "the bus has gone"};
    }

private:
    void followSignals();
    void look();
    void lookAtStatus();
    void askForState();
    void takeState(const QDBusPendingReply<int>& reply);
    void tell(const char* event, const QJsonValue& value, const QString& text) const;
    void tellSignal(const char* signal) const { tell("signal", signal, signal); }

    Report m_report;
    Station m_station;
    QTimer m_timer;
    std::optional<bool> m_isThere;
    QString m_status;
    int m_state = -1;
    std::unique_ptr<QDBusPendingCallWatcher> m_question;  // for the state
    std::optional<QDBusError> m_error;
};

void Monitor::tell(const char* event, const QJsonValue& value, const QString& text) const
{
    const QString time = QDateTime::currentDateTime().toString(Qt::ISODateWithMs);
    m_report.result({{"time", time}, {event, value}}, time + "  " + text);
}

void Monitor::followSignals()
{
    BriscaProxy& proxy = m_station.proxy();
    QObject::connect(&proxy, &BriscaProxy::bleIsStarted, [this] { tellSignal("bleIsStarted"); });
    QObject::connect(&proxy, &BriscaProxy::btDeviceConnected, [this] { tellSignal("btDeviceConnected"); });
    QObject::connect(&proxy, &BriscaProxy::btDeviceDisconnected,
                     [this] { tellSignal("btDeviceDisconnected"); });
    QObject::connect(&proxy, &BriscaProxy::communicationError, [this] { tellSignal("communicationError"); });
    QObject::connect(&proxy, &BriscaProxy::fwUpdateComplete, [this](bool isSuccess) {
        tellSignal(isSuccess ? "fwUpdateComplete true" : "fwUpdateComplete false");
    });
}

void Monitor::look()
{
    const bool isThere = m_station.isThere();
    if (m_isThere != isThere) {
        m_isThere = isThere;
        m_state = -1;
        tell("service", isThere, isThere ? "the service is on the bus" : "the service is not on the bus");
    }
    if (!isThere)
        return;
    lookAtStatus();
    if (m_question == nullptr)
        askForState();
}

void Monitor::lookAtStatus()
{
    const auto status = m_station.unit().statusText();
    if (!status || *status == m_status)
        return;
    m_status = *status;
    tell("status", m_status, m_status);
}

// Without waiting: the service does not answer while it enters a state, and its signals shall not wait.
void Monitor::askForState()
{
    m_question = std::make_unique<QDBusPendingCallWatcher>(m_station.proxy().getBriscaState());
    QObject::connect(m_question.get(), &QDBusPendingCallWatcher::finished,
                     [this](QDBusPendingCallWatcher* done) {
                         takeState(*done);
                         m_question.release()->deleteLater();
                     });
}

void Monitor::takeState(const QDBusPendingReply<int>& reply)
{
    if (reply.isError()) {
        if (reply.error().type() == QDBusError::AccessDenied)
            m_error = reply.error();
        return;  // the service is busy or has gone, and is asked again
    }
    if (m_state != reply.value()) {
        m_state = reply.value();
        const QString state = name(static_cast<BriscaState>(m_state));
        tell("state", state, "state " + state);
    }
}
}  // namespace

void monitor(Command& command)
{
    Monitor watcher(command);
    (void)Station::waitUntil(
        [&watcher] {
            watcher.throwFailure();
            return false;
        },
        command.deadline);
}
