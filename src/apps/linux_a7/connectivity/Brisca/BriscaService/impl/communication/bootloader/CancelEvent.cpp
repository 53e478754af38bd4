#include "CancelEvent.h"

#include <sys/eventfd.h>
#include <unistd.h>

CancelEvent::CancelEvent() : m_descriptor(::eventfd(0, EFD_CLOEXEC)) {}

CancelEvent::~CancelEvent()
{
    if (isValid())
        ::close(m_descriptor);
}

void CancelEvent::raise() const
{
    ::eventfd_write(m_descriptor, 1);
}
