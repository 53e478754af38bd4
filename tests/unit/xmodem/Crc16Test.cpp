#include "crc16.h"

#include <gtest/gtest.h>

#include <random>
#include <string_view>
#include <vector>

namespace {
unsigned short definition(const std::vector<unsigned char>& data)
{
    return crc16(data.data(), static_cast<unsigned short>(data.size()));
}

TEST(Crc16, GivesThePublishedCheckValue)
{
    constexpr std::string_view text = "123456789";
    const std::vector<unsigned char> digits(text.begin(), text.end());
    EXPECT_EQ(definition(digits), 0x31C3);
    EXPECT_EQ(crc16_block(digits), 0x31C3);
    EXPECT_EQ(definition({}), 0);
    EXPECT_EQ(crc16_block({}), 0);
}

TEST(Crc16, TheTableAgreesWithTheDefinition)
{
    std::mt19937 random(20240117);
    for (std::size_t length = 0; length < 600; ++length) {
        std::vector<unsigned char> data(length);
        for (unsigned char& byte : data)
            byte = static_cast<unsigned char>(random());
        EXPECT_EQ(crc16_block(data), definition(data)) << length << " bytes";
    }
}
}  // namespace
