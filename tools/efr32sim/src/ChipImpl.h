#pragma once

#include "Board.h"
#include "Console.h"
#include "Coprocessor.h"
#include "Fd.h"
#include "ResetLine.h"
#include "SerialLine.h"
#include "Timers.h"

#include <condition_variable>
#include <mutex>
#include <thread>

namespace efr32sim {
/// The chip's parts and its thread. m_mutex guards everything below it; the thread holds it except while it
/// waits in poll(). The event log has a lock of its own, always taken after this one.
class Chip::Impl : public Board
{
public:
    explicit Impl(ChipOptions options);
    ~Impl() override;

    void start();
    void stop();
    void requestLine(bool plugged);
    void setReset(bool high);
    /// Runs @p action on the locked chip and wakes its thread, so that what it said goes out.
    template <class Action>
    auto locked(Action action)
    {
        const std::lock_guard lock(m_mutex);
        wake();
        return action(*this);
    }
    template <class Query>
    auto look(Query query) const
    {
        const std::lock_guard lock(m_mutex);
        return query(*this);
    }

    // Board
    void say(ByteSpan bytes) override;
    void after(Milliseconds delay, std::function<void()> action) override;
    void report(EventKind kind, Fields fields) override { m_events.publish(kind, std::move(fields)); }
    FaultPlan& faults() override { return m_faults; }
    Flash& flash() override { return m_flash; }
    const ChipOptions& options() const override { return m_options; }
    void startFirmware() override;
    void startBootloader() override;
    void setUploading(bool uploading) override { setMode(uploading ? Mode::Uploading : Mode::Bootloader); }

    // With the mutex held.
    void inject(const Fault& fault);
    void clearFaults();
    void setChaos(std::optional<std::uint64_t> seed, double rate);
    void reboot();

    EventLog m_events;
    mutable std::mutex m_mutex;
    ChipOptions m_options;
    FaultPlan m_faults;
    Flash m_flash;
    SerialLine m_line;
    bool m_hearing = false;  // what is said now answers what was heard
    ResetLine m_resetLine;
    Timers m_timers;  // of the chip's programs: a reset forgets them
    bool m_mishapPlanned = false;
    Timers m_mishapTimers;  // of the world around it
    Console m_console;
    Coprocessor m_coprocessor;
    Mode m_mode = Mode::Held;

private:
    void run();
    void wait(std::unique_lock<std::mutex>& lock);
    [[nodiscard]] timespec patience() const;
    void step();
    void hear();
    void readResetLine();
    void applyReset(bool high);
    void enterBootloader(const LineSettings& line, bool mute, bool greet);
    void halt();
    void setMode(Mode mode);
    void applyLineRequest();
    void wake() const;
    void planMishap();
    void applyMishap(FaultPlan::Mishap mishap);
    void powerOn();
    [[nodiscard]] bool isDeaf() const
    {
        return m_mode == Mode::Held || m_mode == Mode::Booting || silenced();
    }
    [[nodiscard]] bool silenced() const { return Clock::now() < m_silentUntil; }

    Fd m_wake;
    std::thread m_thread;
    bool m_running = false;
    bool m_stop = false;
    std::optional<bool> m_lineRequest;  // plug in (true) or hang up (false); done by the thread that polls it
    std::condition_variable m_lineDone;
    Clock::time_point m_silentUntil;
};
}  // namespace efr32sim
