#pragma once

// What nearly every test uses.

#include "Pty.h"
#include "Rows.h"
#include "StdoutCapture.h"
#include "TempDir.h"
#include "UniqueFd.h"
#include "Wait.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <numeric>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

/// A number from the environment: the long forms of tests ask for theirs.
inline int setting(const char* variable, int otherwise)
{
    const char* const text = std::getenv(variable);
    return text != nullptr ? std::atoi(text) : otherwise;
}

using namespace std::chrono_literals;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using testsupport::entriesOf;
using testsupport::kPatience;
using testsupport::Pty;
using testsupport::readFile;
using testsupport::Rows;
using testsupport::StdoutCapture;
using testsupport::TempDir;
using testsupport::UniqueFd;
using testsupport::waitUntil;
