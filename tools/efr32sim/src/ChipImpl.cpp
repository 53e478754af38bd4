#include "ChipImpl.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace efr32sim {
namespace {
constexpr Milliseconds kMishapPeriod{1000};
constexpr Milliseconds kMishapUnplugged{500};
constexpr Milliseconds kMishapSilence{2000};
constexpr unsigned kMishapBurst = 40;
constexpr std::uint16_t kLinkLost = 0x0208;

void drain(int fd)
{
    std::uint64_t ignored = 0;
    while (::read(fd, &ignored, sizeof(ignored)) > 0) {
    }
}
}  // namespace

Chip::Impl::Impl(ChipOptions options)
    : m_events(options.history),
      m_options(std::move(options)),
      m_faults(m_events, m_options.chaosSeed, m_options.chaosRate),
      m_line({m_options.ttyPath, m_options.pace, m_options.checkLine}, m_events),
      m_resetLine(m_options.resetPath),
      m_console(*this),
      m_coprocessor(*this)
{
}

Chip::Impl::~Impl()
{
    stop();
}

void Chip::Impl::start()
{
    const std::lock_guard lock(m_mutex);
    if (m_running)
        return;
    m_wake = ownOrThrow(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC), "eventfd");
    m_resetLine.open();
    m_line.plug();
    m_stop = false;
    m_running = true;
    m_events.publish(EventKind::Started, {{"tty", m_line.slavePath()}});
    powerOn();
    planMishap();
    m_thread = std::thread([this] { run(); });
}

void Chip::Impl::powerOn()
{
    if (m_options.powerOn == Mode::Held)
        return;
    if (m_options.powerOn == Mode::Booting || m_options.powerOn == Mode::Firmware)
        startFirmware();
    else
        enterBootloader(kConsoleLine, false, false);
}

void Chip::Impl::stop()
{
    {
        const std::lock_guard lock(m_mutex);
        if (!m_running)
            return;
        m_stop = true;
        wake();
    }
    m_thread.join();
    const std::lock_guard lock(m_mutex);
    halt();
    setMode(Mode::Held);
    m_mishapTimers.clear();
    m_mishapPlanned = false;
    m_line.unplug();
    m_resetLine.close();
    m_wake.reset();
    m_running = false;
    m_lineDone.notify_all();
    m_events.publish(EventKind::Stopped);
}

void Chip::Impl::wake() const
{
    const std::uint64_t one = 1;
    if (m_wake)
        (void)!::write(m_wake.get(), &one, sizeof(one));
}

void Chip::Impl::run()
{
    // Timers of a thread are late by 50 us otherwise, a byte's time at 230400 baud.
    ::prctl(PR_SET_TIMERSLACK, 1UL);
    // A chip shares no processor with its host: one that waited for other programs would answer later than
    // the host looks for it. Where that is not permitted, it waits.
    const sched_param lowest{.sched_priority = 1};
    (void)::sched_setscheduler(0, SCHED_RR | SCHED_RESET_ON_FORK, &lowest);
    std::unique_lock lock(m_mutex);
    while (!m_stop) {
        step();
        wait(lock);
    }
}

timespec Chip::Impl::patience() const
{
    const auto now = Clock::now();
    auto until = now + std::chrono::hours(1);
    for (const auto& when : {m_timers.next(), m_mishapTimers.next(), m_line.wakeUp(now)})
        until = std::min(until, when.value_or(until));
    const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(until - now).count();
    constexpr std::int64_t kNanoseconds = 1'000'000'000;
    if (left <= 0)
        return {0, 0};
    return {static_cast<time_t>(left / kNanoseconds), static_cast<long>(left % kNanoseconds)};
}

/// Sleeps until something is to be done. Negative descriptors (a line that is unplugged) are skipped.
void Chip::Impl::wait(std::unique_lock<std::mutex>& lock)
{
    std::array<pollfd, 4> fds{{{m_wake.get(), POLLIN, 0},
                               {m_resetLine.fd(), POLLIN, 0},
                               {m_line.master(), m_line.pollEvents(), 0},
                               {m_line.watcher(), POLLIN, 0}}};
    const timespec limit = patience();
    lock.unlock();
    ::ppoll(fds.data(), fds.size(), &limit, nullptr);
    drain(fds[0].fd);
    lock.lock();
}

void Chip::Impl::step()
{
    const auto now = Clock::now();
    applyLineRequest();
    m_line.sample(now);
    readResetLine();
    m_mishapTimers.run(now);
    m_timers.run(now);
    hear();
    m_line.transmit(Clock::now());
}

void Chip::Impl::hear()
{
    if (isDeaf()) {
        // Counted before the reset line is read: the host sends after it has released the chip.
        const std::size_t sent = m_line.waiting();
        readResetLine();
        if (isDeaf()) {
            if (const std::size_t bytes = m_line.dropInput(sent); bytes > 0)
                report(EventKind::Unheard, {{"bytes", number(bytes)}, {"mode", toString(m_mode)}});
            return;
        }
    }
    const Bytes bytes = m_line.receive(Clock::now());
    if (bytes.empty())
        return;
    m_hearing = true;
    switch (m_mode) {
        case Mode::Held:
        case Mode::Booting:
            break;
        case Mode::Bootloader:
        case Mode::Uploading:
            m_console.feed(bytes);
            break;
        case Mode::Firmware:
            m_coprocessor.feed(bytes);
            break;
    }
    m_hearing = false;
}

