#include "Harness.h"

#include <map>

using namespace gbstest;

namespace {
constexpr auto kAdv = GBS_AD_USAGE_ADVERTISING;
constexpr auto kScan = GBS_AD_USAGE_SCAN_RESPONSE;
constexpr std::array<std::uint8_t, 6> kAddress = {1, 2, 3, 4, 5, 6};
constexpr std::array<std::uint16_t, 200> kUuids16 = {0x1810, 0x180A};
constexpr std::array<std::uint32_t, 1020> kUuids128 = {0x01020304, 0x05060708, 0x090A0B0C, 0x0D0E0F10};

constexpr auto kPattern = [] {
    std::array<std::uint8_t, 255> bytes = {};
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<std::uint8_t>(i + 1);
    return bytes;
}();

std::string deviceName;

std::uint8_t* giveName(std::uint8_t* length)
{
    *length = static_cast<std::uint8_t>(deviceName.size());
    return deviceName.empty() ? nullptr : reinterpret_cast<std::uint8_t*>(deviceName.data());
}

/// A structure of exactly this size, length byte included.
std::uint32_t fill(tGBS_ADTypeUsage usage, int size)
{
    static const std::array<std::uint16_t, 15> uuids = {};
    if (size % 2 == 0)
        return NCPManager_ADTypeServiceUUID16bit(usage, 1, uuids.data(),
                                                 static_cast<std::uint8_t>(size / 2 - 1));
    return NCPManager_ADTypeFlags(usage, 0) & (size == 3 ? 1 : fill(usage, size - 3));
}

std::uint32_t localName(tGBS_ADTypeUsage usage, bool complete, const std::string& name)
{
    deviceName = name;
    return complete ? GBSSlave_ADTypeCompleteLocalName(usage) : GBSSlave_ADTypeShortenedLocalName(usage);
}

/// "FF FF" as the company identifier of this build is configured.
std::string company()
{
    return toHex(
        std::string{static_cast<char>(BRISCA_COMPANY_ID & 0xFF), static_cast<char>(BRISCA_COMPANY_ID >> 8)});
}

tGBS_ManufacturerSpecificData manufacturerData(std::uint8_t length, std::uint8_t flags = 0)
{
    tGBS_ManufacturerSpecificData data = {};
    data.companyId = 0x1234;
    data.value = 0x4CF4;
    data.byte = 0x01;
    data.flags = flags;
    data.extra = 0xEE;
    data.length = length;
    std::ranges::copy(kPattern, data.data);
    return data;
}

std::uint32_t manufacturer(tGBS_ADTypeUsage usage, std::uint8_t length, std::uint8_t flags = 0)
{
    auto data = manufacturerData(length, flags);
    const std::uint32_t result = GBSSlave_AdTypeManufacturerSpecificData(usage, &data);
    const bool hasSplitFlagOfBefore = (data.flags & flags & 0x80) != 0;
    EXPECT_TRUE(result == 0 ||
                (data.length == 0 && !hasSplitFlagOfBefore && data.companyId == BRISCA_COMPANY_ID))
        << "it is consumed";
    return result;
}

/// The bytes first ... first + count - 1 of manufacturer data.
std::string dataBytes(std::size_t first, int count)
{
    return toHex({reinterpret_cast<const char*>(&kPattern[first - 1]), static_cast<std::size_t>(count)});
}

class AdvData : public testing::Test
{
protected:
    AdvData()
    {
        NCPManager_ADTypeResetData(kAdv);
        NCPManager_ADTypeResetData(kScan);
        NCPManager_SetDeviceNameCallback(giveName);
    }
    ~AdvData() override
    {
        NCPManager_SetDeviceNameCallback(nullptr);
        NCPManager_SetNoMappingFlag(0);
    }

    /// The payload of the one command that was sent: "usage: bytes".
    std::string sentPayload()
    {
        const std::string command = m_chip.takeCommands();
        if (command.substr(0, 9) != "03 0C: 00")
            return "not sent: " + command;
        const std::string bytes = command.size() > 15 ? command.substr(16) : "";
        EXPECT_EQ(command.substr(13, 2), toHex(std::string(1, static_cast<char>((bytes.size() + 1) / 3))));
        return command.substr(10, 2) + ": " + bytes;
    }

    std::string send(tGBS_ADTypeUsage usage)
    {
        EXPECT_EQ(NCPManager_UpdateAdvertisingData(usage), 1u);
        return sentPayload();
    }

