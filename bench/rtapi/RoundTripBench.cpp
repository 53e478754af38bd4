// One round trip between two tasks, by signal bits and by mail, beside the same round trip over std::mutex
// and std::condition_variable. Each trip is two hand-overs of the processor.

#include "GOS.h"
#include "PeerRatios.h"

#include <sched.h>

#include <array>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <thread>

namespace {
constexpr std::uint32_t kRequest = 4;
constexpr std::uint32_t kStop = 8;
constexpr std::uint32_t kAnswer = 2;
constexpr int kMessageSize = 4;
using Message = std::array<char, kMessageSize>;
constexpr Message kStopMessage = {'s', 't', 'o', 'p'};

/// The peer of a task's signal bits.
class StdSignals
{
public:
    void send(std::uint32_t bits)
    {
        {
            const std::lock_guard lock(m_mutex);
            m_pending |= bits;
        }
        m_condition.notify_one();
    }
    std::uint32_t wait(std::uint32_t mask)
    {
        std::unique_lock lock(m_mutex);
        m_condition.wait(lock, [&] { return (m_pending & mask) != 0; });
        return std::exchange(m_pending, 0);
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_condition;
    std::uint32_t m_pending = 0;
};

/// The peer of a task's mailbox.
class StdMailBox
{
public:
    void send(const Message& message)
    {
        {
            const std::lock_guard lock(m_mutex);
            if (m_count == m_slots.size())
                return;
            m_slots[(m_front + m_count++) % m_slots.size()] = message;
        }
        m_condition.notify_one();
    }
    Message wait()
    {
        std::unique_lock lock(m_mutex);
        m_condition.wait(lock, [&] { return m_count != 0; });
        const Message message = m_slots[m_front];
        m_front = (m_front + 1) % m_slots.size();
        --m_count;
        return message;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_condition;
    std::array<Message, 32> m_slots = {};
    std::size_t m_front = 0;
    std::size_t m_count = 0;
};

int clientId = 0;
int signalServerId = 0;
int mailServerId = 0;

void signalServer()
{
    while ((GOS_WaitForSignal(kRequest | kStop, 0) & static_cast<int>(kStop)) == 0)
        GOS_SendSignal(kAnswer, clientId);
}

void mailServer()
{
    Message message = {};
    for (GOS_WaitForMail(mailServerId, message.data()); message != kStopMessage;
         GOS_WaitForMail(mailServerId, message.data()))
        GOS_RequestSendMail(clientId, message.data());
}

void signalBrisca(benchmark::State& state)
{
    for (auto _ : state) {
        GOS_SendSignal(kRequest, signalServerId);
        GOS_WaitForSignal(kAnswer, 0);
    }
}
BENCHMARK(signalBrisca)->Name("signal/brisca")->MeasureProcessCPUTime();

void signalStd(benchmark::State& state)
{
    StdSignals client;
    StdSignals server;
    std::jthread thread([&] {
        while ((server.wait(kRequest | kStop) & kStop) == 0)
            client.send(kAnswer);
    });
    for (auto _ : state) {
        server.send(kRequest);
        client.wait(kAnswer);
    }
    server.send(kStop);
}
BENCHMARK(signalStd)->Name("signal/std")->MeasureProcessCPUTime();

void mailBrisca(benchmark::State& state)
{
    Message message = {'p', 'i', 'n', 'g'};
    for (auto _ : state) {
        GOS_RequestSendMail(mailServerId, message.data());
        GOS_WaitForMail(clientId, message.data());
    }
}
BENCHMARK(mailBrisca)->Name("mail/brisca")->MeasureProcessCPUTime();

void mailStd(benchmark::State& state)
{
    StdMailBox client;
    StdMailBox server;
    std::jthread thread([&] {
        for (Message message = server.wait(); message != kStopMessage; message = server.wait())
            client.send(message);
    });
    Message message = {'p', 'i', 'n', 'g'};
    for (auto _ : state) {
        server.send(message);
        message = client.wait();
    }
    server.send(kStopMessage);
}
BENCHMARK(mailStd)->Name("mail/std")->MeasureProcessCPUTime();

int argumentCount;
char** arguments;

/// The benchmarks run on a task, because only a task can wait for signals.
void client()
{
    PeerRatios::runAll(argumentCount, arguments);
    GOS_SendSignal(kStop, signalServerId);
    Message stop = kStopMessage;
    GOS_RequestSendMail(mailServerId, stop.data());
}
}  // namespace

int main(int argc, char** argv)
{
    cpu_set_t processors;
    CPU_ZERO(&processors);
    CPU_SET(sched_getcpu(), &processors);
    sched_setaffinity(0, sizeof processors, &processors);
    argumentCount = argc;
    arguments = argv;
    GOS_CreateTask("client", client, kMessageSize);
    GOS_CreateTask("signalServer", signalServer, kMessageSize);
    GOS_CreateTask("mailServer", mailServer, kMessageSize);
    clientId = GOS_GetTaskID("client");
    signalServerId = GOS_GetTaskID("signalServer");
    mailServerId = GOS_GetTaskID("mailServer");
    GOS_StartTasks();
    GOS_Join();
}
