#include "vnio/vnstreamwritecompressedtriangulation.h"

#include <algorithm>

#include "detail/vncompressedshared.h"
#include "detail/vnconnectivity.h"
#include "detail/vnpositioncoders.h"
#include "vn3dbase/ctriangulationserializer.h"
#include "vn3dbase/vnfttriangulationinconsistencydetect.h"
#include "vnbase/vnlzma.h"
#include "vnbase/vnrangecoder.h"
#include "vnbase/vnstreamfile.h"

using namespace VnCompressedDetail;

namespace {
constexpr const char* kFnOperator = "VnStreamWriteCompressedTriangulation::operator <<";
constexpr const char* kFnCompressGeometry = "VnStreamWriteCompressedTriangulation::compressGeometry";
constexpr const char* kFnWriteComponent = "VnStreamWriteCompressedTriangulation::writeComponent";

[[noreturn]] void fail(uint32_t line, const char* function) { throw CbExceptionStream(kSourceWriter, line, function); }

// Every connected attribute must hold one element per slot of its array.
bool attributesSettled(const Geometry::CTriangulation& mesh) {
    const uint64_t slots[2] = {mesh.GetVertexSlotCount(), mesh.GetTriangleSlotCount()};
    for (int container = 0; container < 2; ++container)
        for (const Geometry::SAttributeEntry* e : mesh.GetAttributes(container))
            if (!e->connected || e->data.size() != uint64_t(e->elementSize) * slots[container]) return false;
    return true;
}

} // namespace

// A topology-only copy of `mesh` (same slots, no positions or attributes) with adjacency,
// for predictions when the caller's const mesh carries none.
std::unique_ptr<Geometry::CTriangulation> VnCompressedDetail::TopologyWithAdjacency(const Geometry::CTriangulation& mesh) {
    const uint32_t vSlots = mesh.GetVertexSlotCount(), tSlots = mesh.GetTriangleSlotCount();
    Geometry::SMemoryBlock<Geometry::STriangleCorners> corners(
        std::vector<Geometry::STriangleCorners>(mesh.GetCornerArray(), mesh.GetCornerArray() + tSlots));
    auto copy = std::make_unique<Geometry::CTriangulation>(vSlots, tSlots, Geometry::SMemoryBlock<CbVector3f>(size_t(vSlots)),
                                                           std::move(corners));
    if (!mesh.IsIndicesAccurate()) {
        for (uint32_t t = 0; t < tSlots; ++t)
            if (!mesh.IsTriangleLive(t)) copy->RemoveTriangle(Geometry::CTriangleRef(t));
        for (uint32_t v = 0; v < vSlots; ++v)
            if (!mesh.IsVertexLive(v)) copy->RemoveVertex(Geometry::CVertexRef(v));
    }
    copy->ComputeAdjacency();
    return copy;
}

VnStreamWriteCompressedTriangulation::VnStreamWriteCompressedTriangulation(CbStreamWriteBinary& stream, ECompressionMethod method,
                                                                           float precision)
    : VnStreamWriteCompressedTriangulation(stream, method, precision, kVersionWriter) {}

VnStreamWriteCompressedTriangulation::VnStreamWriteCompressedTriangulation(const CStringW& fileName, ECompressionMethod method,
                                                                           float precision)
    : VnStreamWriteCompressedTriangulation(fileName, method, precision, kVersionWriter) {}

VnStreamWriteCompressedTriangulation::VnStreamWriteCompressedTriangulation(CbStreamWriteBinary& stream, ECompressionMethod method,
                                                                           float precision, uint32_t version)
    : m_target(&stream), m_version(version), m_method(method), m_precision(precision) {}

VnStreamWriteCompressedTriangulation::VnStreamWriteCompressedTriangulation(const CStringW& fileName, ECompressionMethod method,
                                                                           float precision, uint32_t version)
    : m_target(nullptr), m_version(version),
      m_file(std::make_unique<VnStreamWriteBinaryFile>(fileName.c_str(), eAccessModeDefault, eCompressionModeCompressed,
                                                       eCompressionLevelDefault)),
      m_method(method), m_precision(precision) {
    m_target = m_file.get();
}

VnStreamWriteCompressedTriangulation::~VnStreamWriteCompressedTriangulation() = default;

void VnStreamWriteCompressedTriangulation::writeSlow(const void* buffer, size_t count) { m_target->WriteBuffer(buffer, count); }

// ---- records ----

