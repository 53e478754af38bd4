#pragma once

// BTP carries application messages between the station and the phone over one GATT characteristic: it cuts
// messages into fragments and sends them (BTP_IO_Write), and puts the phone's fragments together again
// (call_back_BTP_Receive, BTP_Receive). BTP_Format.h describes the bytes on the air.
//
// The platform (low-level send, delay, semaphores, clock, signal) is a table of functions that the manager
// task sets at its start; a test or a benchmark sets its own. Until a function is set its call does nothing,
// and a send counts as refused.
//
// What one phone wrote and what it is to get belongs to its link (GBSSlave_GetLinkNumber) and ends with it;
// a new start of the stack ends it, too. Fragments of a new link find empty slots.
//
// Threads: fragments arrive on the GATT event thread, frames are read by one reader task, transmission and
// clean-up run on the manager task. GOS semaphore 3 guards the slots, semaphore 4 admits one writer at a
// time.

#include "BTP_Format.h"
#include "BTP_Platform.h"

#include <cstdint>

extern "C" {

/// Results of BTP_IO_Write.
constexpr int kBtpSuccess = 1;         ///< every fragment was accepted
constexpr int kBtpIoError = -1;        ///< a fragment was refused twice; the phone has part of the message
constexpr int kBtpInvalidLength = -2;  ///< more than 4480 bytes; nothing was sent
/// Result of EraseBTPFrameSlot for a slot that does not exist.
constexpr int kBtpInvalidSlot = -3;

// ---- Platform ---------------------------------------------------------------------------------------------

/// Sends one notification and returns 1 when it was accepted. BTP passes connection 0 and kBtpCharacteristic.
using BTP_NotifyCallback = std::uint32_t (*)(std::uint8_t connection, std::uint16_t characteristic,
                                             std::uint8_t length, const std::uint8_t* data);
/// A frame is complete. Called on the thread that delivered its last fragment.
using BTP_RxSignalCallback = void (*)();
/// Sleeps for a time in milliseconds.
using BTP_DelayCallback = int (*)(unsigned milliseconds);
/// Takes or releases a semaphore.
using BTP_SemaphoreCallback = void (*)(unsigned semaphoreId);
/// As BTPGetTime.
using BTP_GetTimeCallback = int (*)(GClock* clock);
/// As BTPSubTime.
using BTP_SubTimeCallback = int (*)(const GClock* now, const GClock* start, GClock* elapsed);

/// Sets the low-level send; in the service GBSSlave_GATTNotification.
void BTP_LowLevel_callback_Init(BTP_NotifyCallback send);
/// Sets signal, delay and semaphores; in the service BTP_Process_Rx_Signal and GOS.
void BTP_OS_Callback_Init(BTP_RxSignalCallback rxSignal, BTP_DelayCallback delay,
                          BTP_SemaphoreCallback semaphoreWait, BTP_SemaphoreCallback semaphoreRelease);
/// Sets the id of the semaphore that guards the slots; in the service 3 ("SEM_ID_BTP_FRAME").
void BTP_Frame_SEMID(std::uint16_t id);
/// Sets the clock by which BTP_Receive counts its timeout; in the service BTPGetTime and BTPSubTime.
void BTP_Clock_Driver_Callback_Init(BTP_GetTimeCallback getTime, BTP_SubTimeCallback subTime);

// ---- Sending ----------------------------------------------------------------------------------------------

/// Sends one message to the phone and waits until its last fragment has been handed to the radio chip. Any
/// task but the manager task, once the tasks run; writers queue up. 0 bytes succeed and send nothing.
/// @param length bytes at @p data, at most kBtpMessageLength
/// @return kBtpSuccess, kBtpIoError or kBtpInvalidLength
[[nodiscard]] int BTP_IO_Write(const void* data, unsigned length);
/// BTP_IO_Write for the phone of one link. Once that has ended nothing more is sent, not even the rest of a
/// message, and the result is kBtpIoError without the pause of a refusal.
/// @param link as GBSSlave_GetLinkNumber gave it
[[nodiscard]] int BTP_IO_WriteOnLink(std::uint32_t link, const void* data, unsigned length);

/// Cuts a message into fragments and sends them, with a pause of 3 ms after every second one. A refused
/// fragment is tried once more; after a second refusal it waits 200 ms and gives the message up. Only the
/// manager task. The frame number goes on across messages and failures.
/// @param length bytes at @p message
/// @return 1 when every fragment was accepted, else 0
[[nodiscard]] int BTP_Transmit(const void* message, unsigned length);

/// Keeps the low byte of a value that the transport itself does not use.
void setElecSignValue(unsigned value);
/// The value kept by setElecSignValue, 0 at first.
[[nodiscard]] unsigned getElecSignature();

// ---- Receiving --------------------------------------------------------------------------------------------

/// Takes one fragment written by the phone. A fragment of 1 or more than 70 bytes stores nothing, a first
/// fragment that announces more than 1120 bytes empties its slot. Only the GATT event thread.
/// @param length bytes at @p data, header included
void call_back_BTP_Receive(const std::uint8_t* data, unsigned length);

/// Reads complete frames until @p maxLength bytes came or nothing is left after the timeout. It takes every
/// frame that is not longer than maxLength as a whole, whatever room is left: @p buffer must have room for
/// maxLength - 1 + kBtpSlotCapacity bytes. A frame longer than maxLength is read in part; its rest stays for
/// the next call, and is lost when that call finds another frame first. Only one task at a time.
///
/// Frames are chosen by their completion stamps, and looking at a stamp uses it up unless it is older than
/// every stamp before it. Of several complete frames, those that were looked at in vain wait until they are
/// replaced by a newer frame, or until the link drops (slot 0 alone is found without its stamp); meanwhile a
/// call that asked for their bytes goes on waiting. So a phone is to send one frame and await its answer.
/// @param timeoutSeconds counted in whole seconds, and only while nothing is available
/// @return bytes copied; 0 also when a partly read frame was dropped
[[nodiscard]] unsigned BTP_Receive(void* buffer, unsigned maxLength, unsigned timeoutSeconds);
/// The link whose frames the slots hold. Asked before BTP_RxBytesAvailable it says whose bytes those are. Any
/// thread.
[[nodiscard]] std::uint32_t BTP_RxLink();
/// BTP_Receive for bytes that were announced while BTP_RxLink was @p link. When that link has ended it still
/// delivers the frames that it finds, but waits for no more, and leaves the next phone's alone.
[[nodiscard]] unsigned BTP_ReceiveOnLink(std::uint32_t link, void* buffer, unsigned maxLength,
                                         unsigned timeoutSeconds);
/// BTP_Receive.
[[nodiscard]] unsigned BTP_IO_Read(void* buffer, unsigned maxLength, unsigned timeoutSeconds);

/// Bytes of all complete frames, at most kBtpSlots * kBtpSlotCapacity. Any thread.
[[nodiscard]] unsigned TotalRxBytesAvailable();
/// TotalRxBytesAvailable.
[[nodiscard]] unsigned BTP_RxBytesAvailable();

/// Waits on the calling task for signal 32, by which the manager task tells "BTPtoCoAP" of a complete frame.
/// @param timeoutMs 0 waits without limit
/// @return 0 always
int BTP_Wait_Until_Data_Received(int timeoutMs);

/// Test aid: sends back whatever complete frames wait.
/// @return the status of the write, 0 when nothing waited
int BTP_LoopBack();

/// Empties the slots, their stamps and marks, the fragment history and the reader's place. The manager task,
/// when it starts; takes no semaphore.
void BTP_Frame_Init();
/// As BTP_Frame_Init, but under the semaphore: for a new start of the stack, before it ends the link. The
/// thread that starts it, while no fragments can arrive.
void BTP_Restart();
/// Empties the slots, their stamps and marks, and the first four entries of the fragment history, which is
/// all that the end of a connection clears. Any thread.
void EraseBTPFrameBuffer();
/// Empties one slot, its stamp and its mark. Any thread.
/// @return 1, or kBtpInvalidSlot
int EraseBTPFrameSlot(unsigned slot);

// ---- Manager task -----------------------------------------------------------------------------------------

/// Tells the manager task of a complete frame (signal 8).
void BTP_Process_Rx_Signal();
/// The body of task "BTP_Manager_Process" (mailbox of 4 bytes): sets the platform up, transmits, passes the
/// news of complete frames on to task "BTPtoCoAP", and empties the slots when the phone has disconnected,
/// which it sees within 2 s. Does not return.
void BTP_Manager_Process_Task();

}  // extern "C"
