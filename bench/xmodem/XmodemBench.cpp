// Upload of a 256 kB image to the simulated chip: our sender beside lrzsz's sx and beside a bare sender, each
// in a process of its own, to the same receiver, in one run. The time runs from the chip's being asked for
// the upload to its having the whole image. The floor is the time that the bytes take on the line; an instant
// line has none. The bare sender does the least that this protocol takes, which sends one block at a time:
// packets made beforehand, one write and one blocking read for each, nothing else.

#include "ImageFile.h"
#include "crc16.h"
#include "efr32sim/Chip.h"
#include "xymodem.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace {
using namespace std::chrono_literals;
using efr32sim::EventKind;

constexpr std::size_t kImageSize = 256 * 1024;
constexpr std::size_t kBlockSize = 128;
constexpr std::size_t kPacketSize = 133;
constexpr double kBytesPerBlock = kPacketSize + 1;  // out and back
constexpr double kBitsPerByte = 10;
constexpr double kBaud = 230400;
constexpr auto kSenderStart = 500ms;  // until a sender has set up its line and waits for the chip
constexpr auto kUploadLimit = 120s;
constexpr const char* kSendMode = "--send";
constexpr const char* kBareMode = "--bare";

struct Result
{
    double seconds = 0;
    double cpuMs = 0;
    long peakKb = 0;
};

struct Sender
{
    const char* name;
    std::vector<std::string> command;
};

[[noreturn]] void fail(const std::string& what)
{
    std::fprintf(stderr, "%s\n", what.c_str());
    std::exit(1);
}

/// The console's settings, as the service gives them to the line.
void prepareLine(int line)
{
    termios settings = {};
    ::tcgetattr(line, &settings);
    ::cfmakeraw(&settings);
    ::cfsetspeed(&settings, B230400);
    settings.c_cc[VTIME] = 5;
    ::tcsetattr(line, TCSANOW, &settings);
}

pid_t spawn(const Sender& sender, int line)
{
    std::vector<char*> arguments;
    for (const std::string& word : sender.command)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    const pid_t pid = ::fork();
    if (pid != 0)
        return pid;
    ::dup2(line, STDIN_FILENO);
    ::dup2(line, STDOUT_FILENO);
    ::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
    ::execvp(arguments[0], arguments.data());
    ::_exit(127);
}

/// Peak resident memory of a running process since its start; 0 when it has ended. (The figure that wait4()
/// gives would count this program's own memory, from before the exec.)
long peakMemoryKb(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmHWM:", 0) == 0)
            return std::atol(line.c_str() + std::strlen("VmHWM:"));
    }
    return 0;
}

