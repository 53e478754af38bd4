// What a packet and a command cost on the co-processor's line. Every figure stands beside its floor: the copy
// of the bytes from memory, the system calls on a terminal, the pause that a command has to make.

#include "GOS.h"
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

#include <algorithm>
#include <array>
#include <cstdlib>
#include <vector>

namespace {
using Bytes = std::vector<std::uint8_t>;

constexpr unsigned kDelayMs = 10;  // between a command and the first look for its response
constexpr std::size_t kFragmentSize = 70;
constexpr int kBatch = 32;  // packets that fit the terminal's input queue

/// The event that carries a fragment of the phone: a write without response of @p size bytes.
Bytes writeEvent(std::size_t size)
{
    const std::array<std::uint8_t, 11> head = {
        0xA0, static_cast<std::uint8_t>(size + 7), 0x0A, 0x02, 1, 26, 0, 0x52, 0,
        0,    static_cast<std::uint8_t>(size)};
    Bytes packet(head.size() + size, 0x5A);
    std::copy(head.begin(), head.end(), packet.begin());
    return packet;
}

// A line in memory on which the same packet comes again and again.
Bytes source;
std::size_t position;
std::int32_t waiting;

std::int32_t memoryInput(std::uint32_t length, std::uint8_t* buffer)
{
    std::copy_n(source.begin() + static_cast<std::ptrdiff_t>(position), length, buffer);
    position = (position + length) % source.size();
    return static_cast<std::int32_t>(length);
}

std::int32_t memoryPeek()
{
    return waiting == 0 ? 0 : static_cast<std::int32_t>(source.size() - position);
}

/// The chip answers in no time.
std::int32_t memoryOutput(std::uint32_t length, const std::uint8_t*)
{
    waiting = 1;
    return static_cast<std::int32_t>(length);
}

void useMemory(Bytes bytes)
{
    source = std::move(bytes);
    position = 0;
    waiting = 1;
    bglib_output = memoryOutput;
    bglib_input = memoryInput;
    bglib_peek = memoryPeek;
    gecko_discard_events();
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

void copyInMemory(benchmark::State& state)
{
    useMemory(writeEvent(kFragmentSize));
    Bytes packet(source.size());
    for (auto _ : state) {
        memoryInput(static_cast<std::uint32_t>(packet.size()), packet.data());
        benchmark::DoNotOptimize(packet.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(copyInMemory)->Name("packet_in_memory/copy_alone");

void dispatchFromMemory(benchmark::State& state)
{
    useMemory(writeEvent(kFragmentSize));
    NCPManager_SetGATTWriteCallback(onWrite);
    delivered = 0;
    for (auto _ : state)
        NCPManager_EventHandler();
    expectDelivered(state, static_cast<std::uint64_t>(state.iterations()));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(dispatchFromMemory)->Name("packet_in_memory/brisca");

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
    const Bytes packet = writeEvent(kFragmentSize);
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
    state.SetItemsProcessed(state.iterations() * kBatch);
}
BENCHMARK(readFromTerminal)->Name("packet_on_terminal/system_calls_alone");

void dispatchFromTerminal(benchmark::State& state)
{
    const Terminal terminal;
    const Bytes packet = writeEvent(kFragmentSize);
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
    state.SetItemsProcessed(state.iterations() * kBatch);
}
BENCHMARK(dispatchFromTerminal)->Name("packet_on_terminal/brisca");

void pauseAlone(benchmark::State& state)
{
    for (auto _ : state)
        GOS_WaitForDelay(kDelayMs);
}
BENCHMARK(pauseAlone)->Name("command/pause_alone")->UseRealTime()->Unit(benchmark::kMicrosecond);

void roundTrip(benchmark::State& state)
{
    useMemory({0x20, 0x02, 0x03, 0x15, 0, 0});
    for (auto _ : state) {
        if (NCPManager_StopAdvertising() != 1)
            state.SkipWithError("a response was lost");
    }
}
BENCHMARK(roundTrip)->Name("command/brisca")->UseRealTime()->Unit(benchmark::kMicrosecond);
}  // namespace

int main(int argc, char** argv)
{
    PeerRatios::runAll(argc, argv);
}
