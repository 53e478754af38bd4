#pragma once

/// Installs sig_handler() for SIGABRT, SIGSEGV and SIGILL on a signal stack of its own, so that a stack
/// overflow is reported too. Main thread, first of all; other threads bring their own signal stack.
void installFatalSignalHandler();

/// Handler of the fatal signals, on whichever thread faulted: leaves one FATAL line and the backtrace and
/// ends the process with status 1. The first thread to fault reports; a fault inside the report, a fault
/// inside exit() or a report that cannot finish ends the process with the same status.
[[noreturn]] void sig_handler(int signal);

/// The status with which the process is to end: EXIT_FAILURE once a fatal signal is being reported, also when
/// a stop request or the end of the event loop comes first. Any thread, also in a signal handler.
[[nodiscard]] int exitStatus();

/// Writes the innermost 20 entries of the current call stack to standard error.
void displayBacktrace();
