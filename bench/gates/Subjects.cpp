// What scripts/gates.sh counts: one subject once, on one thread, with clock and sleep standing still, so that
// what is counted depends on the code alone. usage: bench_gates SUBJECT

#include "BTP_Core.h"
#include "BridgePipes.h"
#include "GBSSlave.h"
#include "GOS.h"
#include "MemoryLine.h"
#include "PipeTasks.h"
#include "facade/Log.h"

#include <fcntl.h>
#include <unistd.h>

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>

BRISCA_LOG_NODE(logNode, "Bench.comm.Log");

namespace {
constexpr unsigned kNever = ~0U;
unsigned sleepsOfTurn = kNever;  // the one after these ends the turn
std::jmp_buf endOfTurn;
}  // namespace

// These two stand in the C library's place.
extern "C" int clock_gettime(clockid_t, timespec* now) noexcept
{
    *now = {};
    return 0;
}

extern "C" int usleep(useconds_t)
{
    if (sleepsOfTurn != kNever && sleepsOfTurn-- == 0)
        std::longjmp(endOfTurn, 1);  // an exception would take memory
    return 0;
}

/// The only thing that is counted.
extern "C" [[gnu::noinline]] void counted(void (*run)());

namespace {
using Bytes = MemoryLine::Bytes;

constexpr const char* kManagerTask = "BTP_Manager_Process";
constexpr const char* kAnswerPipe = "/tmp/ttyBleTx";
constexpr const char* kRequestPipe = "/tmp/ttyBleRx";
constexpr std::size_t kAnswerFragments = 68;
constexpr std::uint8_t kOpened[] = {0xA0, 0x00, 0x08, 0x00};
constexpr std::uint8_t kNotified[] = {0x20, 0x02, 0x0A, 0x05, 0, 0};

Bytes packet;
unsigned written = 0;
int requests = -1;
int answers = -1;

void require(bool condition, const char* what)
{
    if (condition)
        return;
    std::fprintf(stderr, "bench_gates: %s\n", what);
    std::_Exit(EXIT_FAILURE);
}

/// Runs the loop of a task, which nothing but its sleeps can end; it must own nothing while it sleeps.
/// @param sleeps those that belong to the turn
void turn(void (*task)(), unsigned sleeps)
{
    sleepsOfTurn = sleeps;
    if (setjmp(endOfTurn) == 0)
        task();
    sleepsOfTurn = kNever;
}

/// The stack without running tasks, a connected phone, and the application's ends of the pipes.
void setUpStack()
{
    GOS_CreateTask(
        kManagerTask, [] {}, 4);
    BTP_Frame_Init();
    BTP_LowLevel_callback_Init(GBSSlave_GATTNotification);
    BTP_OS_Callback_Init(BTP_Process_Rx_Signal, GOS_WaitForDelay, GOS_WaitForSemaphore, GOS_ReleaseSemaphore);
    BTP_Clock_Driver_Callback_Init(BTPGetTime, BTPSubTime);
    MemoryLine::use();
    require(BridgePipes::instance().create(kAnswerPipe, kRequestPipe), "no pipes");
    requests = ::open(kRequestPipe, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    answers = ::open(kAnswerPipe, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    MemoryLine::toHost = kOpened;
    require(GBSSlave_TreatEvent() == 1, "no connection");
    PipeTasks::followLink();
}

void putFragment()
{
    Bytes fragment(kBtpFragmentLength, 0x5A);
    fragment[0] = btpHeader(true, 0, 0);
    packet = MemoryLine::writeEvent(fragment);
    MemoryLine::toHost = packet;
}

struct Subject
{
    const char* name;
    void (*setUp)();
    void (*prepare)();  // before each run
    void (*run)();
    bool (*hasWorked)();
};

constexpr Subject kSubjects[] = {
    {"fragment",
     [] {
         setUpStack();
         GBSSlave_SetGATTWriteCallback(PipeTasks::GATTWriteCallback);
     },
     putFragment,
     [] {
         GBSSlave_TreatEvent();
         turn(PipeTasks::Task_BTP_to_CoAP, 1);
     },
     [] {
         char request[kRequestHeaderSize + kBtpFragmentPayload + 1];
         return ::read(requests, request, sizeof request) == sizeof request - 1;
     }},
    {"answer",
     [] {
         setUpStack();
         MemoryLine::response = kNotified;
     },
     [] {
         Bytes frame(kAnswerHeaderSize + kMaxAnswerSize, 0x5A);
         frame[kAnswerLengthOffset] = kMaxAnswerSize >> 8;
         frame[kAnswerLengthOffset + 1] = kMaxAnswerSize & 0xFF;
         require(::write(answers, frame.data(), frame.size()) == static_cast<ssize_t>(frame.size()),
                 "no answer");
         char sent[4] = {1};  // what the manager task mails when it has sent the message
         GOS_RequestSendMail(GOS_GetTaskID(kManagerTask), sent);
         MemoryLine::commands = 0;
     },
     [] {
         turn(PipeTasks::Task_Coap_to_BTP, 1);
         const auto message = BridgePipes::instance().received().message();
         written = BTP_Transmit(message.data(), static_cast<unsigned>(message.size()));
     },
     [] { return written == 1 && MemoryLine::commands == kAnswerFragments; }},
    {"event",
     [] {
         setUpStack();
         GBSSlave_SetGATTWriteCallback([](std::uint16_t, std::uint8_t length, std::uint8_t*) {
             written = length;
             return std::uint16_t{1};
         });
     },
     putFragment, [] { GBSSlave_TreatEvent(); }, [] { return written == kBtpFragmentLength; }},
    {"log-on", [] { logNode->setLevel(LogLevel::Info); }, [] {},
     [] { BRISCA_INFO(logNode, "%d bytes on handle %d for '%s'", 69, 26, "BTPtoCoAP"); },
     [] { return true; }},
    {"log-off", [] {}, [] {},
     [] { BRISCA_DEBUG(logNode, "%d bytes on handle %d for '%s'", 69, 26, "BTPtoCoAP"); },
     [] { return true; }},
};

unsigned runs = 0;

void runOnce(const Subject& subject, void (*how)(void (*run)()))
{
    subject.prepare();
    how(subject.run);
    require(subject.hasWorked(), "the subject has not done its work");
}
}  // namespace

void counted(void (*run)())
{
    run();
    ++runs;  // so that the call above is no jump, behind which the counting would go on
}

int main(int argc, char** argv)
{
    const auto* const subject =
        std::find_if(std::begin(kSubjects), std::end(kSubjects),
                     [&](const Subject& row) { return argc == 2 && std::strcmp(row.name, argv[1]) == 0; });
    require(subject != std::end(kSubjects), "usage: bench_gates SUBJECT");
    LogFacade::setLevel("GLOBAL", LogLevel::Notic);
    LogFacade::setLevel("RTapi.TASKS", LogLevel::None);  // this thread is no task
    subject->setUp();
    // What is done once in a process is not counted.
    runOnce(*subject, [](void (*run)()) { run(); });
    runOnce(*subject, counted);
}
