#include "basepool/cbdatetime.h"

#include <ctime>

CbDateTime::CbDateTime() {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    // localtime_r: the static buffer of std::localtime is shared with every other caller.
    if (!localtime_r(&now, &local)) gmtime_r(&now, &local);
    m_year = local.tm_year + 1900;
    m_month = local.tm_mon + 1;
    m_day = local.tm_mday;
    m_hour = local.tm_hour;
    m_minute = local.tm_min;
    // tm_sec may be 60 during a leap second; keep the documented range.
    m_second = local.tm_sec > 59 ? 59 : local.tm_sec;
}

CStringA CbDateTime::Format() const {
    return CbFormatA("%04d-%02d-%02d %02d:%02d:%02d", m_year, m_month, m_day, m_hour, m_minute, m_second);
}
