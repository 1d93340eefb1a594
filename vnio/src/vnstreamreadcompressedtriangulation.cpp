#include "vnio/vnstreamreadcompressedtriangulation.h"

#include <algorithm>
#include <numeric>

#include "detail/vncompressedshared.h"
#include "detail/vnconnectivity.h"
#include "detail/vnpositioncoders.h"
#include "vn3dbase/ctriangulationserializer.h"
#include "vn3dbase/vnmptriangulationnormals.h"
#include "vnbase/vnlzma.h"
#include "vnbase/vnrangecoder.h"
#include "vnbase/vnstreamfile.h"

using namespace VnCompressedDetail;

namespace {
constexpr const char* kFnOperator = "VnStreamReadCompressedTriangulation::operator >>";
constexpr const char* kFnDecompressGeometry = "VnStreamReadCompressedTriangulation::decompressGeometry";
constexpr const char* kFnReadComponent = "VnStreamReadCompressedTriangulation::readComponent";

[[noreturn]] void fail(uint32_t line, const char* function) { throw CbExceptionStream(kSourceReader, line, function); }

// Reservations made from header counts never exceed this; the arrays grow as components
// are really decoded.
constexpr uint32_t kReserveCap = 1u << 20;
// Well-compressed meshes take about 2 bits a triangle for connectivity and a byte or more
// a vertex for positions; reservations assume no better than these ratios.
constexpr uint64_t kVerticesPerByte = 2, kTrianglesPerByte = 4;
constexpr uint64_t kBlindReserve = 4096;
// Smallest polyline record: its version word and its point count.
constexpr uint64_t kPolylineMinBytes = 8;

std::vector<uint32_t> toWords(const unsigned char* data, size_t bytes) {
    std::vector<uint32_t> words(bytes / 4);
    for (size_t i = 0; i < words.size(); ++i)
        words[i] = static_cast<uint32_t>(data[4 * i]) | static_cast<uint32_t>(data[4 * i + 1]) << 8 |
                   static_cast<uint32_t>(data[4 * i + 2]) << 16 | static_cast<uint32_t>(data[4 * i + 3]) << 24;
    return words;
}
} // namespace

VnStreamReadCompressedTriangulation::VnStreamReadCompressedTriangulation(CbStreamReadBinary& stream) : m_source(&stream) {}

VnStreamReadCompressedTriangulation::VnStreamReadCompressedTriangulation(const CStringW& fileName)
    : m_source(nullptr), m_file(std::make_unique<VnStreamReadBinaryFile>(fileName.c_str())) {
    m_source = m_file.get();
}

VnStreamReadCompressedTriangulation::~VnStreamReadCompressedTriangulation() = default;

size_t VnStreamReadCompressedTriangulation::readSlow(void* buffer, size_t count) { return m_source->ReadBuffer(buffer, count); }

uint64_t VnStreamReadCompressedTriangulation::GetBytesLeft() const { return m_source->GetBytesLeft(); }

// ---- records ----

VnStreamReadCompressedTriangulation& VnStreamReadCompressedTriangulation::operator>>(Geometry::CTriangulation& mesh) {
    m_mesh = nullptr;
    m_info = SRecordInfo();
    try {
        readMeshRecord(mesh);
    } catch (const CbException&) {
        mesh.Reset();
        dropState();
        fail(__LINE__, kFnOperator);
    } catch (const std::exception&) {
        mesh.Reset();
        dropState();
        fail(__LINE__, kFnOperator);
    }
    m_mesh = &mesh;
    return *this;
}

void VnStreamReadCompressedTriangulation::readMeshRecord(Geometry::CTriangulation& mesh) {
    const uint32_t version = source().ReadAndCompareVersion(kVersionNewest);
    m_info.version = version;
    uint8_t flag = 0;
    source() >> flag;
    if (flag == 0) {
        std::unique_ptr<Geometry::CTriangulation> stored = Geometry::CTriangulation_Serializer::Serialize(source());
        if (!stored) fail(__LINE__, kFnOperator);
        mesh = std::move(*stored);
    } else if (flag == 1) {
        m_info.compressed = true;
        decompressGeometry(mesh);
        cleanup(mesh);
        mesh.ComputeAdjacency();
        if (mesh.GetVertexCount() > 0) {
            if (version == 1)
                decompressAttributesLegacy(mesh);
            else if (version == 2)
                decompressAttributesVersion2(mesh);
            else if (version >= 3)
                decompressAttributesVersion3(mesh);
        }
    } else {
        fail(__LINE__, kFnOperator);
    }
    if (!mesh.FindAttribute(Geometry::eContainerVertex, "normal") || !mesh.FindAttribute(Geometry::eContainerTriangle, "normal"))
        VnMpTriangulationNormals::Compute(mesh);
}

void VnStreamReadCompressedTriangulation::cleanup(Geometry::CTriangulation&) { dropState(); }

void VnStreamReadCompressedTriangulation::dropState() {
    m_positionCoders.reset();
    clearComponentState();
    m_positions.clear();
    m_decoded.clear();
    m_component = nullptr;
    m_knownVertices = 0;
}

