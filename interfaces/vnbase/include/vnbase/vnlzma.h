#pragma once
// LZMA compression of byte blocks (over liblzma).
//
// Block layout: u8 method (0 stored, 1 raw LZMA2), u32 uncompressed size, then the payload.
// A block that LZMA cannot shrink is stored, so a block is never more than five bytes
// larger than its input. Setting s selects the xz preset min(s, 9); the dictionary is sized
// to the block (at least 4 KiB), so neither side allocates more than the block needs.
#include <cstdint>
#include <vector>

class VnCompressLZMA {
public:
    VnCompressLZMA() = default;
    // Compresses `size` bytes; returns nonzero on success. The result stays held by the
    // compressor (GetData/GetSize) until the next call.
    int Compress(const unsigned char* data, unsigned long size, unsigned long setting);
    const unsigned char* GetData() const { return m_out.data(); }
    unsigned long GetSize() const { return static_cast<unsigned long>(m_out.size()); }

private:
    std::vector<unsigned char> m_out;
};

class VnDecompressLZMA {
public:
    // `outputLimit` is the largest block the caller's context allows; a block that claims
    // more is refused before anything is allocated.
    explicit VnDecompressLZMA(uint64_t outputLimit = 1u << 26) : m_limit(outputLimit) {}
    void SetOutputLimit(uint64_t outputLimit) { m_limit = outputLimit; }
    // Decompresses one block; returns nonzero on success (the output must be exactly the
    // recorded size and every input byte must be used). Never throws.
    int Decompress(const unsigned char* data, unsigned long size);
    const unsigned char* GetData() const { return m_out.data(); }
    unsigned long GetSize() const { return static_cast<unsigned long>(m_out.size()); }

    // Bytes a block of `uncompressed` bytes can take at most (the stored fallback).
    static constexpr uint64_t MaxBlockSize(uint64_t uncompressed) { return uncompressed + 5; }

private:
    uint64_t m_limit;
    std::vector<unsigned char> m_out;
};
