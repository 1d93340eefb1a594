// PLY header parsing, the type table and property requests.
#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <stdexcept>

#include "detail/plycodec.h"
#include "detail/plyinput.h"
#include "detail/plyrequest.h"

namespace VnPlyCodec {

namespace {

struct STypeName {
    const char* name;
    EType type;
};
// The first spelling of each type is the one written.
constexpr std::array<STypeName, 16> kTypeNames{{
    {"char", EType::eInt8},
    {"uchar", EType::eUInt8},
    {"short", EType::eInt16},
    {"ushort", EType::eUInt16},
    {"int", EType::eInt32},
    {"uint", EType::eUInt32},
    {"float", EType::eFloat32},
    {"double", EType::eFloat64},
    {"int8", EType::eInt8},
    {"uint8", EType::eUInt8},
    {"int16", EType::eInt16},
    {"uint16", EType::eUInt16},
    {"int32", EType::eInt32},
    {"uint32", EType::eUInt32},
    {"float32", EType::eFloat32},
    {"float64", EType::eFloat64},
}};

// A header line is short; anything longer is not a PLY header.
constexpr size_t kMaxHeaderLine = 1 << 16;

[[noreturn]] void fail(uint64_t line, const std::string& what) {
    throw std::runtime_error("PLY header line " + std::to_string(line) + ": " + what);
}

std::vector<std::string_view> splitWords(std::string_view line) {
    std::vector<std::string_view> words;
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) ++i;
        size_t start = i;
        while (i < line.size() && line[i] != ' ' && line[i] != '\t') ++i;
        if (i > start) words.push_back(line.substr(start, i - start));
    }
    return words;
}

// The text after the keyword, as written (comments keep their inner spacing).
std::string restOf(std::string_view line, std::string_view keyword) {
    std::string_view rest = line.substr(std::min(line.size(), line.find(keyword) + keyword.size()));
    if (!rest.empty() && (rest.front() == ' ' || rest.front() == '\t')) rest.remove_prefix(1);
    return std::string(rest);
}

} // namespace

size_t SizeOf(EType type) {
    switch (type) {
    case EType::eInt8:
    case EType::eUInt8: return 1;
    case EType::eInt16:
    case EType::eUInt16: return 2;
    case EType::eInt32:
    case EType::eUInt32:
    case EType::eFloat32: return 4;
    case EType::eFloat64: return 8;
    case EType::eNone: break;
    }
    return 0;
}

const char* NameOf(EType type) {
    for (const STypeName& t : kTypeNames)
        if (t.type == type) return t.name;
    return "none";
}

EType ParseType(std::string_view name) {
    for (const STypeName& t : kTypeNames)
        if (name == t.name) return t.type;
    return EType::eNone;
}

bool IsInteger(EType type) { return type != EType::eNone && type != EType::eFloat32 && type != EType::eFloat64; }

const SProperty* SElement::FindProperty(std::string_view propertyName) const {
    for (const SProperty& p : properties)
        if (p.name == propertyName) return &p;
    return nullptr;
}

CReader::CReader(CbStreamRead& stream) : m_input(std::make_unique<CInput>(stream)) { parseHeader(); }

CReader::~CReader() = default;

const SElement* CReader::FindElement(std::string_view name) const {
    for (const SElement& e : m_elements)
        if (e.name == name) return &e;
    return nullptr;
}

bool CReader::HasProperty(std::string_view element, std::string_view property) const {
    const SElement* e = FindElement(element);
    return e && e->FindProperty(property);
}