Result upload(const Sender& sender, bool pace, const efr32sim::Bytes& image)
{
    efr32sim::ChipOptions options;
    options.pace = pace;
    efr32sim::Chip chip(options);
    chip.start();
    const int line = ::open(chip.slavePath().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    prepareLine(line);
    const pid_t pid = spawn(sender, line);
    std::this_thread::sleep_for(kSenderStart);

    auto events = chip.follow();
    if (::write(line, "1", 1) != 1)
        fail("cannot write to the line");
    const auto begun = events.waitFor(EventKind::UploadStarted);
    Result result;
    result.peakKb = peakMemoryKb(pid);
    const auto complete = events.waitFor(EventKind::UploadComplete, {}, kUploadLimit);
    result.peakKb = std::max(result.peakKb, peakMemoryKb(pid));
    rusage usage = {};
    if (!complete)
        ::kill(pid, SIGTERM);
    ::wait4(pid, nullptr, 0, &usage);
    ::close(line);
    if (!begun || !complete || chip.image() != image)
        fail(std::string(sender.name) + " did not deliver the image\n" + chip.events().dump());
    result.seconds = std::chrono::duration<double>(complete->time - begun->time).count();
    const auto ms = [](const timeval& time) {
        return 1e3 * double(time.tv_sec) + 1e-3 * double(time.tv_usec);
    };
    result.cpuMs = ms(usage.ru_utime) + ms(usage.ru_stime);
    return result;
}

/// The fastest run: what disturbs a run on a shared machine only ever makes it slower.
Result best(const std::vector<Result>& runs)
{
    return *std::min_element(runs.begin(), runs.end(), [](const Result& left, const Result& right) {
        return left.seconds < right.seconds;
    });
}

void compare(const char* title, bool pace, int runs, const std::vector<Sender>& senders,
             const efr32sim::Bytes& image)
{
    std::vector<std::vector<Result>> all(senders.size());
    for (int run = 0; run < runs; ++run) {
        for (std::size_t index = 0; index < senders.size(); ++index)
            all[index].push_back(upload(senders[index], pace, image));
    }
    const double limit = kImageSize / kBlockSize * kBytesPerBlock * kBitsPerByte / kBaud;
    std::printf("%s, %zu bytes, best of %d\n", title, kImageSize, runs);
    std::printf("  %-8s %9s %9s %10s %10s %9s\n", "sender", "time s", "kB/s", "of line", "CPU ms",
                "peak KiB");
    for (std::size_t index = 0; index < senders.size(); ++index) {
        const Result result = best(all[index]);
        const std::string share =
            pace ? std::to_string(100 * limit / result.seconds).substr(0, 5) + " %" : std::string("-");
        std::printf("  %-8s %9.3f %9.1f %10s %10.1f %9ld\n", senders[index].name, result.seconds,
                    1e-3 * kImageSize / result.seconds, share.c_str(), result.cpuMs, result.peakKb);
    }
    const Result ours = best(all[0]);
    for (std::size_t index = 1; index < senders.size(); ++index) {
        const Result other = best(all[index]);
        std::printf("  ours against %s: %.3f times as fast, %.2f of its CPU time, %.2f of its memory\n",
                    senders[index].name, other.seconds / ours.seconds, ours.cpuMs / other.cpuMs,
                    double(ours.peakKb) / double(other.peakKb));
    }
    std::printf("\n");
    std::fflush(stdout);
}

int sendOnly(const char* path)
{
    const int cancel = ::eventfd(0, EFD_CLOEXEC);  // as the upload worker has one
    ImageFile image;
    UploadProgress progress;
    return xymodem_send(STDIN_FILENO, path, true, image, progress, cancel) == 0 ? 0 : 1;
}

std::vector<std::array<unsigned char, kPacketSize>> packetsOf(const std::string& image)
{
    std::vector<std::array<unsigned char, kPacketSize>> packets;
    for (std::size_t at = 0; at < image.size(); at += kBlockSize) {
        auto& packet = packets.emplace_back();
        const auto number = static_cast<unsigned char>(packets.size());
        packet[0] = 0x01;
        packet[1] = number;
        packet[2] = static_cast<unsigned char>(~number);
        std::copy_n(image.begin() + static_cast<std::ptrdiff_t>(at), kBlockSize, packet.begin() + 3);
        const unsigned short crc = crc16(&packet[3], kBlockSize);
        packet[kPacketSize - 2] = static_cast<unsigned char>(crc >> 8);
        packet[kPacketSize - 1] = static_cast<unsigned char>(crc & 0xFF);
    }
    return packets;
}

int sendBare(const char* path)
{
    std::ifstream in(path, std::ios::binary);
    const auto packets = packetsOf(std::string(std::istreambuf_iterator<char>(in), {}));
    char answer = 0;
    while (answer != 'C') {
        if (::read(STDIN_FILENO, &answer, 1) != 1)
            return 1;
    }
    for (const auto& packet : packets) {
        if (::write(STDIN_FILENO, packet.data(), packet.size()) != ssize_t{kPacketSize} ||
            ::read(STDIN_FILENO, &answer, 1) != 1 || answer != 0x06)
            return 1;
    }
    return ::write(STDIN_FILENO, "\x04", 1) == 1 ? 0 : 1;
}
}  // namespace

int main(int argc, char** argv)
{
    if (argc == 3 && std::strcmp(argv[1], kSendMode) == 0)
        return sendOnly(argv[2]);
    if (argc == 3 && std::strcmp(argv[1], kBareMode) == 0)
        return sendBare(argv[2]);
    const int runs = argc > 1 ? std::atoi(argv[1]) : 10;
    const int pacedRuns = argc > 2 ? std::atoi(argv[2]) : 1;

    efr32sim::Bytes image(kImageSize);
    for (std::size_t at = 0; at < image.size(); ++at)
        image[at] = static_cast<std::uint8_t>(at * 31 + at / 255);
    const std::string path =
        std::filesystem::temp_directory_path() / ("xmodem-" + std::to_string(::getpid()));
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(image.data()), kImageSize);

    const std::string self = std::filesystem::read_symlink("/proc/self/exe");
    const std::vector<Sender> senders = {
        {"ours", {self, kSendMode, path}},
        {"sx", {"sx", "--quiet", "--binary", path}},
        {"bare", {self, kBareMode, path}},
    };
    if (runs > 0)
        compare("unpaced line", false, runs, senders, image);
    if (pacedRuns > 0)
        compare("line paced at 230400 baud", true, pacedRuns, senders, image);
    std::filesystem::remove(path);
}
