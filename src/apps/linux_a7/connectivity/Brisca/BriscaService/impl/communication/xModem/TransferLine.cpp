#include "TransferLine.h"

#include "Failure.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

TransferLine::TransferLine(int descriptor, UploadProgress& progress, int cancelDescriptor, int timeoutMs)
    : m_descriptor(descriptor),
      m_progress(progress),
      m_cancelDescriptor(cancelDescriptor),
      m_timeoutMs(timeoutMs),
      m_flags(::fcntl(descriptor, F_GETFL))
{
    if (m_flags != -1)
        ::fcntl(m_descriptor, F_SETFL, m_flags | O_NONBLOCK);
}

TransferLine::~TransferLine()
{
    if (m_flags != -1)
        ::fcntl(m_descriptor, F_SETFL, m_flags);
}

int TransferLine::send(std::span<const unsigned char> bytes)
{
    while (!bytes.empty()) {
        errno = 0;
        const ssize_t written = TEMP_FAILURE_RETRY(::write(m_descriptor, bytes.data(), bytes.size()));
        if (written > 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(written));
            continue;
        }
        if (errno != EAGAIN)
            return failure();
        if (const int result = waitFor(POLLOUT); result != 0)
            return result;
    }
    return 0;
}

int TransferLine::receive(unsigned char& byte)
{
    for (;;) {
        if (const int result = waitFor(POLLIN); result != 0)
            return result;
        errno = 0;
        if (TEMP_FAILURE_RETRY(::read(m_descriptor, &byte, 1)) == 1) {
            m_progress.heard = UploadProgress::Clock::now();
            return 0;
        }
        if (errno != EAGAIN)
            return failure();
    }
}

// Ends by the line (ready, hung up or invalid: the call that follows tells which), by the cancellation or by
// the time-out.
int TransferLine::waitFor(short events)
{
    if (m_descriptor < 0)
        return 0;  // poll() would ignore it and wait for ever
    pollfd entries[] = {{m_descriptor, events, 0}, {m_cancelDescriptor, POLLIN, 0}};
    const int ready = TEMP_FAILURE_RETRY(::poll(entries, std::size(entries), m_timeoutMs));
    if (ready < 0)
        return failure();
    if (ready == 0)
        return -ETIMEDOUT;
    if (entries[1].revents == 0)
        return 0;
    ::tcflush(m_descriptor, TCOFLUSH);  // or closing the port would wait for a line that may be stopped
    return -ECANCELED;
}