    std::string sendNext()
    {
        EXPECT_EQ(NCPManager_UpdateADTypeFragment(kAdv, 0), 1u);
        return sentPayload();
    }

    FakeChip m_chip;
};
}  // namespace

TEST_F(AdvData, BuildersWriteTheirStructuresUnderTheApiLock)
{
    const std::string head = " FF " + company() + " F4 4C ";
    // clang-format off
    for (const auto& [name, build, payload] : Rows<Call, std::string>{  // no payload: the builder refuses
        {"flags", call(GBSSlave_ADTypeFlags, kAdv, 6), "02 01 06"},
        {"complete 16-bit UUIDs", call(GBSSlave_ADTypeServiceUUID16bit, kAdv, 1, kUuids16.data(), 2), "05 03 10 18 0A 18"},
        {"incomplete 16-bit UUIDs", call(GBSSlave_ADTypeServiceUUID16bit, kAdv, 2, kUuids16.data(), 1), "03 02 10 18"},
        {"14 16-bit UUIDs fit", call(GBSSlave_ADTypeServiceUUID16bit, kAdv, 1, kUuids16.data(), 14),
         "1D 03 10 18 0A 18" + toHex(std::string(24, '\0')).insert(0, " ")},
        {"15 do not", call(GBSSlave_ADTypeServiceUUID16bit, kAdv, 1, kUuids16.data(), 15), ""},
        {"a size that wraps in a byte is refused", call(GBSSlave_ADTypeServiceUUID16bit, kAdv, 1, kUuids16.data(), 128), ""},
        {"no 16-bit UUIDs", call(GBSSlave_ADTypeServiceUUID16bit, kAdv, 1, nullptr, 1), ""},
        {"complete 128-bit UUIDs", call(GBSSlave_ADTypeServiceUUID128bit, kAdv, 1, kUuids128.data(), 1),
         "11 07 04 03 02 01 08 07 06 05 0C 0B 0A 09 10 0F 0E 0D"},
        {"incomplete 128-bit UUIDs", call(GBSSlave_ADTypeServiceUUID128bit, kAdv, 0, kUuids128.data(), 0), "01 06"},
        {"sixteen 128-bit UUIDs, whose size wraps to 1",
         call(GBSSlave_ADTypeServiceUUID128bit, kAdv, 1, kUuids128.data(), 16), ""},
        {"no 128-bit UUIDs", call(GBSSlave_ADTypeServiceUUID128bit, kAdv, 1, nullptr, 1), ""},
        {"transmit power", call(GBSSlave_ADTypeTxPowerLevel, kAdv, -20), "02 0A EC"},
        {"connection interval", call(GBSSlave_ADTypeConnectionInterval, kAdv, 0x0102, 0x0304), "05 12 02 01 04 03"},
        {"public address", call(GBSSlave_ADTypePublicAddress, kAdv, kAddress.data()), "07 17 01 02 03 04 05 06"},
        {"device address with its type in front",
         call(GBSSlave_ADTypeLeDeviceAddress, kAdv, kAddress.data(), 1), "08 1B 01 01 02 03 04 05 06"},
        {"advertising interval", call(GBSSlave_ADTypeAdvInterval, kAdv, 0x0140), "03 1A 40 01"},
        {"generic data", call(GBSSlave_AdTypeGenericData, kAdv, 0x16, 2, kAddress.data()), "03 16 01 02"},
        {"generic data that is not there", call(NCPManager_AdTypeGenericData, kAdv, 0x16, 2, nullptr), ""},
        {"generic data whose size wraps", call(GBSSlave_AdTypeGenericData, kAdv, 0x16, 254, kPattern.data()), ""},
        {"generic data of 28 bytes", call(GBSSlave_AdTypeGenericData, kAdv, 0x16, 28, kPattern.data()),
         "1D 16 " + dataBytes(1, 28)},
        {"generic data that would end at byte 31", call(GBSSlave_AdTypeGenericData, kAdv, 0x16, 29, kPattern.data()), ""},
        {"a name", call(localName, kAdv, true, "Voltra"), "07 09 " + toHex("Voltra")},
        {"a name of 29 bytes fills the payload", call(localName, kAdv, true, std::string(29, 'n')),
         "1E 09 " + toHex(std::string(29, 'n'))},
        {"a name of 30 bytes does not fit", call(localName, kAdv, true, std::string(30, 'n')), ""},
        {"a name of 31 bytes does not fit", call(localName, kAdv, true, std::string(31, 'n')), ""},
        {"no name", call(localName, kAdv, true, ""), "0A 09 " + toHex("EFR32_NCP")},
        {"a name of 65 bytes", call(localName, kAdv, true, std::string(65, 'n')), "0A 09 " + toHex("EFR32_NCP")},
        {"a name of 64 bytes, shortened", call(localName, kAdv, false, std::string(64, 'n')),
         "1E 08 " + toHex(std::string(29, 'n'))},
        {"a short name, shortened", call(localName, kAdv, false, "Voltra"), "07 09 " + toHex("Voltra")},
        {"a shortened name behind 28 bytes", [] { return fill(kAdv, 28) & localName(kAdv, false, "Voltra"); },
         "1B 03" + toHex(std::string(26, '\0')).insert(0, " ") + " 02 08 " + toHex("V")},
        {"manufacturer data", call(manufacturer, kAdv, 6, 0x80), "0D" + head + "01 00 01 02 03 04 05 06"},
        {"manufacturer data with the extra byte", call(manufacturer, kAdv, 1, 0x40), "09" + head + "01 40 EE 01"},
        {"manufacturer data that fills the payload", call(manufacturer, kAdv, 23, 0),
         "1E" + head + "01 00 " + dataBytes(1, 23)},
        {"manufacturer data without mapping",
         [] { return GBSSlave_SetNoMappingFlag(1) & manufacturer(kAdv, 2); }, "07" + head + "01 02"},
        {"the extra byte counts without mapping though it is not written",
         [] { return GBSSlave_SetNoMappingFlag(1) & manufacturer(kAdv, 2, 0x40); },
         "08" + head + "01 02 00"},
        {"manufacturer data behind more than a header leaves room for",
         [] { return fill(kAdv, 22) & manufacturer(kAdv, 5); }, ""},
        {"no manufacturer data", call(NCPManager_AdTypeManufacturerSpecificData, kAdv, nullptr), ""},
    }) {
        // clang-format on
        SCOPED_TRACE(name);
        NCPManager_SetNoMappingFlag(0);
        const int locksBefore = semaphoreRequests(GBS_API_SEMAPHORE_ID);
        EXPECT_EQ(GBSSlave_ADTypeResetData(kAdv), 1u);
        EXPECT_EQ(build(), payload.empty() ? 0u : 1u);
        if (!payload.empty()) {
            EXPECT_EQ(semaphoreRequests(GBS_API_SEMAPHORE_ID), locksBefore + 2) << "with the reset's";
            EXPECT_EQ(send(kAdv), "00: " + payload);
        }
    }
}