void Chip::Impl::readResetLine()
{
    const std::string levels = m_resetLine.read();
    for (const char level : levels)
        applyReset(level == '1');
    // What the host sent before a reset is heard by nobody. After a release it may already be for the
    // bootloader, so nothing is thrown away then.
    if (!levels.empty() && levels.back() == '0')
        m_line.dropInput();
}

void Chip::Impl::setReset(bool high)
{
    const std::lock_guard lock(m_mutex);
    applyReset(high);
    if (!high)
        m_line.dropInput();
    wake();
}

void Chip::Impl::applyReset(bool high)
{
    m_events.publish(high ? EventKind::ResetHigh : EventKind::ResetLow, {{"was", toString(m_mode)}});
    if (!high) {
        halt();
        setMode(Mode::Held);
    } else if (m_mode == Mode::Held) {
        const bool mute = m_faults.take(FaultKind::SilentReset).has_value();
        if (m_options.bootloaderDelay.count() > 0)
            after(m_options.bootloaderDelay, [this, mute] { enterBootloader(kConsoleLine, mute, false); });
        else
            enterBootloader(kConsoleLine, mute, false);
    }
}

/// Stops whatever runs and forgets it.
void Chip::Impl::halt()
{
    m_timers.clear();
    m_line.dropOutput();
    m_coprocessor.reset();
}

void Chip::Impl::enterBootloader(const LineSettings& line, bool mute, bool greet)
{
    m_line.expect(line);
    setMode(Mode::Bootloader);
    m_console.enter(mute, greet);
}

void Chip::Impl::startBootloader()
{
    const LineSettings line = m_line.inForce();
    halt();
    enterBootloader(line.baud == 0 ? kCoprocessorLine : line, false, true);
}

void Chip::Impl::startFirmware()
{
    halt();
    setMode(Mode::Booting);
    m_line.expect(kCoprocessorLine);
    after(m_options.bootDelay, [this] {
        setMode(Mode::Firmware);
        m_coprocessor.boot();
    });
}

void Chip::Impl::setMode(Mode mode)
{
    if (m_mode == mode)
        return;
    m_mode = mode;
    m_events.publish(EventKind::ModeChanged, {{"mode", toString(mode)}});
}

void Chip::Impl::say(ByteSpan bytes)
{
    if (m_mode != Mode::Held && !silenced())
        m_line.send(bytes, m_hearing ? m_line.heardAt() : Clock::now());
}

void Chip::Impl::after(Milliseconds delay, std::function<void()> action)
{
    m_timers.at(Clock::now() + delay, std::move(action));
}

void Chip::Impl::inject(const Fault& fault)
{
    if (fault.kind != FaultKind::Silence) {
        m_faults.add(fault);
        return;
    }
    m_silentUntil = fault.count == 0 ? Clock::time_point::max() : Clock::now() + fault.delay;
    m_events.publish(EventKind::Fault, {{"fault", toString(fault.kind)}, {"ms", fault.delay.count()}});
}

void Chip::Impl::clearFaults()
{
    m_faults.clear();
    m_silentUntil = {};
}

void Chip::Impl::reboot()
{
    if (m_mode == Mode::Firmware || m_mode == Mode::Booting)
        startFirmware();
}

// The line's descriptors belong to the thread that polls them: others ask it, and wait.
void Chip::Impl::requestLine(bool plugged)
{
    std::unique_lock lock(m_mutex);
    if (!m_running)
        return;
    m_lineRequest = plugged;
    wake();
    m_lineDone.wait(lock, [this] { return !m_lineRequest || !m_running; });
}

void Chip::Impl::applyLineRequest()
{
    const auto request = std::exchange(m_lineRequest, std::nullopt);
    if (!request)
        return;
    if (*request && !m_line.plugged()) {
        m_line.plug();
        m_events.publish(EventKind::LinePlugged, {{"tty", m_line.slavePath()}});
    } else if (!*request && m_line.plugged()) {
        m_line.unplug();
        m_events.publish(EventKind::LineHungUp);
    }
    m_lineDone.notify_all();
}

void Chip::Impl::setChaos(std::optional<std::uint64_t> seed, double rate)
{
    m_faults.setChaos(seed, rate);
    planMishap();
}

void Chip::Impl::planMishap()
{
    if (!m_faults.chaotic() || m_mishapPlanned)
        return;
    m_mishapPlanned = true;
    m_mishapTimers.at(Clock::now() + kMishapPeriod, [this] {
        m_mishapPlanned = false;
        if (m_faults.chaotic())
            applyMishap(m_faults.mishap());
        planMishap();
    });
}

void Chip::Impl::applyMishap(FaultPlan::Mishap mishap)
{
    switch (mishap) {
        case FaultPlan::Mishap::None:
            return;
        case FaultPlan::Mishap::Reboot:
            reboot();
            break;
        case FaultPlan::Mishap::Disconnect:
            m_coprocessor.disconnect(kLinkLost);
            break;
        case FaultPlan::Mishap::Burst:
            for (unsigned i = 0; i < kMishapBurst && m_mode == Mode::Firmware; ++i)
                m_coprocessor.sendRssi();
            break;
        case FaultPlan::Mishap::Silence:
            inject({.kind = FaultKind::Silence, .delay = kMishapSilence});
            break;
        case FaultPlan::Mishap::HangUp:
            m_lineRequest = false;
            applyLineRequest();
            m_mishapTimers.at(Clock::now() + kMishapUnplugged, [this] {
                m_lineRequest = true;
                wake();
            });
            break;
    }
    m_events.publish(EventKind::Fault, {{"fault", "mishap"}, {"number", static_cast<int>(mishap)}});
}
}  // namespace efr32sim
