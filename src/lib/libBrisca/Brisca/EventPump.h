#pragma once

#include <chrono>
#include <optional>

class LinkI;

/// The task that handles the chip's events, keeps the station on the air, and tells of a chip that is silent.
namespace EventPump {
/// The body of the task "GBS2Event", which lives until the process ends.
[[noreturn]] void Task_GBS2Event();

/// The stack runs: from now on the task cares for this link. Main thread.
void start(LinkI& link);
/// The stack does not run any more. Main thread.
void stop();
/// True between start() and stop(), while the serial line is held. Any thread.
[[nodiscard]] bool isStarted();

/// The task has ended a turn, or a step of one that may take as long as it likes: a start of advertising that
/// the chip keeps refusing is no pump that hangs. Here a chip that answers nothing is reported, and a reset
/// of it is asked for in time (see SilenceWatch). Any thread.
void noteProgress();
/// Time since the latest of these; nothing before. A turn takes about 10 ms without work and less than 10 s
/// with whatever the chip makes of it. Any thread.
[[nodiscard]] std::optional<std::chrono::milliseconds> silence();

/// How long the chip has answered nothing, since start() at the longest; 0 while the stack is not started.
/// Any thread.
[[nodiscard]] std::chrono::milliseconds chipSilence();
/// The silence of the chip that is reported: 30 s. Any thread.
[[nodiscard]] std::chrono::milliseconds reportedSilence();
/// @param callback not null; called on the event task when the chip has been silent for so long that it
///                 should be reset. Any thread.
void setSilenceCallback(void (*callback)());

/// Replaces the ten seconds after which the link is checked, for a test that cannot wait for them; what is
/// done about a chip that is silent follows in the same measure. Before the first start().
void setWatchPeriod(std::chrono::milliseconds period);
}  // namespace EventPump
