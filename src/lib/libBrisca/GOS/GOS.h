/// The flat C interface through which the parts of the Bluetooth LE stack reach the operating system: tasks,
/// their signal bits and mailboxes, five numbered mutual-exclusion semaphores, and delays.
///
/// Any thread may call any function, with one rule: every task is created before GOS_StartTasks(), and none
/// afterwards. No function reports a failure except by the result named with it; each failure is a line on
/// the log node "[KORA][GOS]" or on that of the runtime library.
#ifndef BRISCA_GOS_H
#define BRISCA_GOS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// The numbered semaphores: plain locks without an owner (any thread may release) that are not recursive; a
/// task that takes one twice never returns. The order in which they are taken: LineOwner.h.
enum GOS_SemaphoreId {
    GBS_BGLIB_SEMAPHORE_ID = 0,    ///< one packet exchange on the co-processor's line
    GBS_API_SEMAPHORE_ID = 1,      ///< one call of the BLE facade
    GBS_AD_DATA_SEMAPHORE_ID = 2,  ///< the advertising buffers
    SEM_ID_BTP_FRAME = 3,          ///< the reassembly store of the BTP transport
    SEM_ID_BTP_TX = 4,             ///< one BTP writer at a time
};

/// Result of GOS_GetCurrentTaskId() on a thread that is no task.
#define GOS_NO_TASK 0xFFFFu

/// Process-wide data of the tasks.
typedef struct GOS_CommonData
{
    uint16_t exceptionCode;  ///< 0: none; no other value is ever set
} GOS_CommonData;

/// Creates a task (thread, signal bits, mailbox) that GOS_StartTasks() will start. Its id is its position in
/// the order of creation, from 0.
/// @param name        NUL-terminated, copied; names should be unique, because ids are looked up by name
/// @param entry       body of the task; the task ends when it returns
/// @param mailboxSize bytes of each message of its mailbox
void GOS_CreateTask(const char* name, void (*entry)(void), int mailboxSize);

/// Starts the thread of every created task, in order of creation.
void GOS_StartTasks(void);

/// Waits until every task has ended. Tasks that were never started do not count.
void GOS_Join(void);

/// Takes a numbered semaphore; blocks without limit until its holder releases it.
/// An id that does not exist is logged, and the caller continues unprotected.
void GOS_WaitForSemaphore(unsigned id);

/// Releases a numbered semaphore.
void GOS_ReleaseSemaphore(unsigned id);

/// Sleeps.
/// @return 1
int GOS_WaitForDelay(unsigned milliseconds);

/// Waits until any bit of @p mask is pending for the calling task.
/// @param timeoutMs 0 waits without limit. The deadline's nanoseconds are not carried over into its seconds:
///                  a wait whose deadline reaches 1,000,000,000 ns spins, without time-out, until a bit
///                  comes.
/// @return all pending bits, also those outside the mask, which are then cleared; 0 after a time-out, which
///         clears all pending bits, too; -1 when the caller is no task
int GOS_WaitForSignal(uint32_t mask, int timeoutMs);

/// Adds bits to the pending ones of a task and wakes it. An unknown id is logged.
void GOS_SendSignal(uint32_t bits, int taskId);

/// Id of the calling task, or GOS_NO_TASK.
uint16_t GOS_GetCurrentTaskId(void);

/// Blocks until the mailbox of a task holds a message, and takes it. An unknown id is logged and returns at
/// once; so does a wake-up that belongs to a message dropped by a full mailbox, which leaves @p buffer as it
/// is.
/// @param buffer receives the mailbox's message size in bytes
void GOS_WaitForMail(int taskId, char* buffer);

/// Puts a message into the mailbox of a task. A message to a full mailbox (32 messages) is dropped, an
/// unknown id is logged.
/// @param buffer the mailbox's message size in bytes are copied from it, whatever it holds
/// @return 1
int GOS_RequestSendMail(int taskId, char* buffer);

/// Id of the task of this name, the last one when several bear it; -1 when there is none.
int GOS_GetTaskID(const char* name);

/// The process-wide data, with the exception code reset to 0; never null.
GOS_CommonData* GOS_GetCommonData(void);

/// The exception code of the process-wide data: 0.
uint16_t GOS_GetException(void);

/// Notes the error number of a refused call in the log; nothing is stored.
void GOS_SetErrno(int error);

/// Length of a string that need not be terminated, bounded by a limit.
/// @param limit last position that is looked at, so the result reaches limit + 1 when no NUL stands at or
///              before it; the caller that needs a hard bound takes the smaller of result and bound
/// @return characters before the first NUL; 0 for a null string and for a limit of 0xFFFF
uint16_t StrLenMax(const char* string, uint16_t limit);

#ifdef __cplusplus
}
#endif

#endif
