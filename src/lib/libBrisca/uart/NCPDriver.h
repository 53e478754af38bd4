#pragma once

#include <cstdint>

// Binds the serial line to the BGAPI host core of gecko.h.

/// Capacity of the buffers that callers of NCPDriver_RxAll keep.
constexpr std::uint32_t kRxAllCapacity = 256;

/// Binds bglib_output, bglib_input and bglib_peek to the functions below and takes the line
/// (LineOwner::take). May be called any number of times.
/// @param path terminal device
/// @return 1 when the line is open, else 0
[[nodiscard]] std::uint32_t NCPDriver_Init(const char* path);

/// uartTx: writes all bytes; returns @p length or -1.
std::int32_t NCPDriver_Tx(std::uint32_t length, const std::uint8_t* bytes);
/// uartRx: reads exactly @p length bytes; returns @p length or -1.
[[nodiscard]] std::int32_t NCPDriver_Rx(std::uint32_t length, std::uint8_t* buffer);
/// uartRxPeek: bytes waiting, or -1.
[[nodiscard]] std::int32_t NCPDriver_RxPeek();

/// Reads whatever is waiting, at most @p capacity bytes, without waiting for more.
/// @return bytes read; 0 when nothing is waiting, no line is open or the read fails
[[nodiscard]] std::uint32_t NCPDriver_RxAll(std::uint8_t* buffer, std::uint32_t capacity = kRxAllCapacity);

// Nothing to do on a terminal; part of the interface.
void NCPDriver_Enable();
void NCPDriver_Disable();
void NCPDriver_ClearRXBuffer();
