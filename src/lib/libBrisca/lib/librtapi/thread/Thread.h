#pragma once

#include <pthread.h>

#include <atomic>
#include <string>

/// One POSIX thread that runs Execute() of a derived class.
class Thread
{
public:
    explicit Thread(std::string name);
    virtual ~Thread() = default;
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    /// Starts the thread: Setup(), then Execute(argument). Ends the process with status 1 when the system has
    /// no thread left. The object must outlive the thread.
    void Start();
    void Start(void* argument);
    /// Waits until the thread has ended; returns at once when it was never started or is joined already.
    void Join();
    /// Ends the calling thread.
    [[noreturn]] void Exit();
    /// Sends SIGPIPE to the thread.
    void Kill();
    /// POSIX id of the thread; a value that equals no thread's before it runs and after Join(). Any thread.
    [[nodiscard]] pthread_t GetId() const { return m_id.load(std::memory_order_acquire); }
    /// True when called on this thread. Any thread.
    [[nodiscard]] bool isCurrent() const;

    [[nodiscard]] const std::string& name() const { return m_name; }

protected:
    /// Part of the interface; nothing calls it.
    virtual void Reserved() {}
    /// Runs first on the new thread.
    virtual void Setup() {}
    /// Body of the thread. The base class's own runs only when a constructor starts the thread too early; it
    /// ends the process with status -1.
    virtual void Execute(void* argument);

private:
    static void* EntryPoint(void* self);
    void Run(void* argument);

    // Stored by the new thread itself as well, because it may ask for its id before pthread_create returns.
    std::atomic<pthread_t> m_id{};
    std::atomic<bool> m_joinable = false;
    std::string m_name;
    void* m_argument = nullptr;
};
