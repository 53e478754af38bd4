#pragma once

/// Blocks SIGTERM and SIGINT in the calling thread and in every thread that it starts from now on. Main
/// thread, before there is another one; a signal that comes meanwhile is kept.
void blockStopSignals();

/// Starts the thread that takes SIGTERM and SIGINT: it ends the event loop and, when the process is then
/// still there after kStopLimitMs because the main thread is blocked, ends the process with status 0.
/// Main thread, once, with an application object.
void stopOnSignals();

/// How long the main thread may take to come back to the event loop and clean up, in milliseconds.
constexpr int kStopLimitMs = 1500;
