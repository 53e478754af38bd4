// Stands in for the CoAP application: answers each request of the phone with "echo:" and the request.
// Request: 2 bytes length, little-endian, then the bytes, which are the phone's own length (big-endian, 2
// bytes) and its payload. Answer: 2 bytes that nobody reads, 2 bytes length, big-endian, then the payload.
#include "Record.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>

namespace {
bool readAll(int fd, std::string& into, std::size_t count)
{
    into.resize(count);
    for (std::size_t done = 0; done < count;) {
        const ssize_t got = ::read(fd, into.data() + done, count - done);
        if (got <= 0)
            return false;
        done += static_cast<std::size_t>(got);
    }
    return true;
}

std::size_t byteAt(const std::string& bytes, std::size_t index)
{
    return static_cast<unsigned char>(bytes[index]);
}

void note(const std::string& answer)
{
    static const int file = ::open(kRecordPath, O_WRONLY | O_APPEND | O_CLOEXEC);
    const std::string line = recordHex(answer) + '\n';
    if (file != -1)
        (void)!::write(file, line.data(), line.size());
}
}  // namespace

int main(int argc, char** argv)
{
    std::signal(SIGTERM, [](int) { ::_exit(0); });
    const int requests = ::open("/tmp/ttyBleRx", O_RDWR | O_CLOEXEC);
    const int answers = ::open("/tmp/ttyBleTx", O_RDWR | O_CLOEXEC);
    std::printf("application %d runs with %s\n", getpid(), argc == 2 ? argv[1] : "wrong arguments");
    std::fflush(stdout);
    std::string bytes;
    while (readAll(requests, bytes, 2) &&
           readAll(requests, bytes, byteAt(bytes, 0) + 256 * byteAt(bytes, 1))) {
        const std::string payload = "echo:" + bytes;
        note(payload);
        const char header[4] = {0, 0, static_cast<char>(payload.size() >> 8),
                                static_cast<char>(payload.size())};
        const std::string answer = std::string(header, sizeof header) + payload;
        if (::write(answers, answer.data(), answer.size()) != static_cast<ssize_t>(answer.size()))
            return 1;
    }
    return 0;
}
