#include "AdvertisingWatchdog.h"

bool AdvertisingWatchdog::note(Clock::time_point now, bool silent)
{
    if (!silent) {
        m_silentSince.reset();
        return false;
    }
    if (!m_silentSince)
        m_silentSince = now;
    if (now - *m_silentSince < kSilenceLimit)
        return false;
    m_silentSince = now;
    return true;
}
