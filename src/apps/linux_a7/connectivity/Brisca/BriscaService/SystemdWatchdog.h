#pragma once

class QObject;

/// Feeds systemd's watchdog from the event loop at half the interval that systemd asked for, so that an event
/// loop that is stuck in a wait for the chip leads to a restart. Does nothing when systemd asked for none.
/// @param parent owner of the timer
void feedSystemdWatchdog(QObject* parent);