TEST_F(AdvData, ScanResponseIsOnePayload)
{
    EXPECT_EQ(fill(kScan, 28), 1u);
    EXPECT_EQ(NCPManager_ADTypeAdvInterval(kScan, 1), 0u) << "4 bytes do not fit the last 3";
    EXPECT_EQ(manufacturer(kScan, 30), 0u) << "a scan response is never split";
    EXPECT_EQ(NCPManager_ADTypeFlags(kScan, 7), 1u);
    EXPECT_EQ(localName(kScan, false, "Voltra"), 0u) << "full";
    const std::string full = send(kScan);
    EXPECT_EQ(full.substr(full.size() - 8), "02 01 07");
    NCPManager_ADTypeResetData(kScan);
    EXPECT_EQ(send(kScan), "01: ");
}

TEST_F(AdvData, AStructureBeyondByte31OpensAFragmentWithItsOwnFlags)
{
    EXPECT_EQ(fill(kAdv, 28), 1u);
    EXPECT_EQ(NCPManager_ADTypeFlags(kAdv, 6), 1u);
    const std::string full = send(kAdv);
    EXPECT_EQ(full.size(), 3u + 31 * 3);
    EXPECT_EQ(sendNext(), full) << "31 bytes stay in one fragment";
    EXPECT_EQ(localName(kAdv, true, std::string(27, 'n')), 0u)
        << "29 bytes do not fit behind a fragment's flags";
    EXPECT_EQ(NCPManager_ADTypeTxPowerLevel(kAdv, 4), 1u);
    EXPECT_EQ(send(kAdv), full);
    EXPECT_EQ(sendNext(), "00: 02 01 05 02 0A 04");
}

