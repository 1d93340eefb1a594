#pragma once
// The PLY codec behind VnPLY: the header model, typed property requests, body decoding for
// ASCII, binary little-endian and binary big-endian files, and encoding of ASCII and binary
// files. It knows nothing about meshes; VnPLY decides what is asked for and how it is used.
//
// Every failure is a standard exception (std::runtime_error for bad files,
// std::invalid_argument for caller mistakes) whose text names the element, the property
// and the line (ASCII) or byte offset (binary) where the file went wrong.
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "basepool/cbstreambinary.h"

namespace VnPlyCodec {

// The scalar types of PLY. The aliases of the header (char/int8, uchar/uint8, ...) map to
// one value each.
enum class EType : uint8_t { eNone, eInt8, eUInt8, eInt16, eUInt16, eInt32, eUInt32, eFloat32, eFloat64 };

// Byte size of one value (0 for eNone).
size_t SizeOf(EType type);
// The name written into headers ("char", "uchar", ..., "float", "double").
const char* NameOf(EType type);
// Either spelling of a header type name; eNone when the name is unknown.
EType ParseType(std::string_view name);
bool IsInteger(EType type);

enum class EFormat : uint8_t { eAscii, eBinaryLittleEndian, eBinaryBigEndian };

struct SProperty {
    std::string name;
    EType type = EType::eNone;      // the value type (of each list entry for lists)
    EType countType = EType::eNone; // the list count type; eNone for a scalar property
    bool IsList() const { return countType != EType::eNone; }
};

struct SElement {
    std::string name;
    uint64_t count = 0;
    std::vector<SProperty> properties;
    const SProperty* FindProperty(std::string_view name) const;
};

// The values of one request, filled by CReader::Read.
struct SBuffer {
    EType type = EType::eNone;        // type of the values in `bytes`: the type asked for
    EType fileType = EType::eNone;    // declared type of the properties (eNone when they differ)
    uint64_t count = 0;               // rows read
    uint32_t valuesPerRow = 0;        // properties asked for, or the fixed list length; 0 for free lists
    std::vector<uint8_t> bytes;       // row after row, values in the order asked for
    std::vector<uint32_t> listCounts; // per row, for lists of free length only
};

class CInput;

// Reads one PLY file from a stream: the constructor parses the header, Request() says what
// is wanted, Read() decodes the body once. Elements after the last requested one are not
// read at all; unrequested data before it is skipped without converting it.
class CReader {
public:
    // Parses the header; the stream must stay alive until Read() returns.
    explicit CReader(CbStreamRead& stream);
    ~CReader();
    CReader(const CReader&) = delete;
    CReader& operator=(const CReader&) = delete;

    EFormat GetFormat() const { return m_format; }
    const std::vector<SElement>& GetElements() const { return m_elements; }
    const SElement* FindElement(std::string_view name) const;
    bool HasProperty(std::string_view element, std::string_view property) const;
    const std::vector<std::string>& GetComments() const { return m_comments; }
    const std::vector<std::string>& GetObjInfo() const { return m_objInfo; }

    // Asks for properties of an element, each value converted to `type`. Either one list
    // property, or scalar properties only (interleaved per row in the order given). For a
    // list, `listSize` > 0 fixes the length of every row (other lengths fail in Read) and 0
    // accepts any length. Throws std::invalid_argument for a missing element or property, a
    // property asked for twice, a mix of lists and scalars, or a call after Read().
    std::shared_ptr<SBuffer> Request(std::string_view element, const std::vector<std::string>& properties, EType type,
                                     uint32_t listSize = 0);

    // Decodes the body into the requested buffers. Throws std::runtime_error for a truncated
    // or malformed body, a value that does not fit the type asked for, or a list of the wrong
    // length. Counts never allocate more than the bytes left in the stream can hold.
    void Read();

    // Body decoding plans; defined with the body reader.
    struct SRequest;
    struct SSlot;

private:
    void parseHeader();
    void readAscii(size_t last);
    void readBinary(size_t last);

    std::unique_ptr<CInput> m_input;
    EFormat m_format = EFormat::eAscii;
    std::vector<SElement> m_elements;
    std::vector<std::string> m_comments, m_objInfo;
    std::vector<std::unique_ptr<SRequest>> m_requests;
    uint64_t m_headerLines = 0;
    bool m_read = false;
};

// Collects elements, properties and comments, then writes a whole PLY file. The data is
// borrowed, not copied: it must stay valid until Write() returns.
class CWriter {
public:
    void AddComment(std::string text) { m_comments.push_back(std::move(text)); }
    void AddObjInfo(std::string text) { m_objInfo.push_back(std::move(text)); }

    // Adds properties to an element (created at its first use; elements are written in
    // that order). Scalars: `data` holds `count` rows of names.size() values of `type`.
    // A list (listCountType != eNone): one name, and `data` holds `count` rows of
    // `listSize` values. Throws std::invalid_argument for a count that differs from the
    // element's, a duplicate name, a bad type or a list count type that cannot hold listSize.
    void AddProperties(std::string_view element, const std::vector<std::string>& names, EType type, uint64_t count,
                       const void* data, EType listCountType = EType::eNone, uint32_t listSize = 0);

    // Writes header and body. Binary formats write the values in the byte order named.
    void Write(CbStreamWrite& out, EFormat format) const;

    struct SColumn {
        const uint8_t* data;
        EType type;
        uint32_t stride; // values per row in `data`
        uint32_t column; // first value of this property within a row
        uint32_t values; // 1 for a scalar, listSize for a list
        EType countType; // eNone for a scalar
    };
    struct SOutElement {
        std::string name;
        uint64_t count = 0;
        std::vector<SProperty> properties;
        std::vector<SColumn> columns; // parallel to properties
    };

private:
    std::string header(EFormat format) const;
    void writeAsciiElement(CbStreamWrite& out, const SOutElement& element) const;
    void writeBinaryElement(CbStreamWrite& out, const SOutElement& element, bool bigEndian) const;

    std::vector<SOutElement> m_elements;
    std::vector<std::string> m_comments, m_objInfo;
};

} // namespace VnPlyCodec
