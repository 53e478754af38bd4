#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

// The bridge's tasks run until the process ends, so it ends without destroying what they use.
int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    std::fflush(nullptr);
    ::_exit(result);
}
