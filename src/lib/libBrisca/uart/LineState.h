#pragma once

// The transport's side of LineOwner.h: how NCPDriver_Init takes the line. For the thread that owns the line.
namespace LineState {
/// Ends the packet exchange in progress, bounded, and closes the terminal; no more than that when none is
/// open.
/// @return false when an exchange was still in progress at the bound
bool release();

/// The terminal is open: commands work from here on.
void taken();
}  // namespace LineState