// ---- geometry section ----

void VnStreamReadCompressedTriangulation::decompressGeometry(Geometry::CTriangulation& mesh) {
    initializeFPQuantization();
    mesh.Reset();
    m_vertexReferenceTriangles.clear();
    uint32_t components = 0;
    source() >> components;
    m_info.components = components;
    m_headerVertices = m_headerTriangles = 0;
    if (components == 0) return;
    source() >> m_headerVertices >> m_headerTriangles;
    // Every component has a triangle, and a mesh the writer codes has no vertex without one.
    if (m_headerTriangles == 0 || components > m_headerTriangles || m_headerVertices == 0 ||
        uint64_t(m_headerVertices) > 3 * uint64_t(m_headerTriangles))
        fail(__LINE__, kFnDecompressGeometry);
    // The header only hints at the sizes: a reservation never runs ahead of what the bytes
    // left could plausibly hold, and the mesh grows with what is decoded.
    const uint64_t left = source().GetBytesLeft();
    const uint64_t room = left == CbStreamRead::kUnknownSize ? kBlindReserve : left;
    mesh.ReserveVertices(static_cast<uint32_t>(std::min<uint64_t>({m_headerVertices, kReserveCap, kVerticesPerByte * room})));
    mesh.ReserveTriangles(static_cast<uint32_t>(std::min<uint64_t>({m_headerTriangles, kReserveCap, kTrianglesPerByte * room})));
    m_verticesLeft = m_headerVertices;
    m_trianglesLeft = m_headerTriangles;
    std::vector<Geometry::STriangleCorners> shifted;
    for (uint32_t c = 0; c < components; ++c) {
        if (m_trianglesLeft == 0) fail(__LINE__, kFnDecompressGeometry);
        readComponent();
        // Triangles over the component's vertices in coding order; every count and index of
        // the frame is checked there.
        VnConnectivity::SDecodedComponent decoded;
        VnConnectivity::DecodeComponent(m_symbols, m_holeSizes, m_handleOffsets, m_verticesLeft, decoded, kSourceReader,
                                        kFnDecompressGeometry);
        const uint32_t known = decoded.vertexCount;
        const uint32_t triangles = static_cast<uint32_t>(decoded.triangles.size());
        if (known != m_knownVertices || triangles > m_trianglesLeft) fail(__LINE__, kFnDecompressGeometry);
        shifted = decoded.triangles;
        Geometry::CTriangulation component(known, triangles, Geometry::SMemoryBlock<CbVector3f>(size_t(known)),
                                           Geometry::SMemoryBlock<Geometry::STriangleCorners>(std::move(decoded.triangles)));
        // The prediction looks across edges.
        component.ComputeAdjacency();
        const size_t firstReference = m_vertexReferenceTriangles.size();
        setVertexCoordinates(component, decoded.vertexTriangle);
        m_positionCoders.reset();

        const uint32_t vertexBase = mesh.GetVertexCount(), triangleBase = mesh.GetTriangleCount();
        for (size_t k = firstReference; k < m_vertexReferenceTriangles.size(); ++k) m_vertexReferenceTriangles[k] += triangleBase;
        for (auto& t : shifted)
            for (uint32_t& v : t) v += vertexBase;
        mesh.AppendVertices(component.GetPositions(), known);
        mesh.AppendTriangles(shifted.data(), triangles);
        m_verticesLeft -= known;
        m_trianglesLeft -= triangles;
    }
    if (m_verticesLeft != 0 || m_trianglesLeft != 0) fail(__LINE__, kFnDecompressGeometry);
}

