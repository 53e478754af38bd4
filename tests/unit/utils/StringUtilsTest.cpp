#include "StringUtils.h"
#include "Testing.h"

namespace {
TEST(StringUtils, SplitsAtRunsOfOneCharacter)
{
    for (const auto& [text, pieces] : Rows<std::vector<std::string>>{{"a,b,c", {"a", "b", "c"}},
                                                                     {",,a,,,b,", {"a", "b"}},
                                                                     {"whole", {"whole"}},
                                                                     {",,,", {}},
                                                                     {"", {}},
                                                                     {"one, two", {"one", " two"}}})
        EXPECT_EQ(StringUtils::split(text, ','), pieces) << text;
}

TEST(StringUtils, JoinsWithExactlyOneSlash)
{
    for (const char* const dir : {"/evse/app/bin", "/evse/app/bin/"}) {
        for (const char* const name : {"chp", "/chp"})
            EXPECT_EQ(StringUtils::joinPath(dir, name), "/evse/app/bin/chp") << dir << " and " << name;
    }
}
}  // namespace
