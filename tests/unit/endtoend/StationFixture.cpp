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

std::vector<Bytes> StationFixture::notifications(std::size_t count)
{
    std::vector<Bytes> received;
    while (received.size() < count) {
        auto notification = phone.waitNotification();
        if (!notification)
            break;
        received.push_back(std::move(*notification));
    }
    return received;
}

void StationFixture::expectService()
{
    sendRequest(endtoend::message(100, 1));
    application().answer(endtoend::message(200, 2));
    EXPECT_EQ(phone.waitMessage(), endtoend::message(200, 2));
}
