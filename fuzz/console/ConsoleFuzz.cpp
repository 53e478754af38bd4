// The bootloader's console says anything, and then its prompt.

#include "An760.h"
#include "Pty.h"
#include "support/Require.h"

#include <algorithm>
#include <string>
#include <vector>

namespace {
constexpr std::size_t kTerminalRoom = 3000;  // what a pseudo-terminal takes without a reader
constexpr const char* kRealPrompt = "\rBL >";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const testsupport::Pty& line = *new testsupport::Pty;
    static An760& client = *new An760(line.slavePath().c_str());
    static const bool opened = client.open();
    require(opened);
    const std::string text = std::string(data, data + std::min(size, kTerminalRoom)) + kRealPrompt;
    line.write(text);
    std::string taken;
    // A text may hold the prompt more than once: each search ends at one, and none takes a byte of the next.
    while (taken.size() < text.size()) {
        std::vector<char> received;
        require(client.waitCommandPrompt(received));
        const std::string part(received.begin(), received.end());
        require(part.size() >= 4 && part.ends_with("BL >"));
        taken += part;
    }
    require(taken == text);
    return 0;
}
