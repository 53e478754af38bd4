#include "StationFixture.h"

using endtoend::Bytes;
using endtoend::ByteSpan;

endtoend::Station& StationFixture::station()
{
    // Lives as long as the tasks, which end with the process.
    static endtoend::Station& station = *new endtoend::Station(false);
    return station;
}

StationFixture::StationFixture()
{
    EXPECT_TRUE(phone.connect());
}

StationFixture::~StationFixture()
{
    station().chip.clearFaults();
    if (HasFailure())
        std::fputs(station().chip.events().dump().c_str(), stderr);
}

void StationFixture::sendRequest(ByteSpan request)
{
    ASSERT_TRUE(phone.writeMessage(request));
    EXPECT_EQ(application().waitRequest(), Bytes(request.begin(), request.end()));
}

Bytes StationFixture::waitAnswer()
{
    constexpr std::size_t kLengthBytes = 2;
    Bytes message;
    while (message.size() < kLengthBytes ||
           message.size() < kLengthBytes + static_cast<std::size_t>(message[0] << 8 | message[1])) {
        const auto next = phone.waitNotification();
        if (!next)
            return {};
        if (std::exchange(m_lastNotification, *next) == *next)
            continue;
        message.insert(message.end(), next->begin() + 1, next->end());
    }
    message.erase(message.begin(), message.begin() + kLengthBytes);
    return message;
}

void StationFixture::expectService()
{
    sendRequest(endtoend::message(100, 1));
    application().answer(endtoend::message(200, 2));
    EXPECT_EQ(waitAnswer(), endtoend::message(200, 2));
}
