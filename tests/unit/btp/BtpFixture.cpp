#include "BtpFixture.h"

#include "GOS.h"

std::vector<Bytes> BtpFixture::sent;
std::function<bool()> BtpFixture::accept;
std::vector<unsigned> BtpFixture::delays;
std::function<void()> BtpFixture::onDelay;
int BtpFixture::frameSignals;
std::uint32_t BtpFixture::s_nowMs;

Bytes counting(std::size_t length, unsigned first)
{
    Bytes bytes(length);
    std::iota(bytes.begin(), bytes.end(), static_cast<std::uint8_t>(first));
    return bytes;
}

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

BtpFixture::BtpFixture()
{
    sent.clear();
    delays.clear();
    accept = nullptr;
    onDelay = nullptr;
    frameSignals = 0;
    s_nowMs = 0;
    BTP_LowLevel_callback_Init(notify);
    BTP_OS_Callback_Init([] { ++frameSignals; },
                         [](unsigned milliseconds) {
                             delays.push_back(milliseconds);
                             s_nowMs += milliseconds;
                             if (onDelay)
                                 onDelay();
                             return 1;
                         },
                         GOS_WaitForSemaphore, GOS_ReleaseSemaphore);
    BTP_Clock_Driver_Callback_Init(
        [](GClock* clock) {
            *clock = {s_nowMs / 1000, s_nowMs % 1000};
            return 1;
        },
        GClockSubTime);
    BTP_Frame_SEMID(SEM_ID_BTP_FRAME);
    BTP_Frame_Init();
}

std::uint32_t BtpFixture::notify(std::uint8_t connection, std::uint16_t characteristic, std::uint8_t length,
                                 const std::uint8_t* data)
{
    EXPECT_EQ(connection, 0);
    EXPECT_EQ(characteristic, 26);
    sent.emplace_back(data, data + length);
    return !accept || accept() ? 1 : 0;
}

void BtpFixture::restartFrameNumbers()
{
    const std::uint8_t byte = 0;
    do {
        ASSERT_EQ(BTP_Transmit(&byte, 1), 1);
    } while (sent.back()[0] != 0xF0);
    sent.clear();
    delays.clear();
}

void BtpFixture::receive(std::uint8_t header, const Bytes& payload)
{
    const Bytes fragment = Bytes{header} + payload;
    call_back_BTP_Receive(fragment.data(), static_cast<unsigned>(fragment.size()));
}

Bytes BtpFixture::read(unsigned maxLength, unsigned timeoutSeconds)
{
    Bytes buffer(maxLength - 1 + kBtpSlotCapacity);
    buffer.resize(BTP_Receive(buffer.data(), maxLength, timeoutSeconds));
    return buffer;
}
