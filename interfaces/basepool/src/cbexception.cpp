#include "basepool/cbexception.h"

CbException::CbException(const char* sourceFile, uint32_t line, const char* function)
    : m_sourceFile(sourceFile ? sourceFile : ""), m_line(line), m_function(function ? function : "") {}

std::string CbException::Describe() const {
    return std::string(GetClassName()) + " at " + m_sourceFile + ":" + std::to_string(m_line) + " in " + m_function;
}
