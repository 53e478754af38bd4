#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

#if defined(__SANITIZE_THREAD__)
// The task "GBS2App" ends by itself, and nobody joins it.
extern "C" const char* __tsan_default_options()
{
    return "report_thread_leaks=0";
}
#endif

// The bridge's tasks run until the process ends, so it ends without destroying what they use.
int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    std::fflush(nullptr);
    ::_exit(result);
}
