// The transport alone, on a line that takes no time: what BTP itself costs per fragment and per byte.

#include "BTP_Core.h"
#include "GOS.h"

#include <benchmark/benchmark.h>

#include <vector>

namespace {
using Bytes = std::vector<std::uint8_t>;
std::vector<Bytes>* recorded = nullptr;

std::uint32_t accept(std::uint8_t, std::uint16_t, std::uint8_t length, const std::uint8_t* data)
{
    if (recorded != nullptr)
        recorded->emplace_back(data, data + length);
    benchmark::DoNotOptimize(data[length - 1]);
    return 1;
}

void setUp()
{
    BTP_LowLevel_callback_Init(accept);
    BTP_OS_Callback_Init([] {}, [](unsigned) { return 1; }, GOS_WaitForSemaphore, GOS_ReleaseSemaphore);
    BTP_Clock_Driver_Callback_Init(BTPGetTime, BTPSubTime);
    BTP_Frame_Init();
}

std::vector<Bytes> fragmentsOf(const Bytes& message)
{
    std::vector<Bytes> fragments;
    recorded = &fragments;
    if (BTP_Transmit(message.data(), static_cast<unsigned>(message.size())) != 1)
        std::abort();
    recorded = nullptr;
    return fragments;
}

void report(benchmark::State& state, std::size_t bytes, std::size_t fragments)
{
    const auto total = static_cast<double>(state.iterations()) * static_cast<double>(fragments);
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
    state.counters["per_fragment"] =
        benchmark::Counter(total, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void transmit(benchmark::State& state)
{
    setUp();
    const Bytes message(static_cast<std::size_t>(state.range(0)), 0x5A);
    const std::size_t fragments = fragmentsOf(message).size();
    for (auto _ : state)
        benchmark::DoNotOptimize(BTP_Transmit(message.data(), static_cast<unsigned>(message.size())));
    report(state, message.size(), fragments);
}
BENCHMARK(transmit)->Arg(10)->Arg(100)->Arg(1000)->Arg(4475);

void receiveAndRead(benchmark::State& state)
{
    setUp();
    const Bytes message(static_cast<std::size_t>(state.range(0)), 0x5A);
    const std::vector<Bytes> fragments = fragmentsOf(message);
    Bytes buffer(kBtpMessageLength + kBtpSlotCapacity);
    for (auto _ : state) {
        for (const Bytes& fragment : fragments)
            call_back_BTP_Receive(fragment.data(), static_cast<unsigned>(fragment.size()));
        const unsigned length = BTP_Receive(buffer.data(), BTP_RxBytesAvailable(), 10);
        if (length != message.size())
            state.SkipWithError("the frame was not read");
    }
    report(state, message.size(), fragments.size());
}
BENCHMARK(receiveAndRead)->Arg(10)->Arg(100)->Arg(1000)->Arg(1104);

/// Fragments into a frame that stays open: the cost on the GATT event thread.
void receiveFragment(benchmark::State& state)
{
    setUp();
    const Bytes fragment(kBtpFragmentLength, 0x02);
    for (auto _ : state)
        call_back_BTP_Receive(fragment.data(), kBtpFragmentLength);
    report(state, kBtpFragmentPayload, 1);
}
BENCHMARK(receiveFragment);
}  // namespace

BENCHMARK_MAIN();