TEST_F(AdvData, FragmentsAreSentInRotation)
{
    EXPECT_EQ(NCPManager_UpdateADTypeFragment(kAdv, 0), 0u) << "not ready before the first update";
    EXPECT_EQ(m_chip.takeCommands(), "");
    for (std::uint8_t i = 0; i < 3; ++i)
        EXPECT_EQ(NCPManager_AdTypeGenericData(kAdv, 0x16, 20, &kPattern[i]), 1u);
    const std::string first = "00: 15 16 " + dataBytes(1, 20);
    const auto fragment = [](std::size_t start) { return "00: 02 01 05 15 16 " + dataBytes(start, 20); };
    EXPECT_EQ(send(kAdv), first);
    EXPECT_EQ(sendNext(), fragment(2));
    EXPECT_EQ(sendNext(), fragment(3));
    EXPECT_EQ(sendNext(), first);
    EXPECT_EQ(sendNext(), fragment(2));
    EXPECT_EQ(send(kAdv), first) << "an update starts anew";
    NCPManager_ADTypeResetData(kAdv);
    EXPECT_EQ(NCPManager_UpdateADTypeFragment(kAdv, 1), 0u) << "a reset takes the readiness back";
}

TEST_F(AdvData, TheTenthFragmentIsTheLast)
{
    for (int i = 0; i < 9; ++i)
        EXPECT_EQ(fill(kAdv, 28), 1u) << i;
    EXPECT_EQ(fill(kAdv, 12), 1u);
    EXPECT_EQ(manufacturer(kAdv, 40), 0u) << "no fragment is left for a second piece";
    EXPECT_EQ(fill(kAdv, 16), 1u);
    EXPECT_EQ(fill(kAdv, 4), 0u);
    send(kAdv);
    for (int i = 1; i < 9; ++i)
        EXPECT_EQ(sendNext().substr(0, 15), "00: 02 01 05 1B") << i;
    EXPECT_EQ(sendNext().size(), 3u + 31 * 3);
    EXPECT_EQ(sendNext().substr(0, 6), "00: 1B") << "what was built is kept";
}

// The caller blocks for ever in the field. Here the test gives it the semaphore that it waits for.
TEST_F(AdvData, SplitManufacturerDataBlocksAtTheSecondPiece)
{
    const std::string head = " FF " + company() + " F4 4C 01 ";
    const std::map<std::uint8_t, Lines> payloadsByFlags = {
        {0x40,
         {"1B" + head + "C0 EE 03 00 " + dataBytes(1, 17), "1B" + head + "C0 EE 03 01 " + dataBytes(18, 17),
          "0C" + head + "C0 EE 03 02 " + dataBytes(35, 2)}},
        {0, {"1B" + head + "80 02 00 " + dataBytes(1, 18), "1B" + head + "80 02 01 " + dataBytes(19, 18)}},
    };
    for (const auto& [flags, payloads] : payloadsByFlags) {
        NCPManager_ADTypeResetData(kAdv);
        NCPManager_ADTypeFlags(kAdv, 5);
        const int before = semaphoreRequests(GBS_AD_DATA_SEMAPHORE_ID);
        auto caller = std::async(std::launch::async, manufacturer, kAdv, 36, flags);
        ASSERT_TRUE(waitUntil([=] { return semaphoreRequests(GBS_AD_DATA_SEMAPHORE_ID) == before + 2; }));
        EXPECT_EQ(caller.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
        EXPECT_TRUE(semaphoreTaken(GBS_API_SEMAPHORE_ID));
        EXPECT_TRUE(semaphoreTaken(GBS_AD_DATA_SEMAPHORE_ID));

        GOS_ReleaseSemaphore(GBS_AD_DATA_SEMAPHORE_ID);
        EXPECT_EQ(caller.get(), 1u);
        GOS_WaitForSemaphore(GBS_AD_DATA_SEMAPHORE_ID);  // the count is 1 again
        for (std::size_t i = 0; i < payloads.size(); ++i)
            EXPECT_EQ(i == 0 ? send(kAdv) : sendNext(), "00: 02 01 05 " + payloads[i]);
        EXPECT_EQ(sendNext(), "00: 02 01 05 " + payloads[0]) << "no more pieces than announced";
    }
}
