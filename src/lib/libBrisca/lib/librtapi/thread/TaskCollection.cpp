#include "thread/TaskCollection.h"

#include "facade/Log.h"

#include <cstring>

BRISCA_LOG_NODE(logNode, "RTapi.TASKS");

TaskCollection& GlobalTaskCollection = *new TaskCollection;

void TaskCollection::CreateTask(const char* name, void (*entry)(), int mailboxSize)
{
    BRISCA_DEBUG(logNode, "Create task '%s' with mailboxsize %d", name, mailboxSize);
    m_tasks.push_back(std::make_unique<Task>(name, entry, mailboxSize));
}

void TaskCollection::StartTasks()
{
    for (const auto& task : m_tasks)
        task->Start();
}

void TaskCollection::Join()
{
    for (const auto& task : m_tasks)
        task->Join();
}

int TaskCollection::findId(const char* name) const
{
    int found = -1;
    int index = 0;
    for (const auto& task : m_tasks) {
        if (std::strcmp(task->name().c_str(), name) == 0)
            found = index;
        ++index;
    }
    return found;
}

int TaskCollection::GetTaskId(const char* name) const
{
    const int id = findId(name);
    if (id < 0)
        BRISCA_ERROR(logNode, "Failed to find task '%s'", name);
    return id;
}

int TaskCollection::GetCurrentTaskId() const
{
    if (const Task* const task = findCurrentTask())
        return findId(task->name().c_str());
    BRISCA_ERROR(logNode, "Failed to get current task Id");
    return -1;
}

Task* TaskCollection::findCurrentTask() const
{
    for (const auto& task : m_tasks) {
        if (task->isCurrent())
            return task.get();
    }
    return nullptr;
}

Task* TaskCollection::findTask(int taskId) const
{
    for (const auto& task : m_tasks) {
        if (findId(task->name().c_str()) == taskId)
            return task.get();
    }
    return nullptr;
}

int TaskCollection::WaitForSignal(unsigned mask, int timeoutMs)
{
    if (Task* const task = findCurrentTask())
        return task->WaitForSignal(mask, timeoutMs);
    BRISCA_FATAL(logNode, "Failed to find current task");
    return -1;
}

void TaskCollection::SendSignal(unsigned bits, int taskId)
{
    if (Task* const task = findTask(taskId))
        task->SendSignal(bits);
    else
        BRISCA_ERROR(logNode, "Failed to send signal '%d' to task '%d'", static_cast<int>(bits), taskId);
}

void TaskCollection::WaitForMail(char* buffer, int taskId)
{
    if (Task* const task = findTask(taskId))
        task->WaitForMail(buffer);
    else
        BRISCA_FATAL(logNode, "Failed to find current task");
}

void TaskCollection::SendMail(char* buffer, int taskId)
{
    if (Task* const task = findTask(taskId))
        task->SendMail(buffer);
    else
        BRISCA_ERROR(logNode, "Failed to send mail '%s' to task '%d'", buffer, taskId);
}

void TaskCollection::PrintModelState()
{
    if (!logNode->passes(LogLevel::Trace))
        return;
    BRISCA_TRACE(logNode, "-------Task table-------");
    BRISCA_TRACE(logNode, "Name      :threadId            :TaskId");
    for (const auto& task : m_tasks) {
        BRISCA_TRACE(logNode, "%-10s:%-20lu :%2d", task->name().c_str(),
                     static_cast<unsigned long>(task->GetId()), findId(task->name().c_str()));
    }
    BRISCA_TRACE(logNode, "-------Signal Handler table-------");
    BRISCA_TRACE(logNode, "Name      :receivedSignals");
    for (const auto& task : m_tasks)
        task->PrintSignalState();
    BRISCA_TRACE(logNode, "-------Mailbox table-------");
    BRISCA_TRACE(logNode, "Name      :MaxDataSize:IsEmpty:IsFull:FifoFrontData:FifoBackData");
    for (const auto& task : m_tasks)
        task->PrintMailboxState();
}
