#include "StringUtils.h"
#include "Testing.h"

namespace {
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

TEST(StringUtils, JoinsWithExactlyOneSlash)
{
    for (const char* const dir : {"/evse/app/bin", "/evse/app/bin/"}) {
        for (const char* const name : {"chp", "/chp"})
            EXPECT_EQ(StringUtils::joinPath(dir, name), "/evse/app/bin/chp") << dir << " and " << name;
    }
}
}  // namespace