void VnStreamReadCompressedTriangulation::readComponent() {
    clearComponentState();
    m_knownVertices = 0;
    if (!m_lzma) m_lzma = std::make_unique<VnDecompressLZMA>();

    // Boundary block: 2H - 1 words, with H - 1 <= symbols <= triangles left.
    const uint64_t holeBytesMax = (2 * (uint64_t(m_trianglesLeft) + 1) - 1) * 4;
    std::vector<uint8_t> packed = VnReadBlock(source(), VnDecompressLZMA::MaxBlockSize(holeBytesMax));
    m_lzma->SetOutputLimit(holeBytesMax);
    if (packed.empty() || !m_lzma->Decompress(packed.data(), static_cast<unsigned long>(packed.size())))
        fail(__LINE__, kFnReadComponent);
    m_info.connectivityBytes += 4 + packed.size();
    const size_t holeBytes = m_lzma->GetSize();
    if (holeBytes % 4 != 0 || (holeBytes / 4) % 2 == 0) fail(__LINE__, kFnReadComponent);
    std::vector<uint32_t> words = toWords(m_lzma->GetData(), holeBytes);
    const size_t holes = (words.size() + 1) / 2;
    m_holeRuns.assign(words.begin(), words.begin() + static_cast<ptrdiff_t>(holes - 1));
    m_holeSizes.assign(words.begin() + static_cast<ptrdiff_t>(holes - 1), words.end());

    // Handle block: runs and offsets, one word each per handle, handles <= triangles left.
    const uint64_t handleBytesMax = 8 * uint64_t(m_trianglesLeft);
    packed = VnReadBlock(source(), VnDecompressLZMA::MaxBlockSize(handleBytesMax));
    m_info.connectivityBytes += 4 + packed.size();
    if (!packed.empty()) {
        m_lzma->SetOutputLimit(handleBytesMax);
        if (!m_lzma->Decompress(packed.data(), static_cast<unsigned long>(packed.size())) || m_lzma->GetSize() == 0 ||
            m_lzma->GetSize() % 8 != 0)
            fail(__LINE__, kFnReadComponent);
        words = toWords(m_lzma->GetData(), m_lzma->GetSize());
        m_handleCount = static_cast<uint32_t>(words.size() / 2);
        m_handleRuns.assign(words.begin(), words.begin() + m_handleCount);
        m_handleOffsets.assign(words.begin() + m_handleCount, words.end());
    }

    uint32_t count = 0;
    source() >> count;
    if (count == 0 || count > m_trianglesLeft || holes - 1 > count || m_handleCount > count) fail(__LINE__, kFnReadComponent);
    {
        VnDecompressRangeCoder coder(source(), kWrittenAlphabet);
        if (count > coder.GetMaxSymbols()) fail(__LINE__, kFnReadComponent);
        m_info.connectivityBytes += 4 + coder.GetBlockSize();
        m_symbols.resize(count);
        for (uint8_t& s : m_symbols) s = static_cast<uint8_t>(coder.ReadSymbol());
    }
    decodeSStarSPrime();

    m_positionCoders = std::make_unique<SPositionReaders>(source(), m_quantizers);
    m_info.positionBytes += m_positionCoders->x.GetBlockSize() + m_positionCoders->y.GetBlockSize() + m_positionCoders->z.GetBlockSize();
    for (const VnStreamReadCompressedFloatingPoint* r : {&m_positionCoders->x, &m_positionCoders->y, &m_positionCoders->z})
        if (m_knownVertices > r->GetMaxValues()) fail(__LINE__, kFnReadComponent);
}

void VnStreamReadCompressedTriangulation::decodeSStarSPrime() {
    // The start boundary has at least two vertices (an edge), every hole at least three.
    uint64_t known = 0;
    for (size_t i = 0; i < m_holeSizes.size(); ++i) {
        if (m_holeSizes[i] < (i == 0 ? 2u : 3u)) fail(__LINE__, kFnReadComponent);
        known += m_holeSizes[i];
    }
    size_t nextHole = 0, nextHandle = 0;
    auto take = [](const std::vector<uint32_t>& runs, size_t& next) { return next < runs.size() ? runs[next++] : 0xFFFFFFFFu; };
    uint32_t a = take(m_holeRuns, nextHole);
    uint32_t b = take(m_handleRuns, nextHandle);
    size_t holesMade = 0, handlesMade = 0;
    for (uint8_t& s : m_symbols) {
        if (s == eC) {
            ++known;
        } else if (s == eS) {
            if (a == 0) {
                s = eSHole;
                ++holesMade;
                a = take(m_holeRuns, nextHole);
                --b;
            } else if (b == 0) {
                s = eSHandle;
                ++handlesMade;
                b = take(m_handleRuns, nextHandle);
                --a;
            } else {
                --a;
                --b;
            }
        }
    }
    // Every run must have been used, and the known vertices must fit what is left.
    if (holesMade != m_holeRuns.size() || handlesMade != m_handleRuns.size() || known > m_verticesLeft)
        fail(__LINE__, kFnReadComponent);
    m_knownVertices = static_cast<uint32_t>(known);
}

// ---- polylines ----

void VnStreamReadCompressedTriangulation::readPolylineBody(VnPolylineTriangulation& polyline) {
    source().ReadAndCompareVersion(kVersionNewest);
    polyline.Reset();
    polyline.SetTriangulation(m_mesh, false);
    polyline.Serialize(source());
}

VnStreamReadCompressedTriangulation& VnStreamReadCompressedTriangulation::operator>>(VnPolylineTriangulation& polyline) {
    if (!m_mesh) fail(__LINE__, kFnOperator);
    try {
        readPolylineBody(polyline);
    } catch (const CbException&) {
        polyline.Reset();
        fail(__LINE__, kFnOperator);
    }
    return *this;
}

VnStreamReadCompressedTriangulation& VnStreamReadCompressedTriangulation::operator>>(VnPolylineTriangulationList& list) {
    if (!m_mesh) fail(__LINE__, kFnOperator);
    try {
        source().ReadAndCompareVersion(kVersionNewest);
        list.RemoveAll();
        list.SetTriangulation(m_mesh, true);
        uint32_t count = 0;
        source() >> count;
        const uint64_t left = source().GetBytesLeft();
        if (left != CbStreamRead::kUnknownSize && uint64_t(count) * kPolylineMinBytes > left) fail(__LINE__, kFnOperator);
        for (uint32_t i = 0; i < count; ++i) readPolylineBody(list.AddTail());
    } catch (const CbException&) {
        list.RemoveAll();
        fail(__LINE__, kFnOperator);
    }
    return *this;
}
