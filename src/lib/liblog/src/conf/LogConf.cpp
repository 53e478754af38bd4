#include "conf/LogConf.h"

#include "facade/Log.h"

#include <cstdio>
#include <cstring>
#include <memory>

char* LOG_SHARED_MEMORY_CONF_PTR = nullptr;

BRISCA_LOG_NODE(logNode, "liblog");

namespace {
constexpr const char* kConfigurationPath = "/evse/data/log.cfg";
constexpr int kLineBufferSize = 255;  // a longer line is handled in pieces, each as a line of its own

struct FileCloser
{
    void operator()(std::FILE* file) const { (void)std::fclose(file); }
};

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
}  // namespace

void LogConf::readConf()
{
    readConf(kConfigurationPath);
}

void LogConf::readConf(const char* path)
{
    SharedCopy copy;
    const std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path, "re"));
    if (file == nullptr) {
        BRISCA_ERROR(logNode, "Coulnd't open file at path %s", path);
        copy.terminate();
        return;
    }
    char line[kLineBufferSize];
    while (std::fgets(line, sizeof line, file.get()) != nullptr) {
        const int length = cleanLine(line);
        if (length > 1 && LogFacade::setLevel(line))
            copy.append(line, length);
    }
    copy.terminate();
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