VnStreamWriteCompressedTriangulation& VnStreamWriteCompressedTriangulation::operator<<(const Geometry::CTriangulation& mesh) {
    dropState();
    if (!attributesSettled(mesh)) fail(__LINE__, kFnOperator);
    m_consistent = true;
    try {
        writeMeshRecord(mesh);
    } catch (const CbException&) {
        dropState();
        fail(__LINE__, kFnOperator);
    } catch (const std::exception&) {
        dropState();
        fail(__LINE__, kFnOperator);
    }
    return *this;
}

void VnStreamWriteCompressedTriangulation::writeMeshRecord(const Geometry::CTriangulation& mesh) {
    m_mesh = &mesh;
    target().WriteVersion(m_version);
    bool coded = !VnFtTriangulationInconsistencyDetect::Compute(mesh);
    if (coded && mesh.GetVertexCount() > 0) {
        // The connectivity is coded before anything is written: a mesh the coder cannot
        // reproduce exactly is stored uncompressed rather than as a stream that reads back wrong.
        m_connectivity = std::make_unique<VnConnectivity::SEncodedMesh>();
        coded = VnConnectivity::EncodeMesh(mesh, *m_connectivity);
    }
    if (!coded) {
        m_consistent = false;
        m_connectivity.reset();
        target() << uint8_t{0};
        Geometry::CTriangulation_Serializer::Serialize(target(), mesh);
        setIdentityMaps(mesh);
    } else {
        target() << uint8_t{1};
        compressGeometry(mesh);
        cleanup();
        if (m_version > 0 && mesh.GetVertexCount() > 0) compressAttributes();
    }
    // Surface buffered write errors of an owned file here, not in its destructor.
    if (m_file) m_file->Flush();
}

void VnStreamWriteCompressedTriangulation::dropState() {
    m_consistent = false;
    cleanup();
    m_positionCoders.reset();
    for (auto& q : m_quantizers) q.reset();
    m_reconstructed.clear();
    m_vertexCoded.clear();
    m_vertexOrder.RemoveAll();
    m_vertexReferenceTriangles.RemoveAll();
    m_triangleOrder.RemoveAll();
    m_tipOrder.RemoveAll();
    m_triangleForward.RemoveAll();
    m_cornerRotation.RemoveAll();
    m_positionBytes = 0;
    m_topology.reset();
    m_mesh = nullptr;
}

void VnStreamWriteCompressedTriangulation::cleanup() {
    m_positionCoders.reset();
    m_connectivity.reset();
    clearComponentState();
}

// ---- geometry section ----

void VnStreamWriteCompressedTriangulation::compressGeometry(const Geometry::CTriangulation& mesh) {
    if (mesh.GetVertexCount() == 0) {
        target() << uint8_t{0} << uint32_t{0};
        m_vertexOrder.RemoveAll();
        m_vertexReferenceTriangles.RemoveAll();
        m_triangleOrder.RemoveAll();
        m_tipOrder.RemoveAll();
        m_cornerRotation.RemoveAll();
        return;
    }
    if (!m_connectivity) fail(__LINE__, kFnCompressGeometry);
    const VnConnectivity::SEncodedMesh& coded = *m_connectivity;
    initializeFPQuantization(mesh);
    m_topology.reset();
    if (!mesh.HasAdjacency()) m_topology = TopologyWithAdjacency(mesh);

    const uint32_t vertices = mesh.GetVertexCount(), triangles = mesh.GetTriangleCount();
    target() << static_cast<uint32_t>(coded.components.size()) << vertices << triangles;
    m_triangleOrder.RemoveAll();
    m_tipOrder.RemoveAll();
    m_triangleForward.RemoveAll();
    m_cornerRotation.RemoveAll();
    m_triangleOrder.Reserve(static_cast<int>(triangles));
    m_tipOrder.Reserve(static_cast<int>(triangles));
    for (size_t k = 0; k < coded.triangleOrder.size(); ++k) {
        m_triangleOrder.Add(Geometry::CTriangleRef(coded.triangleOrder[k]));
        m_tipOrder.Add(Geometry::CVertexRef(coded.tipOrder[k]));
    }

    uint64_t total = 0;
    for (const VnConnectivity::SComponent& component : coded.components) {
        clearComponentState();
        m_symbols = component.symbols;
        m_holeSizes = component.holeSizes;
        m_handleOffsets = component.handleOffsets;
        m_handleCount = component.handleCount;
        beginComponentPositions();
        const uint32_t end = component.firstVertex + component.vertexCount;
        for (uint32_t k = component.firstVertex; k < end; ++k)
            encodePosition(Geometry::CVertexRef(coded.vertexOrder[k]), Geometry::CTriangleRef(coded.vertexTriangle[k]));
        writeComponent();
        total += component.symbols.size();
    }
    if (total != triangles) fail(__LINE__, kFnCompressGeometry);
}

