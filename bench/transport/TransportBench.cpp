// What a packet and a command cost on the co-processor's line: a packet from memory, packets from a terminal
// beside the system calls that they take, a command with the 10 ms that it pauses before its response.

#include "MemoryLine.h"
#include "NCPDriver.h"
#include "NCP_Manager.h"
#include "PeerRatios.h"
#include "gecko.h"
#include "uart_posix.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

namespace {
using Bytes = MemoryLine::Bytes;

constexpr std::size_t kFragmentSize = 70;
constexpr int kBatch = 32;  // packets that fit the terminal's input queue
constexpr std::array<std::uint8_t, 6> kStopped = {0x20, 0x02, 0x03, 0x15, 0, 0};

Bytes fragmentEvent()
{
    return MemoryLine::writeEvent(Bytes(kFragmentSize, 0x5A));
}

std::uint64_t delivered;

std::uint16_t onWrite(std::uint16_t, std::uint8_t length, std::uint8_t* data)
{
    benchmark::DoNotOptimize(data[length - 1]);
    ++delivered;
    return 1;
}

void expectDelivered(benchmark::State& state, std::uint64_t count)
{
    if (delivered != count)
        state.SkipWithError("packets were lost");
}

void dispatchFromMemory(benchmark::State& state)
{
    const Bytes packet = fragmentEvent();
    MemoryLine::use();
    NCPManager_SetGATTWriteCallback(onWrite);
    delivered = 0;
    for (auto _ : state) {
        MemoryLine::toHost = packet;
        NCPManager_EventHandler();
    }
    expectDelivered(state, static_cast<std::uint64_t>(state.iterations()));
}
BENCHMARK(dispatchFromMemory)->Name("a packet in memory/brisca");

/// A pseudo-terminal whose far side the benchmark plays.
struct Terminal
{
    Terminal() : master(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        if (::grantpt(master) != 0 || ::unlockpt(master) != 0 ||
            ::ptsname_r(master, path, sizeof path) != 0 || NCPDriver_Init(path) != 1)
            std::abort();
    }
    ~Terminal() { ::close(master); }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// Puts a batch of packets on the line and waits until all of it can be read.
    void deliver(const Bytes& packet) const
    {
        for (int i = 0; i < kBatch; ++i) {
            if (::write(master, packet.data(), packet.size()) != static_cast<ssize_t>(packet.size()))
                std::abort();
        }
        const auto total = static_cast<std::int32_t>(packet.size()) * kBatch;
        while (uartRxPeek() < total)
            ::usleep(10);
    }

    int master;
    char path[64] = {};
};

/// The system calls of reading packets, and nothing else: one look, then header and payload.
void readFromTerminal(benchmark::State& state)
{
    const Terminal terminal;
    const int fd = ::open(terminal.path, O_RDWR | O_NOCTTY | O_CLOEXEC);
    const Bytes packet = fragmentEvent();
    std::array<std::uint8_t, sizeof(gecko_cmd_packet)> buffer;
    for (auto _ : state) {
        state.PauseTiming();
        terminal.deliver(packet);
        state.ResumeTiming();
        for (int i = 0; i < kBatch; ++i) {
            int left = 0;
            ::ioctl(fd, FIONREAD, &left);
            for (const std::size_t part : {std::size_t{1}, std::size_t{3}, packet.size() - 4})
                benchmark::DoNotOptimize(::read(fd, buffer.data(), part));
        }
    }
    ::close(fd);
}
BENCHMARK(readFromTerminal)->Name("32 packets on a terminal/system calls");

void dispatchFromTerminal(benchmark::State& state)
{
    const Terminal terminal;
    const Bytes packet = fragmentEvent();
    NCPManager_SetGATTWriteCallback(onWrite);
    delivered = 0;
    for (auto _ : state) {
        state.PauseTiming();
        terminal.deliver(packet);
        state.ResumeTiming();
        for (int i = 0; i < kBatch; ++i)
            NCPManager_EventHandler();
    }
    expectDelivered(state, static_cast<std::uint64_t>(state.iterations()) * kBatch);
}
BENCHMARK(dispatchFromTerminal)->Name("32 packets on a terminal/brisca");

void roundTrip(benchmark::State& state)
{
    MemoryLine::use();
    MemoryLine::toHost = {};
    MemoryLine::response = kStopped;
    for (auto _ : state) {
        if (NCPManager_StopAdvertising() != 1)
            state.SkipWithError("a response was lost");
    }
}
BENCHMARK(roundTrip)
    ->Name("a command, 10 ms of it its pause/brisca")
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);
}  // namespace

int main(int argc, char** argv)
{
    PeerRatios::runAll(argc, argv);
}
