#include "vnbase/vnstreamfile.h"

#include <algorithm>
#include <cstring>
#include <sys/stat.h>

#include "vnbase/vnfilesystem.h"

namespace {
constexpr const char* kSource = "vnlibraries/vnbase/vnstreamfile";
constexpr size_t kBufferSize = 1 << 20;
constexpr size_t kSmallestReadBuffer = 4096;
// Write windows start small and double with each flush up to kBufferSize, so writing a small
// file does not first fill a megabyte of fresh memory.
constexpr size_t kFirstWriteBuffer = 64 << 10;

template <class Buffer> void growWriteWindow(Buffer& buffer) {
    if (buffer.size() < kBufferSize) buffer.resize(std::min(buffer.size() * 2, kBufferSize));
}

// A read window as large as the file needs and no larger: opening a small file should not
// cost a megabyte of zeroed memory. A size of 0 (a pipe, a /proc file) gets the minimum.
size_t readBufferFor(uint64_t fileSize) {
    return static_cast<size_t>(std::clamp<uint64_t>(fileSize + 1, kSmallestReadBuffer, kBufferSize));
}
} // namespace

namespace VnDetail {
CFileHandle::CFileHandle(const wchar_t* path, const char* mode, const char* function) : m_path(path ? path : L"") {
    m_file = std::fopen(VnFileSystem::ToNative(m_path).c_str(), mode);
    if (!m_file) throw CbExceptionStream(kSource, __LINE__, function);
    struct stat st {};
    if (::fstat(fileno(m_file), &st) == 0) {
        if (S_ISDIR(st.st_mode)) {
            std::fclose(m_file);
            m_file = nullptr;
            throw CbExceptionStream(kSource, __LINE__, function);
        }
        if (S_ISREG(st.st_mode)) m_size = static_cast<uint64_t>(st.st_size);
    }
}

CFileHandle::~CFileHandle() {
    if (m_file) std::fclose(m_file);
}
} // namespace VnDetail

VnStreamReadBinaryFile::VnStreamReadBinaryFile(const wchar_t* path)
    : m_file(path, "rb", "VnStreamReadBinaryFile::VnStreamReadBinaryFile") {}

uint64_t VnStreamReadBinaryFile::GetBytesLeft() const {
    uint64_t pos = m_consumed + static_cast<uint64_t>(m_cur - (m_buffer.empty() ? m_cur : m_buffer.data()));
    return m_file.GetSize() > pos ? m_file.GetSize() - pos : 0;
}

size_t VnStreamReadBinaryFile::readSlow(void* buffer, size_t count) {
    uint8_t* out = static_cast<uint8_t*>(buffer);
    size_t done = static_cast<size_t>(m_end - m_cur);
    if (done) std::memcpy(out, m_cur, done);
    m_consumed += static_cast<uint64_t>(m_end - (m_buffer.empty() ? m_end : m_buffer.data()));
    m_cur = m_end = m_buffer.data();
    size_t rest = count - done;
    if (rest >= kBufferSize / 2) {
        // Large reads go straight to the caller's memory.
        size_t n = std::fread(out + done, 1, rest, m_file.Get());
        m_consumed += n;
        if (m_buffer.empty()) m_cur = m_end = nullptr;
        return done + n;
    }
    if (m_buffer.empty()) m_buffer.resize(readBufferFor(m_file.GetSize()));
    size_t n = std::fread(m_buffer.data(), 1, m_buffer.size(), m_file.Get());
    m_cur = m_buffer.data();
    m_end = m_cur + n;
    size_t take = std::min(rest, n);
    if (take) std::memcpy(out + done, m_cur, take);
    m_cur += take;
    return done + take;
}

size_t VnStreamReadBinaryFileRaw::Peek(void* buffer, size_t count) {
    size_t avail = static_cast<size_t>(m_end - m_cur);
    if (avail < count) {
        // Pull the window to the front and top it up so the peeked bytes stay unconsumed.
        if (m_buffer.size() < std::max(count, kBufferSize)) {
            std::vector<uint8_t> bigger(std::max(count, kBufferSize));
            if (avail) std::memcpy(bigger.data(), m_cur, avail);
            m_consumed += static_cast<uint64_t>(m_cur - (m_buffer.empty() ? m_cur : m_buffer.data()));
            m_buffer.swap(bigger);
        } else {
            m_consumed += static_cast<uint64_t>(m_cur - m_buffer.data());
            std::memmove(m_buffer.data(), m_cur, avail);
        }
        size_t n = std::fread(m_buffer.data() + avail, 1, m_buffer.size() - avail, m_file.Get());
        m_cur = m_buffer.data();
        m_end = m_cur + avail + n;
        avail += n;
    }
    size_t take = std::min(avail, count);
    if (take) std::memcpy(buffer, m_cur, take);
    return take;
}

