#pragma once

#include <cstddef>
#include <cstdint>

// Upgrades the co-processor's firmware through its serial bootloader: the running firmware is told to reboot
// into the bootloader, whose text menu (prompt "BL >") then takes an image as XMODEM blocks.
//
// A block on the wire (133 bytes): 0x01 (SOH), block number (first 1, low 8 bits), its one's complement, 128
// data bytes, CRC-16 of the data (polynomial 0x1021, initial value 0) high byte first.
//
// The line must be held (LineOwner.h). All functions run on one task, the caller's; every wait for the
// bootloader ends after about 2 s at the latest. Progress and results go to standard output. Results are 1
// for success and 0 for failure; all but NCPManagerSBL_GotoBootloader fail at once outside the bootloader
// mode.

constexpr std::size_t kSblBlockDataSize = 128;

/// Reboots the co-processor into its bootloader, in up to 3 attempts, and enters the bootloader mode.
[[nodiscard]] std::uint32_t NCPManagerSBL_GotoBootloader();

/// Chooses the menu's upload and waits for the receiver to ask for CRC mode. Block numbers begin anew.
[[nodiscard]] std::uint32_t NCPManagerSBL_StartUpgrade();

/// Sends the next block and waits for its acknowledgement.
/// @param data kSblBlockDataSize bytes
[[nodiscard]] std::uint32_t NCPManagerSBL_SendBlock(const std::uint8_t* data);

/// Ends the upload and waits for the bootloader's "complete" and its prompt.
[[nodiscard]] std::uint32_t NCPManagerSBL_SendEOT();

/// Starts the application and leaves the bootloader mode; fails, and stays in it, when the prompt comes back.
[[nodiscard]] std::uint32_t NCPManagerSBL_RunApp();

/// All of the above for one image. A last piece of fewer than 128 bytes is followed by one 0x1A; the rest of
/// its block holds what the block before left there.
/// @param image @p size bytes
[[nodiscard]] std::uint32_t NCPManagerSBL_FWUpgrade(const std::uint8_t* image, std::uint32_t size);

/// 1 while the co-processor is believed to be in its bootloader: the event pump must not read the line. Any
/// thread.
[[nodiscard]] std::uint8_t NCPManagerSBL_GetIsBootloaderMode();
