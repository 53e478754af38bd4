// Feeds the fragment receiver and the reader. The input is a list of actions, each one byte and what follows:
//   0 to 127    a write of the phone of so many bytes (times two when it is above 100), which follow
//   128 to 191  a read of up to the following byte times 24
//   192 to 223  the end of the link is seen by the manager task alone
//   224 to 255  the end of the link

#include "BTP_Core.h"
#include "GBSSlave.h"
#include "support/Require.h"

#include <algorithm>
#include <span>
#include <vector>

namespace {
constexpr unsigned kPolls = 50;
unsigned polls;

/// A frame whose stamp is used up is waited for; the link drops after a while.
int delay(unsigned)
{
    if (++polls % kPolls == 0)
        EraseBTPFrameBuffer();
    return 1;
}

void setUp()
{
    BTP_LowLevel_callback_Init(nullptr);
    BTP_OS_Callback_Init([] {}, delay, [](unsigned) {}, [](unsigned) {});
    BTP_Clock_Driver_Callback_Init(BTPGetTime, BTPSubTime);
    BTP_Frame_Init();
}

unsigned read(unsigned maxLength)
{
    // On the heap and not a byte too long, so that the sanitizer sees every overrun.
    std::vector<std::uint8_t> buffer(maxLength + kBtpSlotCapacity - 1);
    const unsigned length = BTP_Receive(buffer.data(), maxLength, 0);
    require(length <= buffer.size());
    return length;
}

void write(std::span<const std::uint8_t> bytes)
{
    const std::vector<std::uint8_t> exact(bytes.begin(), bytes.end());
    call_back_BTP_Receive(exact.data(), static_cast<unsigned>(exact.size()));
    require(BTP_RxBytesAvailable() <= kBtpSlots * kBtpSlotCapacity);
}

/// Whatever came before, the next phone is served. The first read may only notice a partly read frame.
void serveNextPhone()
{
    EraseBTPFrameBuffer();
    write(std::vector<std::uint8_t>{0xA1, 1});
    write(std::vector<std::uint8_t>(70, 0x20));
    require(BTP_RxBytesAvailable() == 70);
    require(read(70) == 70 || read(70) == 70);
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    setUp();
    std::span<const std::uint8_t> input(data, size);
    while (!input.empty()) {
        const unsigned action = input[0];
        input = input.subspan(1);
        if (action < 128) {
            const std::size_t length =
                std::min<std::size_t>(action > 100 ? action * 2 : action, input.size());
            write(input.first(length));
            input = input.subspan(length);
        } else if (action < 192) {
            if (!input.empty() && input[0] > 0)
                read(input[0] * 24U);
            input = input.subspan(std::min<std::size_t>(1, input.size()));
        } else if (action < 224) {
            EraseBTPFrameBuffer();
        } else {
            GBSSlave_LetGoLine();
        }
    }
    serveNextPhone();
    return 0;
}