VnStreamWriteBinaryFile::VnStreamWriteBinaryFile(const wchar_t* path, int, int, int)
    : m_file(path, "wb", "VnStreamWriteBinaryFile::VnStreamWriteBinaryFile"), m_buffer(kFirstWriteBuffer) {
    m_cur = m_buffer.data();
    m_end = m_cur + m_buffer.size();
}

VnStreamWriteBinaryFile::~VnStreamWriteBinaryFile() {
    try {
        Flush();
    } catch (const CbException&) {
        // Destructors cannot report; callers who care call Flush() themselves.
    }
}

void VnStreamWriteBinaryFile::Flush() {
    size_t n = static_cast<size_t>(m_cur - m_buffer.data());
    m_cur = m_buffer.data();
    if (n && std::fwrite(m_buffer.data(), 1, n, m_file.Get()) != n)
        throw CbExceptionStream(kSource, __LINE__, "VnStreamWriteBinaryFile::Flush");
    if (std::fflush(m_file.Get()) != 0) throw CbExceptionStream(kSource, __LINE__, "VnStreamWriteBinaryFile::Flush");
}

void VnStreamWriteBinaryFile::writeSlow(const void* buffer, size_t count) {
    size_t n = static_cast<size_t>(m_cur - m_buffer.data());
    m_cur = m_buffer.data();
    if (n && std::fwrite(m_buffer.data(), 1, n, m_file.Get()) != n)
        throw CbExceptionStream(kSource, __LINE__, "VnStreamWriteBinaryFile::WriteBuffer");
    growWriteWindow(m_buffer);
    m_cur = m_buffer.data();
    m_end = m_cur + m_buffer.size();
    if (count >= m_buffer.size() / 2) {
        if (std::fwrite(buffer, 1, count, m_file.Get()) != count)
            throw CbExceptionStream(kSource, __LINE__, "VnStreamWriteBinaryFile::WriteBuffer");
        return;
    }
    std::memcpy(m_cur, buffer, count);
    m_cur += count;
}

VnStreamReadASCIIFile::VnStreamReadASCIIFile(const CStringW& path)
    : m_file(path.c_str(), "rb", "VnStreamReadASCIIFile::VnStreamReadASCIIFile") {}

bool VnStreamReadASCIIFile::refill() {
    if (m_buffer.empty()) m_buffer.resize(readBufferFor(m_file.GetSize()));
    size_t n = std::fread(m_buffer.data(), 1, m_buffer.size(), m_file.Get());
    if (n == 0) {
        if (std::ferror(m_file.Get())) throw CbExceptionStream(kSource, __LINE__, "VnStreamReadASCIIFile::Read");
        return false;
    }
    m_cur = m_buffer.data();
    m_end = m_cur + n;
    return true;
}

VnStreamWriteASCIIFile::VnStreamWriteASCIIFile(const CStringW& path, int, int, locale_t)
    : m_file(path.c_str(), "wb", "VnStreamWriteASCIIFile::VnStreamWriteASCIIFile"), m_buffer(kFirstWriteBuffer) {
    m_cur = m_buffer.data();
    m_end = m_cur + m_buffer.size();
}

VnStreamWriteASCIIFile::~VnStreamWriteASCIIFile() {
    try {
        Flush();
    } catch (const CbException&) {
    }
}

void VnStreamWriteASCIIFile::Flush() {
    size_t n = static_cast<size_t>(m_cur - m_buffer.data());
    m_cur = m_buffer.data();
    if (n && std::fwrite(m_buffer.data(), 1, n, m_file.Get()) != n)
        throw CbExceptionStream(kSource, __LINE__, "VnStreamWriteASCIIFile::Flush");
    if (std::fflush(m_file.Get()) != 0) throw CbExceptionStream(kSource, __LINE__, "VnStreamWriteASCIIFile::Flush");
}

void VnStreamWriteASCIIFile::writeSlow(const char* text, size_t count) {
    size_t n = static_cast<size_t>(m_cur - m_buffer.data());
    m_cur = m_buffer.data();
    if (n && std::fwrite(m_buffer.data(), 1, n, m_file.Get()) != n)
        throw CbExceptionStream(kSource, __LINE__, "VnStreamWriteASCIIFile::Write");
    growWriteWindow(m_buffer);
    m_cur = m_buffer.data();
    m_end = m_cur + m_buffer.size();
    if (count >= m_buffer.size() / 2) {
        if (std::fwrite(text, 1, count, m_file.Get()) != count)
            throw CbExceptionStream(kSource, __LINE__, "VnStreamWriteASCIIFile::Write");
        return;
    }
    std::memcpy(m_cur, text, count);
    m_cur += count;
}
