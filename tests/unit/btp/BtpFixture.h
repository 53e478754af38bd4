#pragma once

#include "BTP_Core.h"
#include "Testing.h"

using Bytes = std::vector<std::uint8_t>;

/// @return @p length bytes that count up from @p first
Bytes counting(std::size_t length, unsigned first = 0);
Bytes operator+(Bytes left, const Bytes& right);

/// BTP on a platform of fakes: notifications are collected, delays pass at once and move the clock.
class BtpFixture : public testing::Test
{
protected:
    BtpFixture();

    static std::vector<Bytes> sent;
    /// Decides about the next notification; accepts when empty.
    static std::function<bool()> accept;
    static std::vector<unsigned> delays;
    /// Called by every delay.
    static std::function<void()> onDelay;
    static int frameSignals;
    static std::uint32_t nowSeconds() { return s_nowMs / 1000; }

    static std::uint32_t notify(std::uint8_t connection, std::uint16_t characteristic, std::uint8_t length,
                                const std::uint8_t* data);
    /// Sends 1-byte messages until the next frame bears the number 0.
    static void restartFrameNumbers();
    /// One write of the phone.
    static void receive(std::uint8_t header, const Bytes& payload);
    /// Reads with room for what a read may deliver beyond @p maxLength, and with not one byte more.
    static Bytes read(unsigned maxLength, unsigned timeoutSeconds = 0);

private:
    static std::uint32_t s_nowMs;
};
