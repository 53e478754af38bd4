// Times between phone and application on a serial line of real speed (115200 baud), beside the floors that
// the fixed waits impose: the event pump sleeps 10 ms before each event; the two tasks at the pipes sleep 10
// ms between looks, the one towards the application 5 ms more after a read; a command waits 10 ms for its
// response; and every second notification is followed by a pause of 3 ms. A full fragment takes 7 ms on the
// line. All floors of times are quantiles, because the polls are met at any phase. BRISCA_BENCH_ROUNDS sets
// how often the quickest things are measured, 200 times when it is not set.

#include "Station.h"
#include "facade/LogFacade.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <stdexcept>
#include <thread>

namespace {
using Clock = std::chrono::steady_clock;
using endtoend::Bytes;
using endtoend::message;
using endtoend::Station;

// A fragment's way to the application: line and read pause, plus two polls that are met at any phase.
constexpr double kRequestBestMs = 12;
constexpr double kPollMs = 10;
constexpr double kCommandMs = 10;
constexpr double kPauseMs = 3;
constexpr double kNotificationMs = 78 * 10 / 115.2;  // command of 78 bytes, 10 bits each
constexpr double kFragmentsPerSecond = 99;
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

double percentile(std::vector<double> values, double part)
{
    std::sort(values.begin(), values.end());
    const auto index = static_cast<std::size_t>(part * static_cast<double>(values.size() - 1) + 0.5);
    return values[index];
}

/// Quantile of best + two independent waits of 0 to kPollMs.
double requestFloor(double part)
{
    const double waits = part <= 0.5 ? std::sqrt(2 * part) : 2 - std::sqrt(2 * (1 - part));
    return kRequestBestMs + kPollMs * waits;
}

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
double answerFloor(std::size_t answer, double part)
{
    const unsigned before = fragmentsOf(answer + 2) - 1;
    return kPollMs * part + kCommandMs * before + kPauseMs * (before / 2) + kNotificationMs;
}

void printRow(const char* what, double measured, double floor, const char* unit)
{
    std::printf("%-44s %9.2f %9.2f %-4s %6.2f\n", what, measured, floor, unit, measured / floor);
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

/// @param floor the floor of a quantile
/// @param leftOut measurements that tell nothing, and why
template <class Floor>
void printTimes(const std::string& what, const std::vector<double>& times, Floor floor, unsigned leftOut,
                const char* why)
{
    if (times.empty()) {
        std::printf("%-44s this machine is too busy to measure it\n", what.c_str());
        return;
    }
    printRow((what + ", p50").c_str(), percentile(times, 0.5), floor(0.5), "ms");
    printRow((what + ", p99").c_str(), percentile(times, 0.99), floor(0.99), "ms");
    if (leftOut > 0)
        std::printf("  (%u of %zu left out: %s)\n", leftOut, leftOut + times.size(), why);
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
    printTimes("one fragment, phone to application", times, requestFloor, lost, "the request was lost");
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
    const auto floor = [size](double part) { return answerFloor(size, part); };
    printTimes("answer of " + std::to_string(size) + " bytes", times, floor, disturbed,
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
            std::puts("fragments received                           not measured: one was lost");
            return;
        }
        require(received == request, "a request was altered");
    }
    const double seconds = milliseconds(Clock::now() - start) / 1000;
    const double rate = kFrames * kFragments / seconds;
    // A rate is better when it is higher: the ratio is turned so that 1 is the floor here, too.
    std::printf("%-44s %9.2f %9.2f %-4s %6.2f\n", "fragments received", rate, kFragmentsPerSecond, "1/s",
                kFragmentsPerSecond / rate);
}

void measure()
{
    LogFacade::setLevel("GLOBAL", LogLevel::Error);
    // Its tasks live as long as the process.
    Station& station = *new Station(true);
    efr32sim::Phone phone(station.chip);
    require(phone.connect(), "the phone cannot connect");
    std::printf("%-44s %9s %9s %-4s %6s\n", "", "measured", "floor", "", "ratio");
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
