#include "conf/LogConf.h"

#include "facade/Log.h"
#include "facade/LogText.h"

#include <fcntl.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

char* LOG_SHARED_MEMORY_CONF_PTR = nullptr;

BRISCA_LOG_NODE(logNode, "liblog");

namespace {
constexpr const char* kConfigurationPath = "/evse/data/log.cfg";
constexpr int kLineBufferSize = 255;  // a longer line is handled in pieces, each as a line of its own

// Bounds on how long a file can delay the start: every line walks over the nodes, and every node is printed.
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

/// Calls back with each piece of the file as fgets() cuts it, while that gives true.
/// @return false when the file cannot be opened or read
template <class Handler>
bool readPieces(const char* path, Handler handle)
{
    const File file = open(path);
    char piece[kLineBufferSize];
    while (file != nullptr && std::fgets(piece, sizeof piece, file.get()) != nullptr && handle(piece)) {
    }
    return file != nullptr && std::ferror(file.get()) == 0;
}

/// What follows the first colon of a cleaned line, up to its end, when that is no level.
std::optional<std::string_view> wrongWord(const char* line)
{
    const char* const colon = std::strchr(line, ':');
    if (colon == nullptr || is_level(colon + 1))
        return std::nullopt;
    return std::string_view(colon + 1, std::strcspn(colon + 1, "\r\n"));
}

std::string quoted(std::string_view text)
{
    std::string result(1, '\'');
    return result.append(printable(text)).append(1, '\'');
}

/// What is wrong with a cleaned line; empty when nothing is.
std::string fault(const char* line)
{
    const std::string_view node(line, std::strcspn(line, ":\r\n"));
    if (line[node.size()] != ':')
        return "no colon, the line is not used";
    if (const auto word = wrongWord(line))
        return quoted(*word) + " is no level, nothing would be logged by " + quoted(node);
    if (LogFacade::inst().findNode(line, static_cast<int>(node.size())) == nullptr)
        return quoted(node) + " is the name of no module";
    return "";
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
        if (!readPieces(m_path, [this](char* line) { return take(line); }))
            tell("Coulnd't open file at path %s", m_path);
        m_copy.terminate();
    }

private:
    bool take(char* line)
    {
        if (++m_lines > kMaxLines || LogFacade::inst().size() - m_nodesBefore > kMaxNewNodes) {
            tell("Only the first %u lines of %s are used", m_lines - 1, m_path);
            return false;
        }
        apply(line);
        return true;
    }
    void apply(char* line)
    {
        const int length = LogConf::cleanLine(line);
        if (length <= 1)
            return;
        if (const auto word = wrongWord(line))
            tell("'%s' is no level: '%s' logs nothing from here on", printable(*word).c_str(),
                 printable({line, word->data() - 1}).c_str());
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

std::vector<std::string> LogConf::check(const char* path)
{
    std::vector<std::string> faults;
    unsigned lines = 0;
    bool endsLine = true;
    const auto look = [&](char* piece) {
        lines += endsLine ? 1 : 0;
        endsLine = std::strchr(piece, '\n') != nullptr;
        if (cleanLine(piece) > 1)
            if (const std::string text = fault(piece); !text.empty())
                faults.push_back("line " + std::to_string(lines) + ": " + text);
        return lines <= kMaxLines;
    };
    if (!readPieces(path, look))
        faults.emplace_back("the file cannot be read");
    if (lines > kMaxLines)
        faults.push_back("only the first " + std::to_string(kMaxLines) + " lines are used");
    return faults;
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
