#include "GOS.h"

#include "facade/Log.h"
#include "semaphore/MutexPosix.h"
#include "thread/TaskCollection.h"

#include <unistd.h>

#include <array>
#include <atomic>

BRISCA_LOG_NODE(logNode, "[KORA][GOS]");

namespace {
constexpr unsigned kMillisecondsPerSecond = 1000;
constexpr unsigned kMicrosecondsPerMillisecond = 1000;
constexpr uint16_t kNoLimit = 0xFFFF;

using SemaphoreTable = std::array<MutexPosix, 5>;
// Never destroyed: tasks may still hold or wait for a semaphore when the process ends.
SemaphoreTable& semaphores = *new SemaphoreTable{
    MutexPosix("GBS_BGLIB_SEMAPHORE_ID"), MutexPosix("GBS_API_SEMAPHORE_ID"),
    MutexPosix("GBS_AD_DATA_SEMAPHORE_ID"), MutexPosix("SEM_ID_BTP_FRAME"), MutexPosix("SEM_ID_BTP_TX")};

GOS_CommonData commonData = {0};

MutexPosix* findSemaphore(unsigned id)
{
    if (id < semaphores.size())
        return &semaphores[id];
    BRISCA_FATAL(logNode, "SemaphoreID %d don't exist", static_cast<int>(id));
    return nullptr;
}

/// Every task may ask for the record at any time, so its field is only touched atomically.
std::atomic_ref<uint16_t> exceptionOf(GOS_CommonData* data)
{
    return std::atomic_ref<uint16_t>(data->exceptionCode);
}
}  // namespace

void GOS_CreateTask(const char* name, void (*entry)(void), int mailboxSize)
{
    GlobalTaskCollection.CreateTask(name, entry, mailboxSize);
}

void GOS_StartTasks(void)
{
    GlobalTaskCollection.StartTasks();
}

void GOS_Join(void)
{
    GlobalTaskCollection.Join();
}

void GOS_WaitForSemaphore(unsigned id)
{
    if (MutexPosix* const semaphore = findSemaphore(id))
        semaphore->Lock();
}

void GOS_ReleaseSemaphore(unsigned id)
{
    if (MutexPosix* const semaphore = findSemaphore(id))
        semaphore->Unlock();
}

int GOS_WaitForDelay(unsigned milliseconds)
{
    if (milliseconds >= kMillisecondsPerSecond)
        sleep(milliseconds / kMillisecondsPerSecond);
    const unsigned rest = milliseconds % kMillisecondsPerSecond;
    if (rest != 0)
        usleep(rest * kMicrosecondsPerMillisecond);
    return 1;
}

int GOS_WaitForSignal(uint32_t mask, int timeoutMs)
{
    return GlobalTaskCollection.WaitForSignal(mask, timeoutMs);
}

void GOS_SendSignal(uint32_t bits, int taskId)
{
    GlobalTaskCollection.SendSignal(bits, taskId);
}

uint16_t GOS_GetCurrentTaskId(void)
{
    const int id = GlobalTaskCollection.GetCurrentTaskId();
    if (id < 0)
        BRISCA_FATAL(logNode, "Failed to find current task id");
    return static_cast<uint16_t>(id);
}

void GOS_WaitForMail(int taskId, char* buffer)
{
    GlobalTaskCollection.WaitForMail(buffer, taskId);
}

int GOS_RequestSendMail(int taskId, char* buffer)
{
    GlobalTaskCollection.SendMail(buffer, taskId);
    return 1;
}

int GOS_GetTaskID(const char* name)
{
    return GlobalTaskCollection.GetTaskId(name);
}

GOS_CommonData* GOS_GetCommonData(void)
{
    BRISCA_TRACE(logNode, "Stub : GOS_GetCommonData");
    exceptionOf(&commonData).store(0, std::memory_order_relaxed);
    return &commonData;
}

uint16_t GOS_GetException(void)
{
    return exceptionOf(GOS_GetCommonData()).load(std::memory_order_relaxed);
}

void GOS_SetErrno(int error)
{
    BRISCA_TRACE(logNode, "Stub : GOS_SetErrno %d", error);
}

uint16_t StrLenMax(const char* string, uint16_t limit)
{
    if (string == nullptr || limit == kNoLimit)
        return 0;
    uint16_t length = 0;
    while (length <= limit && string[length] != '\0')
        ++length;
    return length;
}
