#pragma once

#include "BriscaProxy.h"
#include "BriscaState.h"
#include "Failure.h"
#include "Unit.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusPendingReply>
#include <QDeadlineTimer>
#include <QString>

#include <functional>
#include <type_traits>

struct Command;

/// The service as a client on the bus sees it. What cannot be had throws a Failure.
class Station
{
public:
    static constexpr const char* kService = "org.voltra.brisca";

    /// Connects to the bus; the service need not be there.
    explicit Station(const Command& command);

    /// Asks the service and waits for the answer. A service that is not there is not started by that.
    /// @param question gets the proxy and returns its QDBusPendingReply
    template <class Question>
    auto ask(Question question)
    {
        prepare();
        auto reply = question(m_proxy);
        reply.waitForFinished();
        if (reply.isError())
            fail(reply.error());
        if constexpr (!std::is_same_v<decltype(reply), QDBusPendingReply<>>)
            return reply.value();
    }
    /// Sends a request that has no answer, and returns with the state when the service has served it. As such
    /// a request is refused without a word, the caller asks for the state before.
    BriscaState send(void (BriscaProxy::*request)());
    /// The same for a request that may lead to FIRMWARE: there it returns when the station is on the air, and
    /// throws a Failure when it does not get there.
    BriscaState sendAndWait(void (BriscaProxy::*request)());
    [[nodiscard]] BriscaState state();
    /// @throw Failure WrongState, with what leads there, unless the service is in that state
    void require(BriscaState state);

    /// Handles signals until the condition holds, looking at it ten times a second at least.
    /// @return false when @p limit has come first
    static bool waitUntil(const std::function<bool()>& holds, const QDeadlineTimer& limit);
    /// The same until the command's own limit.
    void waitUntil(const std::function<bool()>& holds) const;

    [[nodiscard]] bool isThere() const;
    [[nodiscard]] Unit unit() const { return {m_bus, kService}; }
    /// The user that the service runs as.
    [[nodiscard]] uint user() const;
    [[nodiscard]] const QDBusConnection& bus() const { return m_bus; }
    /// For its signals.
    [[nodiscard]] BriscaProxy& proxy() { return m_proxy; }
    [[noreturn]] void fail(const QDBusError& error) const;

private:
    void prepare();

    QDBusConnection m_bus;
    QDeadlineTimer m_deadline;
    BriscaProxy m_proxy;
    QString m_owner;  // of the service's name when it was asked last
};

[[nodiscard]] QString name(BriscaState state);
