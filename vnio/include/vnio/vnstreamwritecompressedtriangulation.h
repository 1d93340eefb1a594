#pragma once
// Writer of the compressed triangulation stream (.vnm).
//
// A record is: u32 version (3, or 2 for the Version2 writer), u8 compressed flag, then
// either the mesh library's native serialisation (flag 0) or the geometry section and the
// attribute section (flag 1). Polylines of the mesh just written may follow, each as u32
// version and the polyline's own serialisation with its triangles renumbered into the
// coding order. The byte layout is documented in docs/vnm_format.md.
//
// Failures: every error while a mesh is written ends as CbExceptionStream from
// "VnStreamWriteCompressedTriangulation::operator <<"; the maps are then empty and
// IsConsistent() is false. Bytes already written stay written.
#include <array>
#include <memory>
#include <string>

#include "basepool/cbarray.h"
#include "basepool/cbmap.h"
#include "basepool/cbstreambinary.h"
#include "basepool/cbstring.h"
#include "vn3dbase/ctriangulation.h"
#include "vn3dbase/vnpolylinetriangulation.h"
#include "vn3dbase/vnpolylinetriangulationlist.h"
#include "vnio/vnstreamcompressedtriangulationbase.h"

class VnStreamWriteBinaryFile;
class VnCompressLZMA;
class VnFloatingPointQuantization;
namespace VnConnectivity {
struct SEncodedMesh;
}

class VnStreamWriteCompressedTriangulation : private CbStreamWriteBinary, public VnStreamCompressedTriangulationBase {
public:
    // Writes to a caller's stream, which must outlive the writer. `precision` is a length in
    // the mesh's units and matters only for eQuantized. Nothing is written yet.
    VnStreamWriteCompressedTriangulation(CbStreamWriteBinary& stream, ECompressionMethod method, float precision);
    // Creates the file (CbExceptionStream when it cannot) and owns it.
    VnStreamWriteCompressedTriangulation(const CStringW& fileName, ECompressionMethod method, float precision);
    // Releases everything; writes nothing (there is no trailer).
    ~VnStreamWriteCompressedTriangulation() override;

    // Writes one mesh record. The mesh must stay alive while polylines of it are written.
    VnStreamWriteCompressedTriangulation& operator<<(const Geometry::CTriangulation& mesh);
    // Writes a polyline (list) of the mesh written last; CbExceptionStream before any mesh,
    // after a failed mesh, or for a polyline of another mesh.
    VnStreamWriteCompressedTriangulation& operator<<(const VnPolylineTriangulation& polyline);
    VnStreamWriteCompressedTriangulation& operator<<(const VnPolylineTriangulationList& list);

    // True when the last mesh went through the connectivity coder, false when it was stored
    // uncompressed (or its write failed).
    bool IsConsistent() const { return m_consistent; }
    // Coding order: entry i is the vertex (triangle) slot that was coded i-th.
    const CbArray<Geometry::CVertexRef>& GetVertexMap() const { return m_vertexOrder; }
    const CbArray<Geometry::CTriangleRef>& GetTriangleMap() const { return m_triangleOrder; }
    // Per triangle slot, the corner that the reader makes its first corner, minus one mod 3
    // (1: corner 0, 2: corner 1, 0: corner 2). Built on first call after each mesh.
    const CbArray<unsigned char>& GetCornerRotationMap();

    // Bytes of position data written for the last mesh (all components and axes).
    uint64_t GetPositionBytes() const { return m_positionBytes; }

protected:
    // Writer of format `version`, for the Version2 subclass.
    VnStreamWriteCompressedTriangulation(CbStreamWriteBinary& stream, ECompressionMethod method, float precision, uint32_t version);
    VnStreamWriteCompressedTriangulation(const CStringW& fileName, ECompressionMethod method, float precision, uint32_t version);

    // Raw write: everything written through this object goes to the target stream.
    void writeSlow(const void* buffer, size_t count) override;

    // Attribute section and its version-dependent pieces.
    virtual void compressAttributes();
    virtual void writeAttributeIdVertex(const char* name);
    virtual void writeAttributeIdTriangle(const char* name);
    virtual void writeAttributeConfiguration(unsigned int size, const unsigned char* data, bool flag, uint32_t mode);
    // Whether the format can carry a serialised attribute of that name (all names in
    // version 3).
    virtual bool carriesAttribute(int container, const std::string& name) const;
    // The vertex block, then the triangle block, of the attributes this format carries.
    void writeAttributeSection();

