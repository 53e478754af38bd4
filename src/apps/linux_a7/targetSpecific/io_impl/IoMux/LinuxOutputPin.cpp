#include "LinuxOutputPin.h"

#include "facade/Log.h"

#include <fcntl.h>
#include <unistd.h>

BRISCA_LOG_NODE(logNode, "LinuxOutputPin");

LinuxOutputPin::LinuxOutputPin(const char* path) : m_path(path) {}

void LinuxOutputPin::setHigh()
{
    set(true);
}

void LinuxOutputPin::setLow()
{
    set(false);
}

void LinuxOutputPin::set(bool value)
{
    const int pin = ::open(m_path, O_WRONLY | O_CLOEXEC);
    if (pin < 0) {
        BRISCA_ERROR(logNode, "Unable to access GPIO %s", m_path);
        return;
    }
    [[maybe_unused]] const ssize_t ignored = ::write(pin, value ? "1" : "0", 1);
    ::close(pin);
}