void CReader::parseHeader() {
    CInput& in = *m_input;
    uint64_t lineNo = 0;
    bool haveFormat = false;
    for (;;) {
        // One line, without its '\n' and a trailing '\r'.
        const uint8_t* nl = nullptr;
        for (size_t scanned = 0;;) {
            nl = static_cast<const uint8_t*>(std::memchr(in.Pos() + scanned, '\n', in.Available() - scanned));
            if (nl) break;
            scanned = in.Available();
            if (scanned > kMaxHeaderLine) fail(lineNo + 1, "line too long");
            if (!in.More()) break;
        }
        ++lineNo;
        if (!nl && in.Available() == 0) {
            if (lineNo == 1) throw std::runtime_error("PLY header: empty input");
            fail(lineNo, "end of file before end_header");
        }
        const uint8_t* lineEnd = nl ? nl : in.End();
        if (static_cast<size_t>(lineEnd - in.Pos()) > kMaxHeaderLine) fail(lineNo, "line too long");
        std::string_view line(reinterpret_cast<const char*>(in.Pos()), static_cast<size_t>(lineEnd - in.Pos()));
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        in.SetPos(nl ? nl + 1 : lineEnd);

        if (lineNo == 1) {
            if (line != "ply") throw std::runtime_error("PLY header: the file does not start with \"ply\"");
            continue;
        }
        std::vector<std::string_view> w = splitWords(line);
        if (w.empty()) continue;
        const std::string_view key = w[0];
        if (key == "format") {
            if (haveFormat) fail(lineNo, "second format line");
            if (w.size() != 3) fail(lineNo, "format line needs a format and a version");
            if (w[1] == "ascii")
                m_format = EFormat::eAscii;
            else if (w[1] == "binary_little_endian")
                m_format = EFormat::eBinaryLittleEndian;
            else if (w[1] == "binary_big_endian")
                m_format = EFormat::eBinaryBigEndian;
            else
                fail(lineNo, "unknown format \"" + std::string(w[1]) + "\"");
            if (w[2] != "1.0" && w[2] != "1") fail(lineNo, "unsupported version \"" + std::string(w[2]) + "\"");
            haveFormat = true;
        } else if (key == "comment") {
            m_comments.push_back(restOf(line, "comment"));
        } else if (key == "obj_info") {
            m_objInfo.push_back(restOf(line, "obj_info"));
        } else if (key == "element") {
            if (w.size() != 3) fail(lineNo, "element line needs a name and a count");
            SElement e;
            e.name = std::string(w[1]);
            auto r = std::from_chars(w[2].data(), w[2].data() + w[2].size(), e.count);
            if (r.ec != std::errc() || r.ptr != w[2].data() + w[2].size())
                fail(lineNo, "bad count \"" + std::string(w[2]) + "\" of element " + e.name);
            m_elements.push_back(std::move(e));
        } else if (key == "property") {
            if (m_elements.empty()) fail(lineNo, "property before any element");
            SProperty p;
            if (w.size() >= 2 && w[1] == "list") {
                if (w.size() != 5) fail(lineNo, "list property needs a count type, a value type and a name");
                p.countType = ParseType(w[2]);
                p.type = ParseType(w[3]);
                p.name = std::string(w[4]);
                if (!IsInteger(p.countType))
                    fail(lineNo, "list count type \"" + std::string(w[2]) + "\" is not an integer type");
                if (p.type == EType::eNone) fail(lineNo, "unknown type \"" + std::string(w[3]) + "\"");
            } else {
                if (w.size() != 3) fail(lineNo, "property line needs a type and a name");
                p.type = ParseType(w[1]);
                p.name = std::string(w[2]);
                if (p.type == EType::eNone) fail(lineNo, "unknown type \"" + std::string(w[1]) + "\"");
            }
            SElement& e = m_elements.back();
            if (e.FindProperty(p.name)) fail(lineNo, "property " + p.name + " appears twice in element " + e.name);
            e.properties.push_back(std::move(p));
        } else if (key == "end_header") {
            if (!haveFormat) fail(lineNo, "no format line");
            m_headerLines = lineNo;
            return;
        } else {
            fail(lineNo, "unknown keyword \"" + std::string(key) + "\"");
        }
    }
}

std::shared_ptr<SBuffer> CReader::Request(std::string_view element, const std::vector<std::string>& properties,
                                          EType type, uint32_t listSize) {
    if (m_read) throw std::invalid_argument("PLY request after the body was read");
    if (type == EType::eNone) throw std::invalid_argument("PLY request without a type");
    if (properties.empty()) throw std::invalid_argument("PLY request without properties");
    const SElement* e = FindElement(element);
    if (!e) throw std::invalid_argument("PLY file has no element " + std::string(element));
    auto req = std::make_unique<SRequest>();
    req->element = static_cast<size_t>(e - m_elements.data());
    req->type = type;
    req->buffer = std::make_shared<SBuffer>();
    req->buffer->type = type;
    for (const std::string& name : properties) {
        const SProperty* p = e->FindProperty(name);
        if (!p) throw std::invalid_argument("PLY element " + e->name + " has no property " + name);
        size_t index = static_cast<size_t>(p - e->properties.data());
        for (const auto& other : m_requests)
            if (other->element == req->element &&
                std::find(other->properties.begin(), other->properties.end(), index) != other->properties.end())
                throw std::invalid_argument("PLY property " + e->name + "." + name + " requested twice");
        if (std::find(req->properties.begin(), req->properties.end(), index) != req->properties.end())
            throw std::invalid_argument("PLY property " + e->name + "." + name + " requested twice");
        if (p->IsList() && properties.size() != 1)
            throw std::invalid_argument("PLY list property " + e->name + "." + name + " must be requested alone");
        req->properties.push_back(index);
        req->list = p->IsList();
    }
    // The declared type tells the caller what the file meant (e.g. colours as bytes).
    const SProperty& first = e->properties[req->properties.front()];
    req->buffer->fileType = first.type;
    for (size_t index : req->properties)
        if (e->properties[index].type != first.type) req->buffer->fileType = EType::eNone;
    req->listSize = req->list ? listSize : 0;
    req->buffer->valuesPerRow = req->list ? listSize : static_cast<uint32_t>(properties.size());
    m_requests.push_back(std::move(req));
    return m_requests.back()->buffer;
}

} // namespace VnPlyCodec