    // ---- geometry section ----
    // Codes the whole mesh (position header, counts, components).
    void compressGeometry(const Geometry::CTriangulation& mesh);
    // Rewrites hole S and handle S into S and fills the two run arrays.
    void encodeSStarSPrime();
    // Writes one component frame from m_symbols and the side tables, then flushes the
    // position coders (x, y, z).
    void writeComponent();
    // Vertex and triangle order become the live slots in slot order, the tips corner 2.
    void setIdentityMaps(const Geometry::CTriangulation& mesh);
    void generateTriangleForwardMap();
    // Drops the per-mesh coding state; the order records and the prediction topology stay
    // for the attributes.
    void cleanup();

    // ---- positions ----
    // Chooses the mode, builds the quantizers, writes the position header and fills the
    // reconstructed positions.
    void initializeFPQuantization(const Geometry::CTriangulation& mesh);
    // Makes the three per-axis coders of a component.
    void beginComponentPositions();
    // Flushes the per-axis coders in the order x, y, z and drops them.
    void flushComponentPositions();
    // Codes v's position predicted in triangle t (which has v as a corner); appends v to the
    // vertex order and t to the reference triangles.
    void encodePosition(Geometry::CVertexRef v, Geometry::CTriangleRef t);

    CbStreamWriteBinary& target() { return *m_target; }
    // The mesh whose corners and adjacency the predictions look at: the mesh itself, or a
    // topology-only copy with adjacency when the caller's mesh has none.
    const Geometry::CTriangulation& predictionMesh() const { return m_topology ? *m_topology : *m_mesh; }

    struct SPositionWriters;

    CbStreamWriteBinary* m_target;
    const Geometry::CTriangulation* m_mesh = nullptr;
    uint32_t m_version;
    std::unique_ptr<VnStreamWriteBinaryFile> m_file;
    ECompressionMethod m_method;
    float m_precision;
    std::array<std::unique_ptr<VnFloatingPointQuantization>, 3> m_quantizers;
    std::unique_ptr<SPositionWriters> m_positionCoders;
    std::unique_ptr<VnCompressLZMA> m_lzma;
    // Connectivity of the mesh being written, coded before the first byte of the record so
    // that a mesh the coder cannot reproduce still takes the uncompressed path.
    std::unique_ptr<VnConnectivity::SEncodedMesh> m_connectivity;
    std::unique_ptr<Geometry::CTriangulation> m_topology;

    // Order records of the whole mesh.
    CbArray<Geometry::CVertexRef> m_vertexOrder;
    CbArray<Geometry::CTriangleRef> m_vertexReferenceTriangles;
    CbArray<Geometry::CTriangleRef> m_triangleOrder;
    CbArray<Geometry::CVertexRef> m_tipOrder;
    CbArray<uint32_t> m_triangleForward; // per triangle slot: position in the triangle order
    CbArray<unsigned char> m_cornerRotation;
    bool m_consistent = true;

    // Reconstructed positions and coded flags, per vertex slot.
    std::vector<CbVector3f> m_reconstructed;
    std::vector<uint8_t> m_vertexCoded;
    uint64_t m_positionBytes = 0;

private:
    void writeMeshRecord(const Geometry::CTriangulation& mesh);
    void writePolyline(const VnPolylineTriangulation& polyline);
    void checkPolylineMesh(const Geometry::CTriangulation* mesh);
    void dropState();
};

// Writer of format version 2: the older attribute layout.
class VnStreamWriteCompressedTriangulationVersion2 : public VnStreamWriteCompressedTriangulation {
public:
    VnStreamWriteCompressedTriangulationVersion2(::CbStreamWriteBinary& stream, ECompressionMethod method, float precision);
    VnStreamWriteCompressedTriangulationVersion2(const CStringW& fileName, ECompressionMethod method, float precision);

    // Attribute name -> identifier: the only attributes this format can carry.
    static const CbMap<std::string, uint32_t> s_MapAttributeIdToEnumVertex;
    static const CbMap<std::string, uint32_t> s_MapAttributeIdToEnumTriangle;

protected:
    void compressAttributes() override;
    void writeAttributeIdVertex(const char* name) override;
    void writeAttributeIdTriangle(const char* name) override;
    // Version 2 carries no configuration.
    void writeAttributeConfiguration(unsigned int size, const unsigned char* data, bool flag, uint32_t mode) override;
    bool carriesAttribute(int container, const std::string& name) const override;
};
