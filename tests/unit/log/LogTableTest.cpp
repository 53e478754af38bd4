#include "Testing.h"
#include "facade/LogTable.h"
#include "facade/LogText.h"

TEST(LogTable, DumpsItsRangeAndCutsWhatDoesNotFit)
{
    const std::array<unsigned char, 64> data = {0x01, 0xAB, 0xFF};
    for (const auto& [name, end, start, size, text] : Rows<int, int, std::size_t, std::string>{
             {"a whole table", 3, 0, kLogTableSize, "{ 0x01, 0xAB, 0xFF }"},
             {"one element", 2, 1, kLogTableSize, "{ 0xAB }"},
             {"an empty range", 0, 0, kLogTableSize, "{  }"},
             {"a start behind the end", 20, 40, kLogTableSize, "{  }"},
             {"a size that cuts an element", 3, 0, 6, "{ 0x0"},
             {"a size that cuts the separator", 3, 0, 8, "{ 0x01,"},
             {"a size for the terminator only", 3, 0, 1, ""},
         }) {
        SCOPED_TRACE(name);
        std::array<char, kLogTableSize + 1> out;
        out.fill('#');
        EXPECT_EQ(log_table2str_impl(data.data(), end, start, out.data(), size, kLogTableHexByte),
                  out.data());
        EXPECT_EQ(out.data(), text);
        EXPECT_EQ(out[size - 1], '\0');
        EXPECT_EQ(out[size], '#') << "nothing behind the buffer";
    }
    std::array<char, kLogTableSize> out;
    EXPECT_EQ(
        std::string(log_table2str_impl(data.data(), 64, 0, out.data(), out.size(), kLogTableHexByte)).size(),
        kLogTableSize - 1);
}

TEST(LogText, ShowsControlCharacters)
{
    EXPECT_EQ(printable("S\xC3\xA4ule \xE2\x9A\xA1 7%"), "S\xC3\xA4ule \xE2\x9A\xA1 7%");
    EXPECT_EQ(printable("a\nb\tc\rd\x1B[2J\x7F\\n"), "a\\nb\\tc\\x0Dd\\x1B[2J\\x7F\\\\n");
    EXPECT_EQ(printable("\xC2\x9B\xC2\xA0"), "\\x9B\xC2\xA0");
    EXPECT_EQ(printable(std::string_view("\0", 1)), "\\x00");
}