void VnStreamWriteCompressedTriangulation::encodeSStarSPrime() {
    const size_t holes = m_holeSizes.size();
    m_holeRuns.clear();
    m_holeRuns.reserve(holes ? holes - 1 : 0);
    m_handleRuns.clear();
    m_handleRuns.reserve(m_handleCount);
    uint32_t sinceHandle = 0, sinceHole = 0;
    for (uint8_t& s : m_symbols) {
        switch (s) {
        case eS:
            ++sinceHandle;
            ++sinceHole;
            break;
        case eSHole:
            s = eS;
            m_holeRuns.push_back(sinceHole);
            sinceHole = 0;
            ++sinceHandle;
            break;
        case eSHandle:
            s = eS;
            m_handleRuns.push_back(sinceHandle);
            sinceHandle = 0;
            ++sinceHole;
            break;
        default:
            break;
        }
    }
}

void VnStreamWriteCompressedTriangulation::writeComponent() {
    encodeSStarSPrime();
    if (m_holeSizes.empty() || m_holeRuns.size() + 1 != m_holeSizes.size() || m_handleRuns.size() != m_handleCount ||
        m_handleOffsets.size() != m_handleCount)
        fail(__LINE__, kFnWriteComponent);
    if (!m_lzma) m_lzma = std::make_unique<VnCompressLZMA>();

    // One working buffer serves both word blocks.
    std::vector<uint32_t> words;
    words.reserve(std::max<size_t>(2 * m_handleCount, 2 * m_holeSizes.size() - 1));
    words.insert(words.end(), m_holeRuns.begin(), m_holeRuns.end());
    words.insert(words.end(), m_holeSizes.begin(), m_holeSizes.end());
    if (!m_lzma->Compress(reinterpret_cast<const unsigned char*>(words.data()), static_cast<unsigned long>(words.size() * 4), kLZMASetting))
        fail(__LINE__, kFnWriteComponent);
    VnWriteBlock(target(), m_lzma->GetData(), m_lzma->GetSize());

    if (m_handleCount != 0) {
        words.clear();
        words.insert(words.end(), m_handleRuns.begin(), m_handleRuns.end());
        words.insert(words.end(), m_handleOffsets.begin(), m_handleOffsets.end());
        if (!m_lzma->Compress(reinterpret_cast<const unsigned char*>(words.data()), static_cast<unsigned long>(words.size() * 4), kLZMASetting))
            fail(__LINE__, kFnWriteComponent);
        VnWriteBlock(target(), m_lzma->GetData(), m_lzma->GetSize());
    } else {
        target() << uint32_t{0};
    }

    const uint32_t count = static_cast<uint32_t>(m_symbols.size());
    target() << count;
    {
        VnCompressRangeCoder coder(target(), kWrittenAlphabet, count / 4);
        for (uint8_t s : m_symbols) coder.WriteSymbol(s);
        coder.Finish();
    }
    flushComponentPositions();
}

// ---- maps ----

void VnStreamWriteCompressedTriangulation::setIdentityMaps(const Geometry::CTriangulation& mesh) {
    m_vertexOrder.RemoveAll();
    m_vertexReferenceTriangles.RemoveAll();
    m_triangleOrder.RemoveAll();
    m_tipOrder.RemoveAll();
    m_triangleForward.RemoveAll();
    m_cornerRotation.RemoveAll();
    m_vertexOrder.Reserve(static_cast<int>(mesh.GetVertexCount()));
    for (Geometry::CVertexRef v : mesh.Vertices()) m_vertexOrder.Add(v);
    m_triangleOrder.Reserve(static_cast<int>(mesh.GetTriangleCount()));
    m_tipOrder.Reserve(static_cast<int>(mesh.GetTriangleCount()));
    // With the tip at corner 2 every triangle keeps its corner order.
    for (Geometry::CTriangleRef t : mesh.Triangles()) {
        m_triangleOrder.Add(t);
        m_tipOrder.Add(Geometry::CVertexRef(mesh.GetCorner(t, 2)));
    }
}

