#pragma once
// The exception family shared by every layer. Each exception names where it was raised
// (source path below the sources root without extension, line, qualified function) and
// carries no message text; callers branch on the class.
#include <cstdint>
#include <exception>
#include <string>

class CbException {
public:
    CbException(const char* sourceFile, uint32_t line, const char* function);
    virtual ~CbException() = default;
    CbException(const CbException&) = default;
    CbException& operator=(const CbException&) = default;

    const std::string& GetSourceFile() const { return m_sourceFile; }
    uint32_t GetLine() const { return m_line; }
    const std::string& GetFunction() const { return m_function; }
    // Class name, for diagnostics ("CbExceptionStream", ...).
    virtual const char* GetClassName() const { return "CbException"; }
    // "CbExceptionStream at vnlibraries/vnio/vnstl:100 in VnSTL::Load".
    std::string Describe() const;

private:
    std::string m_sourceFile;
    uint32_t m_line;
    std::string m_function;
};

#define VN_DECLARE_EXCEPTION(Name)                                                    \
    class Name : public CbException {                                                 \
    public:                                                                           \
        Name(const char* sourceFile, uint32_t line, const char* function)             \
            : CbException(sourceFile, line, function) {}                              \
        const char* GetClassName() const override { return #Name; }                   \
    }

VN_DECLARE_EXCEPTION(CbExceptionStream);
VN_DECLARE_EXCEPTION(CbExceptionWrongFileVersion);
VN_DECLARE_EXCEPTION(CbExceptionPreconditionViolation);
VN_DECLARE_EXCEPTION(CbExceptionContainer);
#undef VN_DECLARE_EXCEPTION

// Wraps a standard-library exception; keeps its what() text.
class CbExceptionStd : public CbException {
public:
    CbExceptionStd(const char* sourceFile, uint32_t line, const char* function, const std::exception& inner)
        : CbException(sourceFile, line, function), m_what(inner.what()) {}
    const char* GetClassName() const override { return "CbExceptionStd"; }
    const std::string& GetWhat() const { return m_what; }

private:
    std::string m_what;
};
