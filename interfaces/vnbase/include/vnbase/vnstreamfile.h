#pragma once
// File streams. Each opens its file in the constructor (throwing CbExceptionStream when
// it cannot) and closes it in the destructor. Writers flush on destruction; call Flush()
// to see write errors as exceptions instead of losing them.
#include <cstdio>
#include <locale.h>
#include <memory>
#include <vector>

#include "basepool/cbstreamascii.h"
#include "basepool/cbstreambinary.h"
#include "vnbase/vnstreamreadascii.h"

enum EAccessMode : int { eAccessModeDefault = 0 };
enum ECompressionMode : int { eCompressionModeNone = 0, eCompressionModeCompressed = 1 };
enum ECompressionLevel : int { eCompressionLevelDefault = 0 };

namespace VnDetail {
// Owns a FILE* and its path; shared by every file stream.
class CFileHandle {
public:
    CFileHandle(const wchar_t* path, const char* mode, const char* function);
    ~CFileHandle();
    CFileHandle(const CFileHandle&) = delete;
    CFileHandle& operator=(const CFileHandle&) = delete;
    FILE* Get() const { return m_file; }
    const CStringW& GetPath() const { return m_path; }
    uint64_t GetSize() const { return m_size; }

private:
    FILE* m_file = nullptr;
    CStringW m_path;
    uint64_t m_size = 0;
};
} // namespace VnDetail

class VnStreamReadBinaryFile : public CbStreamReadBinary {
public:
    explicit VnStreamReadBinaryFile(const wchar_t* path);
    uint64_t GetBytesLeft() const override;
    const CStringW& GetFilename() const { return m_file.GetPath(); }

protected:
    size_t readSlow(void* buffer, size_t count) override;
    VnDetail::CFileHandle m_file;
    std::vector<uint8_t> m_buffer;
    uint64_t m_consumed = 0; // file bytes before the current window
};

// The file's raw bytes, with Peek and GetFilename.
class VnStreamReadBinaryFileRaw : public VnStreamReadBinaryFile {
public:
    explicit VnStreamReadBinaryFileRaw(const wchar_t* path) : VnStreamReadBinaryFile(path) {}
    // Copies up to `count` upcoming bytes without consuming them; returns the number copied.
    size_t Peek(void* buffer, size_t count);
};

class VnStreamWriteBinaryFile : public CbStreamWriteBinary {
public:
    // Compression modes 0 and 1 write the same plain bytes.
    VnStreamWriteBinaryFile(const wchar_t* path, int accessMode = 0, int compressionMode = 0, int compressionLevel = 0);
    ~VnStreamWriteBinaryFile() override;
    void Flush() override;

protected:
    void writeSlow(const void* buffer, size_t count) override;

private:
    VnDetail::CFileHandle m_file;
    std::vector<uint8_t> m_buffer;
};

class VnStreamReadASCIIFile : public VnStreamReadASCIIT<CStringA> {
public:
    explicit VnStreamReadASCIIFile(const CStringW& path);

protected:
    bool refill() override;

private:
    VnDetail::CFileHandle m_file;
    std::vector<char> m_buffer;
};

class VnStreamWriteASCIIFile : public CbStreamWriteASCIIT<CStringA> {
public:
    // The locale argument is accepted for compatibility; text is written as given.
    VnStreamWriteASCIIFile(const CStringW& path, int accessMode = 0, int compressionMode = 0, locale_t locale = nullptr);
    ~VnStreamWriteASCIIFile() override;
    void Flush() override;

protected:
    void writeSlow(const char* text, size_t count) override;

private:
    VnDetail::CFileHandle m_file;
    std::vector<char> m_buffer;
};