void VnStreamWriteCompressedTriangulation::generateTriangleForwardMap() {
    m_triangleForward.RemoveAll();
    if (!m_mesh) return;
    m_triangleForward.SetSize(static_cast<int>(m_mesh->GetTriangleSlotCount()));
    for (uint32_t& f : m_triangleForward) f = Geometry::c_IndexInvalid;
    for (int k = 0; k < m_triangleOrder.GetSize(); ++k) m_triangleForward[static_cast<int>(m_triangleOrder[k].Index())] = static_cast<uint32_t>(k);
}

const CbArray<unsigned char>& VnStreamWriteCompressedTriangulation::GetCornerRotationMap() {
    if (!m_cornerRotation.IsEmpty() || m_tipOrder.IsEmpty() || !m_mesh) return m_cornerRotation;
    if (m_triangleForward.IsEmpty()) generateTriangleForwardMap();
    m_cornerRotation.SetSize(static_cast<int>(m_mesh->GetTriangleSlotCount()));
    for (Geometry::CTriangleRef t : m_mesh->Triangles()) {
        const uint32_t k = m_triangleForward[static_cast<int>(t.Index())];
        if (k == Geometry::c_IndexInvalid) continue;
        const uint32_t tip = m_tipOrder[static_cast<int>(k)];
        const Geometry::STriangleCorners& c = m_mesh->GetCorners(t);
        m_cornerRotation[static_cast<int>(t.Index())] = c[0] == tip ? 1 : (c[1] == tip ? 2 : 0);
    }
    return m_cornerRotation;
}

// ---- polylines ----

void VnStreamWriteCompressedTriangulation::checkPolylineMesh(const Geometry::CTriangulation* mesh) {
    if (!m_mesh || mesh != m_mesh) fail(__LINE__, kFnOperator);
}

void VnStreamWriteCompressedTriangulation::writePolyline(const VnPolylineTriangulation& polyline) {
    if (m_triangleForward.IsEmpty()) generateTriangleForwardMap();
    // Vertices of points on mesh vertices are renumbered like the mesh.
    std::vector<uint32_t> vertexForward(m_mesh->GetVertexSlotCount(), Geometry::c_IndexInvalid);
    for (int k = 0; k < m_vertexOrder.GetSize(); ++k) vertexForward[m_vertexOrder[k].Index()] = static_cast<uint32_t>(k);

    VnPolylineTriangulation copy(polyline);
    for (uint32_t i = 0; i < copy.GetVertexCount(); ++i) {
        const uint32_t t = copy.GetTriangle(i);
        if (t >= static_cast<uint32_t>(m_triangleForward.GetSize()) || m_triangleForward[static_cast<int>(t)] == Geometry::c_IndexInvalid)
            fail(__LINE__, kFnOperator);
        const uint32_t k = m_triangleForward[static_cast<int>(t)];
        const uint32_t tip = m_tipOrder[static_cast<int>(k)];
        const Geometry::STriangleCorners& c = m_mesh->GetCorners(Geometry::CTriangleRef(t));
        const int corner = c[0] == tip ? 0 : (c[1] == tip ? 1 : 2);
        VnBarycentricCoordinates b = copy.GetBarycentricCoordinates(i);
        b.Rotate((corner + 1) % 3);
        copy.SetBarycentricCoordinates(i, b);
        copy.SetTriangle(i, Geometry::CTriangleRef(k));
        const uint32_t v = copy.GetTriangulationVertex(i);
        if (v != Geometry::c_IndexInvalid) {
            if (v >= vertexForward.size() || vertexForward[v] == Geometry::c_IndexInvalid) fail(__LINE__, kFnOperator);
            copy.SetTriangulationVertex(i, vertexForward[v]);
        }
    }
    target() << m_version;
    copy.Serialize(target());
}

VnStreamWriteCompressedTriangulation& VnStreamWriteCompressedTriangulation::operator<<(const VnPolylineTriangulation& polyline) {
    checkPolylineMesh(polyline.getCTriangulation());
    try {
        writePolyline(polyline);
        if (m_file) m_file->Flush();
    } catch (const CbException&) {
        fail(__LINE__, kFnOperator);
    }
    return *this;
}

VnStreamWriteCompressedTriangulation& VnStreamWriteCompressedTriangulation::operator<<(const VnPolylineTriangulationList& list) {
    checkPolylineMesh(list.GetTriangulation());
    try {
        target() << m_version << list.GetCount();
        for (const VnPolylineTriangulation& p : list) {
            checkPolylineMesh(p.getCTriangulation());
            writePolyline(p);
        }
        if (m_file) m_file->Flush();
    } catch (const CbException&) {
        fail(__LINE__, kFnOperator);
    }
    return *this;
}
