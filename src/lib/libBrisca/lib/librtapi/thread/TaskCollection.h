#pragma once

#include "thread/Task.h"

#include <list>
#include <memory>

/// The tasks of the process in order of creation; a task's id is its position.
///
/// Not locked: one thread creates the tasks, then starts them, and nothing is created afterwards. All other
/// operations may then be called from any thread.
class TaskCollection
{
public:
    TaskCollection() = default;
    /// Deletes every task; none of them may be running.
    ~TaskCollection() = default;
    TaskCollection(const TaskCollection&) = delete;
    TaskCollection& operator=(const TaskCollection&) = delete;

    /// Appends a task that StartTasks() will start.
    void CreateTask(const char* name, void (*entry)(), int mailboxSize);
    void StartTasks();
    /// Waits until every started task has ended, in order.
    void Join();

    /// Id of the task of this name, the last one when several bear it; -1 when there is none.
    [[nodiscard]] int GetTaskId(const char* name) const;
    /// Id of the calling task; -1 when the caller is no task.
    [[nodiscard]] int GetCurrentTaskId() const;

    /// The calling task waits for its signal bits, see SignalHandler::WaitForSignal(); -1 when the caller is
    /// no task.
    int WaitForSignal(unsigned mask, int timeoutMs);
    // The task addressed is the first whose name has this id, so of two tasks with one name the first is
    // served under the id of the second. An unknown id is one line in the log.
    void SendSignal(unsigned bits, int taskId);
    void WaitForMail(char* buffer, int taskId);
    void SendMail(char* buffer, int taskId);

    /// Logs the tables of tasks, pending signals and mailboxes at TRACE.
    void PrintModelState();

private:
    [[nodiscard]] int findId(const char* name) const;
    [[nodiscard]] Task* findTask(int taskId) const;
    [[nodiscard]] Task* findCurrentTask() const;

    std::list<std::unique_ptr<Task>> m_tasks;
};

/// The one collection behind the GOS functions, built at static initialisation. It is never destroyed: its
/// tasks may still run while the process ends, and they use it until the last moment.
extern TaskCollection& GlobalTaskCollection;
