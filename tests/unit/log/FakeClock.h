#pragma once

/// Sets the time that the log shows as elapsed; CLOCK_MONOTONIC_RAW stands still otherwise.
void setElapsed(long seconds, long microseconds);
