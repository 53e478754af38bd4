#include "Harness.h"

#include "LineOwner.h"

#include <semaphore>

namespace {
std::array<std::atomic<int>, 5> requests;
std::array<std::atomic<int>, 5> holders;
thread_local std::vector<unsigned> heldHere;
constexpr std::array kPlaceInOrder = {3, 1, 2, -1, 0};  // the lock order of LineOwner.h, by semaphore
}  // namespace

// The linker puts these in place of the two GOS functions.
extern "C" {
void __real_GOS_WaitForSemaphore(unsigned id);
void __real_GOS_ReleaseSemaphore(unsigned id);

void __wrap_GOS_WaitForSemaphore(unsigned id)
{
    ++requests.at(id);
    EXPECT_TRUE(heldHere.empty() || kPlaceInOrder.at(heldHere.back()) <= kPlaceInOrder.at(id))
        << id << " is taken under " << heldHere.back();
    heldHere.push_back(id);
    __real_GOS_WaitForSemaphore(id);
    ++holders.at(id);
}

void __wrap_GOS_ReleaseSemaphore(unsigned id)
{
    --holders.at(id);
    std::erase(heldHere, id);
    __real_GOS_ReleaseSemaphore(id);
}
}

namespace gbstest {
namespace {
std::string packet(std::uint8_t type, std::string_view id, std::string_view payload)
{
    const std::string body = fromHex(payload);
    std::string bytes;
    bytes += static_cast<char>(type | (body.size() >> 8));
    bytes += static_cast<char>(body.size());
    return bytes + fromHex(id) + body;
}

std::string describe(std::string_view command)
{
    if (command.size() < 4 ||
        command.substr(0, 4) !=
            packet(0x20, toHex(command.substr(2, 2)), toHex(command.substr(4))).substr(0, 4))
        return "malformed " + toHex(command);
    const std::string payload = toHex(command.substr(4));
    return toHex(command.substr(2, 2)) + ":" + (payload.empty() ? "" : " ") + payload;
}

/// The one GOS task's job; the next is handed over when this one is done. Lives until the process ends, like
/// the task.
struct Worker
{
    std::packaged_task<std::string()> job;
    std::binary_semaphore given{0};
};
Worker& worker = *new Worker;

void workerTask()
{
    for (;;) {
        worker.given.acquire();
        std::exchange(worker.job, {})();
    }
}

/// After a test that has let go of the line commands would send nothing.
void takeLine()
{
    if (!LineOwner::isLetGo())
        return;
    static const Pty line;
    EXPECT_EQ(GBSSlave_Init(line.slavePath().c_str()), 1u);
    GBSSlave_ResumeEvents();
}
}  // namespace

std::string fromHex(std::string_view text)
{
    std::string bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 3)
        bytes += static_cast<char>(std::stoi(std::string(text.substr(i, 2)), nullptr, 16));
    return bytes;
}

std::string toHex(std::string_view bytes)
{
    std::string text;
    for (const char byte : bytes) {
        char pair[4];
        std::snprintf(pair, sizeof pair, "%s%02X", text.empty() ? "" : " ", static_cast<unsigned char>(byte));
        text += pair;
    }
    return text;
}

std::string response(std::string_view id, std::string_view payload)
{
    return packet(0x20, id, payload);
}

std::string event(std::string_view id, std::string_view payload)
{
    return packet(0xA0, id, payload);
}

FakeChip::FakeChip() : m_answer(accept)
{
    takeLine();
    m_line.emplace().chip = [this](const std::string& command) {
        m_commands.push_back(describe(command));
        EXPECT_TRUE(semaphoreTaken(GBS_BGLIB_SEMAPHORE_ID));
        m_allUnderApiLock = m_allUnderApiLock && semaphoreTaken(GBS_API_SEMAPHORE_ID);
        return m_answer(m_commands.back());
    };
}

void FakeChip::answerWith(Answer answer)
{
    const std::lock_guard lock(m_line->mutex);
    m_answer = std::move(answer);
}

void FakeChip::send(std::string_view bytes)
{
    const std::lock_guard lock(m_line->mutex);
    m_line->toHost += bytes;
}

Lines FakeChip::commands()
{
    const std::lock_guard lock(m_line->mutex);
    return m_commands;
}

std::string FakeChip::takeCommands()
{
    const std::lock_guard lock(m_line->mutex);
    std::string line;
    for (const std::string& command : m_commands)
        line += (line.empty() ? "" : " | ") + command;
    m_commands.clear();
    m_allUnderApiLock = true;
    return line;
}

bool FakeChip::allUnderApiLock()
{
    const std::lock_guard lock(m_line->mutex);
    return m_allUnderApiLock;
}

std::string accept(const std::string& command)
{
    return response(idOf(command), "00 00");
}

std::string idOf(const std::string& command)
{
    return command.substr(0, 5);
}

int semaphoreRequests(unsigned id)
{
    return requests.at(id);
}

bool semaphoreTaken(unsigned id)
{
    return holders.at(id) > 0;
}

std::future<std::string> onTask(std::function<std::string()> function)
{
    static std::once_flag started;
    std::call_once(started, [] {
        GOS_CreateTask("worker", workerTask, 4);
        GOS_StartTasks();
    });
    worker.job = std::packaged_task<std::string()>(std::move(function));
    std::future<std::string> done = worker.job.get_future();
    worker.given.release();
    return done;
}

std::string pumpUntilDone(std::future<std::string>& done)
{
    const bool inTime = waitUntil([&] {
        GBSSlave_TreatEvent();
        return done.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    });
    return inTime ? done.get() : "still waiting";
}
}  // namespace gbstest
