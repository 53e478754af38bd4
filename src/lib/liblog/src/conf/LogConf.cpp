#include "conf/LogConf.h"

#include "facade/Log.h"
#include "facade/LogText.h"

#include <fcntl.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

char* LOG_SHARED_MEMORY_CONF_PTR = nullptr;

BRISCA_LOG_NODE(logNode, "liblog");

namespace {
constexpr const char* kConfigurationPath = "/evse/data/log.cfg";
constexpr int kLineBufferSize = 255;  // a longer line is handled in pieces, each as a line of its own

// No station names a tenth of this. What lies beyond would only delay the start: every line walks over the
// nodes, and every node is printed.
constexpr unsigned kMaxLines = 4000;
constexpr unsigned kMaxNewNodes = 1000;

struct FileCloser
{
    void operator()(std::FILE* file) const { (void)std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

/// Does not block, whatever stands at the path.
File open(const char* path)
{
    const int descriptor = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    return File(descriptor < 0 ? nullptr : ::fdopen(descriptor, "r"));
}

/// Collects the cleaned text for the other party, when there is one.
class SharedCopy
{
public:
    void append(const char* text, int length)
    {
        if (m_end == nullptr)
            return;
        std::memcpy(m_end, text, static_cast<std::size_t>(length));
        m_end += length;
    }
    void terminate()
    {
        if (m_end != nullptr)
            *m_end = '\0';
    }

private:
    char* m_end = LOG_SHARED_MEMORY_CONF_PTR;
};

/// Reads one file. What there is to say is said at the level of the log from before it: the file may be just
/// the one that switches the log off, by mistake.
class Reader
{
public:
    explicit Reader(const char* path) : m_path(path) {}

    void read()
    {
        const File file = open(m_path);
        char line[kLineBufferSize];
        while (file != nullptr && std::fgets(line, sizeof line, file.get()) != nullptr) {
            if (++m_lines > kMaxLines || LogFacade::inst().size() - m_nodesBefore > kMaxNewNodes) {
                tell("Only the first %u lines of %s are used", m_lines - 1, m_path);
                break;
            }
            apply(line);
        }
        if (file == nullptr || std::ferror(file.get()) != 0)
            tell("Coulnd't open file at path %s", m_path);
        m_copy.terminate();
    }

private:
    void apply(char* line)
    {
        const int length = LogConf::cleanLine(line);
        if (length <= 1)
            return;
        if (const char* const colon = std::strchr(line, ':'); colon != nullptr && !is_level(colon + 1)) {
            const std::string_view word(colon + 1, std::strcspn(colon + 1, "\r\n"));
            tell("'%s' is no level: '%s' logs nothing from here on", printable(word).c_str(),
                 printable({line, colon}).c_str());
        }
        if (LogFacade::setLevel(line))
            m_copy.append(line, length);
    }
    template <class... Arguments>
    void tell(const char* format, Arguments... arguments) const
    {
        if (m_tells)
            log_event(*logNode, LogLevel::Error, __FILE__, __LINE__, nullptr, format, arguments...);
    }

    const char* m_path;
    const bool m_tells = logNode->passes(LogLevel::Error);
    const unsigned m_nodesBefore = LogFacade::inst().size();
    unsigned m_lines = 0;
    SharedCopy m_copy;
};
}  // namespace

void LogConf::readConf()
{
    readConf(kConfigurationPath);
}

void LogConf::readConf(const char* path)
{
    Reader(path).read();
}

int LogConf::cleanLine(char* line)
{
    char* out = line;
    for (const char* in = line; *in != '\0'; ++in) {
        if (*in == '#') {
            *out++ = '\n';
            break;
        }
        if (*in != ' ' && *in != '\t')
            *out++ = *in;
    }
    *out = '\0';
    return static_cast<int>(out - line);
}
