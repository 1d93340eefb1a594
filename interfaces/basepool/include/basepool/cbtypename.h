#pragma once
// Type spellings for the function names carried by container exceptions. Host code
// compares these strings, so the spelling follows the host's compiler convention
// ("unsigned int", "class CStringA", no spaces after commas in template lists) rather
// than whatever typeid() happens to produce on this platform.
#include <cstdint>
#include <string>
#include <typeinfo>

#include "basepool/cbstring.h"

// Demangled typeid name; the fallback for types without a fixed spelling below.
std::string CbDemangleTypeName(const char* mangled);

template <class T> struct CbTypeName {
    static std::string Get() { return CbDemangleTypeName(typeid(T).name()); }
};

#define CB_FIXED_TYPE_NAME(Type, Spelling)                       \
    template <> struct CbTypeName<Type> {                        \
        static std::string Get() { return Spelling; }            \
    }

CB_FIXED_TYPE_NAME(bool, "bool");
CB_FIXED_TYPE_NAME(char, "char");
CB_FIXED_TYPE_NAME(signed char, "signed char");
CB_FIXED_TYPE_NAME(unsigned char, "unsigned char");
CB_FIXED_TYPE_NAME(short, "short");
CB_FIXED_TYPE_NAME(unsigned short, "unsigned short");
CB_FIXED_TYPE_NAME(int, "int");
CB_FIXED_TYPE_NAME(unsigned int, "unsigned int");
CB_FIXED_TYPE_NAME(long, "long");
CB_FIXED_TYPE_NAME(unsigned long, "unsigned long");
CB_FIXED_TYPE_NAME(long long, "__int64");
CB_FIXED_TYPE_NAME(unsigned long long, "unsigned __int64");
CB_FIXED_TYPE_NAME(float, "float");
CB_FIXED_TYPE_NAME(double, "double");
CB_FIXED_TYPE_NAME(CStringA, "class CStringA");
CB_FIXED_TYPE_NAME(CStringW, "class CStringW");
#undef CB_FIXED_TYPE_NAME

template <class T> struct CbTypeName<T*> {
    static std::string Get() { return CbTypeName<T>::Get() + " *"; }
};
template <class T> struct CbTypeName<const T> {
    static std::string Get() { return "const " + CbTypeName<T>::Get(); }
};
