#include "StringUtils.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {
TEST(StringUtils, ComparesTheEndsOfAText)
{
    struct Row
    {
        const char* text;
        const char* part;
        bool starts;
        bool ends;
    };
    const Row rows[] = {
        {"BL >", "BL", true, false},  {"app.gbl", ".gbl", false, true}, {"gbl", ".gbl", false, false},
        {"BL", "BL >", false, false}, {"abab", "ab", true, true},       {"", "", true, true},
        {"text", "", true, true},     {"", "x", false, false},          {"Text", "text", false, false}};
    for (const Row& row : rows) {
        EXPECT_EQ(StringUtils::startsWith(row.text, row.part), row.starts) << row.text << " " << row.part;
        EXPECT_EQ(StringUtils::endsWith(row.text, row.part), row.ends) << row.text << " " << row.part;
    }
}

TEST(StringUtils, SplitsAtRunsOfOneCharacter)
{
    struct Row
    {
        const char* text;
        std::vector<std::string> pieces;
    };
    const Row rows[] = {
        {"a,b,c", {"a", "b", "c"}},   {",,a,,,b,", {"a", "b"}}, {"whole", {"whole"}}, {",,,", {}}, {"", {}},
        {"one, two", {"one", " two"}}};
    for (const Row& row : rows)
        EXPECT_EQ(StringUtils::split(row.text, ','), row.pieces) << row.text;
}
}  // namespace
