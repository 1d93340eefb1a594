#pragma once
// CStringA: narrow 8-bit text (UTF-8 for paths). CStringW: wide text (wchar_t), used for
// file names in the API; converted to UTF-8 before any file-system call.
#include <string>
#include <string_view>

class CStringA : public std::string {
public:
    using std::string::string;
    CStringA() = default;
    CStringA(const std::string& s) : std::string(s) {}
    CStringA(std::string&& s) : std::string(std::move(s)) {}
    CStringA(std::string_view s) : std::string(s) {}
    int GetLength() const { return static_cast<int>(size()); }
    bool IsEmpty() const { return empty(); }
    const char* GetString() const { return c_str(); }
};

class CStringW : public std::wstring {
public:
    using std::wstring::wstring;
    CStringW() = default;
    CStringW(const std::wstring& s) : std::wstring(s) {}
    CStringW(std::wstring&& s) : std::wstring(std::move(s)) {}
    int GetLength() const { return static_cast<int>(size()); }
    bool IsEmpty() const { return empty(); }
    const wchar_t* GetString() const { return c_str(); }
};

// UTF-8 <-> wide conversions. Invalid UTF-8 bytes map to U+FFFD; wide code points that
// are not valid scalar values encode as U+FFFD.
CStringA CbWideToUtf8(std::wstring_view w);
CStringW CbUtf8ToWide(std::string_view s);

// printf-style formatting into a new narrow string (C rules, floats promoted to double).
// Numbers are formatted in the classic "C" locale whatever the process locale is.
CStringA CbFormatA(const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;
