#pragma once

#include <cstdint>

/// Carries requests from the transport to the application's pipe and answers back, each way on a task that
/// lives until the process ends.
namespace PipeTasks {
/// The body of the task "BTPtoCoAP".
[[noreturn]] void Task_BTP_to_CoAP();
/// The body of the task "CoAPtoBTP".
[[noreturn]] void Task_Coap_to_BTP();

/// Hands a write of the phone, to whatever characteristic, to the transport as a fragment. Event task.
/// @return 1, or 0 for null data
std::uint16_t GATTWriteCallback(std::uint16_t characteristic, std::uint8_t length, std::uint8_t* pData);

/// Tells the pipes whether a phone awaits answers. Event task, between two events: so no request of a new
/// phone can be answered before what waits for the phone before it has been told apart.
void followLink();
}  // namespace PipeTasks
