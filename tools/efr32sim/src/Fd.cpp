#include "Fd.h"

#include <cerrno>
#include <system_error>

namespace efr32sim {
Fd ownOrThrow(int result, const char* what)
{
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return Fd(result);
}
}  // namespace efr32sim
