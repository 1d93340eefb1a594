#pragma once
// A calendar date and wall-clock time (local time, whole seconds). Default construction
// takes the current local time.
#include <cstdint>

#include "basepool/cbstring.h"

class CbDateTime {
public:
    CbDateTime();
    // Month 1-12, day 1-31, hour 0-23, minute and second 0-59; not normalised.
    CbDateTime(int year, int month, int day, int hour = 0, int minute = 0, int second = 0)
        : m_year(year), m_month(month), m_day(day), m_hour(hour), m_minute(minute), m_second(second) {}

    static CbDateTime GetCurrentTime() { return CbDateTime(); }

    int GetYear() const { return m_year; }
    int GetMonth() const { return m_month; }
    int GetDay() const { return m_day; }
    int GetHour() const { return m_hour; }
    int GetMinute() const { return m_minute; }
    int GetSecond() const { return m_second; }

    // "YYYY-MM-DD HH:MM:SS".
    CStringA Format() const;

    friend bool operator==(const CbDateTime&, const CbDateTime&) = default;

private:
    int m_year, m_month, m_day, m_hour, m_minute, m_second;
};
