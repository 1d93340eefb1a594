#include "support/decimalcommalocale.h"

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <locale>

namespace VnTest {
namespace {

bool hasDecimalComma() {
    const std::lconv* lc = std::localeconv();
    return lc && lc->decimal_point && lc->decimal_point[0] == ',';
}

bool trySet(const char* name) { return std::setlocale(LC_ALL, name) && hasDecimalComma(); }

// Compiles de_DE.UTF-8 from the system's locale sources once per process.
bool compileLocale(std::string& why) {
    namespace fs = std::filesystem;
    if (!fs::exists("/usr/share/i18n/locales/de_DE")) {
        why = "no decimal-comma locale installed and no locale sources to build one";
        return false;
    }
    static const fs::path dir = fs::temp_directory_path() / "vnio_test_locales";
    std::error_code ec;
    fs::create_directories(dir, ec);
    if (!fs::exists(dir / "de_DE.UTF-8")) {
        std::string cmd = "localedef -i de_DE -f UTF-8 '" + (dir / "de_DE.UTF-8").string() + "' >/dev/null 2>&1";
        if (std::system(cmd.c_str()) != 0 && !fs::exists(dir / "de_DE.UTF-8")) {
            why = "no decimal-comma locale installed and localedef failed";
            return false;
        }
    }
    ::setenv("LOCPATH", dir.c_str(), 1);
    return true;
}

} // namespace

CDecimalCommaLocale::CDecimalCommaLocale() {
    const char* current = std::setlocale(LC_ALL, nullptr);
    m_previousC = current ? current : "C";
    for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "fr_FR.utf8", "de_DE", "fr_FR", "ru_RU.UTF-8"})
        if (trySet(name)) {
            m_name = name;
            break;
        }
    if (m_name.empty() && compileLocale(m_why) && trySet("de_DE.UTF-8")) {
        m_name = "de_DE.UTF-8";
        m_why.clear();
    }
    if (m_name.empty()) {
        if (m_why.empty()) m_why = "no decimal-comma locale available";
        std::setlocale(LC_ALL, m_previousC.c_str());
        return;
    }
    try {
        std::locale::global(std::locale(m_name.c_str()));
    } catch (const std::exception&) {
        // The C locale alone is what printf-style code sees; keep going with it.
    }
    std::setlocale(LC_ALL, m_name.c_str());
    m_active = true;
}

CDecimalCommaLocale::~CDecimalCommaLocale() {
    if (!m_active) return;
    std::locale::global(std::locale::classic());
    std::setlocale(LC_ALL, m_previousC.c_str());
}

} // namespace VnTest
