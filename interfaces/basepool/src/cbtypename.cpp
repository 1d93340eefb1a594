#include "basepool/cbtypename.h"

#include <cstdlib>
#include <memory>

#if defined(__GNUC__) || defined(__clang__)
#include <cxxabi.h>
#endif

std::string CbDemangleTypeName(const char* mangled) {
    if (!mangled) return {};
#if defined(__GNUC__) || defined(__clang__)
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> text(abi::__cxa_demangle(mangled, nullptr, nullptr, &status), std::free);
    if (status == 0 && text) {
        // Match the compact template spelling of the fixed names: "A<B,C>", not "A<B, C>".
        std::string out;
        for (const char* p = text.get(); *p; ++p) {
            if (*p == ' ' && p > text.get() && p[-1] == ',') continue;
            out.push_back(*p);
        }
        return out;
    }
#endif
    return mangled;
}
