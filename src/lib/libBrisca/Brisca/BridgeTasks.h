#pragma once

#include <chrono>
#include <optional>

class Brisca;

/// Bodies and creation of the bridge's five tasks. They live until the process ends.
namespace BridgeTasks {
/// Creates and starts the tasks on the first call of the process; later calls only give the stack the event
/// callback of the latest Brisca::init(). Main thread.
/// @param stack whose station is kept on the air from now on
void startOnce(Brisca& stack);

/// Replaces the ten seconds after which the link is checked, for a test that cannot wait for them; what is
/// done about a chip that is silent follows in the same measure. Before the first startOnce().
void setWatchPeriod(std::chrono::milliseconds period);

/// The event pump has ended a turn, or a step of one that may take as long as it likes: a start of
/// advertising that the chip keeps refusing is no pump that hangs. Here a chip that answers nothing is
/// reported, and a reset of it is asked for in time (see SilenceWatch). Event task.
void notePumpProgress();

/// Time since the latest of these, or since the tasks were created; nothing before. Any thread.
[[nodiscard]] std::optional<std::chrono::milliseconds> pumpSilence();

/// The silence of the chip that is reported: 30 s. Any thread.
[[nodiscard]] std::chrono::milliseconds reportedSilence();

/// The stack object goes away: nobody keeps its station on the air any more.
void forget(const Brisca& stack);
}  // namespace BridgeTasks
