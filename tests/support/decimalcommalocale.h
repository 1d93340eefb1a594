#pragma once
// Runs a piece of a test under a process locale whose decimal separator is a comma, to
// prove that text formats parse and print numbers in the "C" locale regardless.
#include <string>

namespace VnTest {
// Switches the C and C++ global locales to a decimal-comma locale and restores the
// previous ones on destruction. When the system has none installed, it tries to compile
// one with localedef into a temporary folder (LOCPATH); IsActive() tells whether it
// succeeded, and Why() why not, for GTEST_SKIP.
class CDecimalCommaLocale {
public:
    CDecimalCommaLocale();
    ~CDecimalCommaLocale();
    CDecimalCommaLocale(const CDecimalCommaLocale&) = delete;
    CDecimalCommaLocale& operator=(const CDecimalCommaLocale&) = delete;
    bool IsActive() const { return m_active; }
    const std::string& Name() const { return m_name; }
    const std::string& Why() const { return m_why; }

private:
    bool m_active = false;
    std::string m_name, m_why, m_previousC;
};
} // namespace VnTest
