// Times between phone and application on a serial line of real speed (115200 baud), beside their floor, the
// fastest that the fixed waits allow, and beside what they allow on average ("expected"): the event pump
// sleeps 10 ms before each event; the two tasks at the pipes sleep 10 ms between looks, the one towards the
// application 5 ms more after a read; a command waits 10 ms for its response; and every second notification
// is followed by a pause of 3 ms. A poll is met at any phase: at best it costs nothing. BRISCA_BENCH_ROUNDS
// sets how often the quickest things are measured, 200 times when it is not set.

#include "Station.h"
#include "facade/LogFacade.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <random>
#include <stdexcept>
#include <thread>

namespace {
using Clock = std::chrono::steady_clock;
using endtoend::Bytes;
using endtoend::message;
using endtoend::Station;

constexpr double kPollMs = 10;
constexpr double kReadPauseMs = 5;
constexpr double kCommandMs = 10;
constexpr double kPauseMs = 3;
constexpr double kMsPerByte = 10 / 115.2;
constexpr double kWriteMs = 81 * kMsPerByte;         // the event of a full fragment
constexpr double kNotificationMs = 78 * kMsPerByte;  // the command of a full fragment
constexpr double kFragmentsPerSecond = 1000 / kPollMs;
constexpr unsigned kFragmentPayload = 69;
// A request that takes longer is lost: on a busy machine the simulator may stop for 100 ms within a packet,
// which cuts it.
constexpr std::chrono::seconds kLost{3};
constexpr unsigned kFrame = 1120;

unsigned rounds()
{
    const char* text = std::getenv("BRISCA_BENCH_ROUNDS");
    return text != nullptr ? static_cast<unsigned>(std::atoi(text)) : 200;
}

double milliseconds(Clock::duration duration)
{
    return std::chrono::duration<double, std::milli>(duration).count();
}

struct Limits
{
    double floor;
    double expected;
};

/// A look of the pump that finds the beginning of a packet waits for its end, so that of the first poll
/// counts only what is longer than the packet's time on the line.
constexpr Limits kRequest = {
    kWriteMs + kReadPauseMs,
    kWriteMs + (kPollMs - kWriteMs) * (kPollMs - kWriteMs) / (2 * kPollMs) + kReadPauseMs + kPollMs / 2};

unsigned fragmentsOf(std::size_t message)
{
    unsigned fragments = 0;
    for (; message > 0; message -= std::min<std::size_t>(message, kFrame))
        fragments += static_cast<unsigned>((std::min<std::size_t>(message, kFrame) + kFragmentPayload - 1) /
                                           kFragmentPayload);
    return fragments;
}

/// Until the phone has the last fragment: the poll of the pipe, each fragment before it with its wait and
/// pause, and its own time on the line.
Limits answerLimits(std::size_t answer)
{
    const unsigned before = fragmentsOf(answer + 2) - 1;
    const double floor = kCommandMs * before + kPauseMs * (before / 2) + kNotificationMs;
    return {floor, floor + kPollMs / 2};
}

void require(bool condition, const char* what)
{
    if (!condition)
        throw std::runtime_error(what);
}

/// Meets the polls at any phase.
void pauseAtRandom()
{
    static std::mt19937 random(1);
    std::this_thread::sleep_for(std::chrono::microseconds(20000 + random() % 20000));
}

/// @param leftOut measurements that tell nothing, and why
void printTimes(const std::string& what, std::vector<double> times, const Limits& limits, unsigned leftOut,
                const char* why)
{
    if (times.empty()) {
        std::printf("%-36s this machine is too busy to measure it\n", what.c_str());
        return;
    }
    std::sort(times.begin(), times.end());
    const double mean = std::accumulate(times.begin(), times.end(), 0.0) / static_cast<double>(times.size());
    std::printf("%-36s %8.2f %8.2f %8.2f %8.2f %8.2f %8.2f\n", what.c_str(), limits.floor, times.front(),
                limits.expected, mean, times[times.size() / 2], times[times.size() * 99 / 100]);
    if (leftOut > 0)
        std::printf("  (%u of %zu left out: %s)\n", leftOut, leftOut + times.size(), why);
    require(times.front() >= limits.floor, "faster than the floor: the floor is wrong");
}

void measureRequests(Station& station, efr32sim::Phone& phone)
{
    const unsigned count = 2 * rounds();
    std::vector<double> times;
    unsigned lost = 0;
    while (times.size() < count && lost <= count / 10) {
        const Bytes request = message(kFragmentPayload, static_cast<unsigned>(times.size()) + lost);
        pauseAtRandom();
        const auto start = Clock::now();
        require(phone.writeMessage(request), "the phone cannot write");
        const auto received = station.application->waitRequest(kLost);
        require(!received || received == request, "a request was altered");
        if (received)
            times.push_back(milliseconds(Clock::now() - start));
        else
            ++lost;
    }
    printTimes("one fragment, phone to application", times, kRequest, lost, "the request was lost");
}

struct Received
{
    Bytes message;
    bool repeated = false;
};

/// Collects one message. A fragment comes again when the chip's response took longer than 10 ms.
Received receiveAnswer(efr32sim::Phone& phone, unsigned fragments)
{
    static Bytes last;  // the repetition may be that of the message before
    Received received;
    while (fragments > 0) {
        auto notification = phone.waitNotification();
        require(notification.has_value(), "a notification is missing");
        if (*notification == last) {
            received.repeated = true;
            continue;
        }
        received.message.insert(received.message.end(), notification->begin() + 1, notification->end());
        last = std::move(*notification);
        --fragments;
    }
    return received;
}

void measureAnswer(Station& station, efr32sim::Phone& phone, std::size_t size, unsigned count)
{
    std::vector<double> times;
    unsigned disturbed = 0;
    while (times.size() < count && disturbed <= count) {
        const Bytes answer = message(size, static_cast<unsigned>(times.size()));
        pauseAtRandom();
        const auto start = Clock::now();
        station.application->answer(answer);
        const Received received = receiveAnswer(phone, fragmentsOf(size + 2));
        const double time = milliseconds(Clock::now() - start);
        require(
            std::equal(answer.begin(), answer.end(), received.message.begin() + 2, received.message.end()),
            "an answer was altered");
        if (received.repeated)
            ++disturbed;
        else
            times.push_back(time);
    }
    printTimes("answer of " + std::to_string(size) + " bytes", times, answerLimits(size), disturbed,
               "the chip's response came too late");
}

void measureFragmentRate(Station& station, efr32sim::Phone& phone)
{
    constexpr unsigned kFrames = 20;
    constexpr unsigned kFragments = 16;
    const Bytes request = message(kFragments * kFragmentPayload);
    const auto start = Clock::now();
    for (unsigned frame = 0; frame < kFrames; ++frame)
        require(phone.writeMessage(request), "the phone cannot write");
    for (unsigned frame = 0; frame < kFrames; ++frame) {
        const auto received = station.application->waitRequest(kLost);
        if (!received) {
            std::puts("fragments received: not measured, one was lost");
            return;
        }
        require(received == request, "a request was altered");
    }
    const double seconds = milliseconds(Clock::now() - start) / 1000;
    std::printf("fragments received: %.1f a second, of %g that the polls allow\n",
                kFrames * kFragments / seconds, kFragmentsPerSecond);
}

void measure()
{
    LogFacade::setLevel("GLOBAL", LogLevel::Error);
    // Its tasks live as long as the process.
    Station& station = *new Station(true);
    efr32sim::Phone phone(station.chip);
    require(phone.connect(), "the phone cannot connect");
    std::printf("%-36s %8s %8s %8s %8s %8s %8s\n", "ms", "floor", "least", "expected", "mean", "p50", "p99");
    measureRequests(station, phone);
    measureAnswer(station, phone, 100, rounds());
    measureAnswer(station, phone, 1000, rounds() / 2);
    measureAnswer(station, phone, 4475, rounds() / 4);
    measureFragmentRate(station, phone);
    phone.disconnect();
}
}  // namespace

int main()
{
    int result = EXIT_SUCCESS;
    try {
        measure();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_endtoend: %s\n", error.what());
        result = EXIT_FAILURE;
    }
    // The stack's tasks run until the process ends, so it ends without destroying what they use.
    std::fflush(nullptr);
    ::_exit(result);
}
