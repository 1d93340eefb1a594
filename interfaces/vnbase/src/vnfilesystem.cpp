#include "vnbase/vnfilesystem.h"

#include <cstdlib>
#include <sys/stat.h>

namespace VnFileSystem {

CStringA ToNative(const CStringW& path) { return CbWideToUtf8(path); }

uint64_t GetFileSize(const CStringW& path) {
    struct stat st {};
    if (::stat(ToNative(path).c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return 0;
    return static_cast<uint64_t>(st.st_size);
}

bool Exists(const CStringW& path) {
    struct stat st {};
    return ::stat(ToNative(path).c_str(), &st) == 0;
}

CStringW GetFolder(const CStringW& path) {
    size_t pos = path.find_last_of(L"/\\");
    if (pos == std::wstring::npos) return CStringW();
    return CStringW(path.substr(0, pos + 1));
}

namespace {
bool isNameChar(wchar_t c) {
    return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z') || (c >= L'0' && c <= L'9') || c == L'_';
}

// Looks the variable up; returns false when it is not defined.
bool lookup(const std::wstring& name, std::wstring& value) {
    const char* v = std::getenv(CbWideToUtf8(name).c_str());
    if (!v) return false;
    value = CbUtf8ToWide(v);
    return true;
}
} // namespace

CStringW InterpretEnvironment(const CStringW& path) {
    std::wstring out;
    size_t i = 0;
    while (i < path.size()) {
        wchar_t c = path[i];
        std::wstring value;
        if (c == L'%') {
            size_t close = path.find(L'%', i + 1);
            if (close != std::wstring::npos && close > i + 1 && lookup(path.substr(i + 1, close - i - 1), value)) {
                out += value;
                i = close + 1;
                continue;
            }
        } else if (c == L'$' && i + 1 < path.size()) {
            if (path[i + 1] == L'{') {
                size_t close = path.find(L'}', i + 2);
                if (close != std::wstring::npos && lookup(path.substr(i + 2, close - i - 2), value)) {
                    out += value;
                    i = close + 1;
                    continue;
                }
            } else {
                size_t end = i + 1;
                while (end < path.size() && isNameChar(path[end])) ++end;
                if (end > i + 1 && lookup(path.substr(i + 1, end - i - 1), value)) {
                    out += value;
                    i = end;
                    continue;
                }
            }
        }
        out.push_back(c);
        ++i;
    }
    return CStringW(std::move(out));
}

} // namespace VnFileSystem
