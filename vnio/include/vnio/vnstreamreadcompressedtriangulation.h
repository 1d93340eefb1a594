#pragma once
// Reader of the compressed triangulation stream (.vnm); the mirror of
// VnStreamWriteCompressedTriangulation.
//
// Failures: every error while a mesh is read (a version above 3, a truncated or forged
// stream, counts that do not fit the bytes left) ends as CbExceptionStream from
// "VnStreamReadCompressedTriangulation::operator >>" with the target mesh reset. Polylines
// are then refused until a mesh has been read successfully.
#include <array>
#include <memory>
#include <string>
#include <vector>

#include "basepool/cbstreambinary.h"
#include "basepool/cbstring.h"
#include "vn3dbase/ctriangulation.h"
#include "vn3dbase/vnpolylinetriangulation.h"
#include "vn3dbase/vnpolylinetriangulationlist.h"
#include "vnio/vnstreamcompressedtriangulationbase.h"

class VnStreamReadBinaryFile;
class VnDecompressLZMA;
class VnFloatingPointQuantization;

class VnStreamReadCompressedTriangulation : private CbStreamReadBinary, public VnStreamCompressedTriangulationBase {
public:
    // What the last mesh record held, for diagnostics.
    struct SRecordInfo {
        uint32_t version = 0;
        bool compressed = false;      // connectivity coded (flag 1)
        bool quantized = false;       // positions on a grid
        float step = 0.f;             // grid step, 0 when bit exact
        uint32_t components = 0;
        uint64_t connectivityBytes = 0; // side tables and symbols, count words included
        uint64_t positionBytes = 0;     // position blocks, count words included
        // Per attribute record of the attribute section, in stream order: element kind
        // (Geometry::eContainerVertex or eContainerTriangle), name (empty for records that
        // are read and dropped) and bytes, identifier and configuration included. Filled
        // only when the source knows its size.
        struct SAttribute {
            int container = 0;
            std::string name;
            uint64_t bytes = 0;
        };
        std::vector<SAttribute> attributes;
    };

    // Reads from a caller's stream, which must outlive the reader.
    explicit VnStreamReadCompressedTriangulation(CbStreamReadBinary& stream);
    // Opens the file (CbExceptionStream when it cannot) and owns it.
    explicit VnStreamReadCompressedTriangulation(const CStringW& fileName);
    ~VnStreamReadCompressedTriangulation() override;

    // Reads one mesh record into `mesh` (replacing its content). The mesh must stay alive
    // while polylines of it are read.
    VnStreamReadCompressedTriangulation& operator>>(Geometry::CTriangulation& mesh);
    // Reads a polyline (list) of the mesh read last; CbExceptionStream before any mesh or
    // after a failed read.
    VnStreamReadCompressedTriangulation& operator>>(VnPolylineTriangulation& polyline);
    VnStreamReadCompressedTriangulation& operator>>(VnPolylineTriangulationList& list);

    const SRecordInfo& GetRecordInfo() const { return m_info; }

protected:
    // Raw read: everything read through this object comes from the source stream.
    size_t readSlow(void* buffer, size_t count) override;
    uint64_t GetBytesLeft() const override;

    // ---- geometry section ----
    void decompressGeometry(Geometry::CTriangulation& mesh);
    // Reads one component frame into m_symbols and the side tables, restores hole S and
    // handle S, and makes the position readers. Checks every count first.
    void readComponent();
    // Restores hole S (5) and handle S (6) from the run arrays; counts the known vertices.
    void decodeSStarSPrime();
    void cleanup(Geometry::CTriangulation& mesh);

    // Attribute sections by format version.
    virtual void decompressAttributesVersion3(Geometry::CTriangulation& mesh);
    virtual void decompressAttributesVersion2(Geometry::CTriangulation& mesh);
    virtual void decompressAttributesLegacy(Geometry::CTriangulation& mesh);
    // The inverse of the version 3 writer's configuration block.
    void readAttributeConfiguration(unsigned int& size, std::unique_ptr<unsigned char[]>& data, bool& flag, uint32_t& mode);
    // Element readers: each creates the attribute `name` of `container`, marked to be
    // serialised, and fills it for every element of the decoded mesh.
    void readAttributeTyped(Geometry::CTriangulation& mesh, int container, const std::string& name, int components);
    void readAttributeGenericConfigured(Geometry::CTriangulation& mesh, int container, const std::string& name);
    void readAttributeGenericByRegistry(Geometry::CTriangulation& mesh, int container, const std::string& name);
    // Reads `count` raw elements of `size` bytes, refusing counts the stream cannot hold.
    void readRawElements(Geometry::SAttributeEntry& entry, uint32_t count);
    // Records that older formats carry and this library drops: one float coder block read
    // with prediction zero, or one u32 per element.
    void skipFloats(uint32_t count);
    void skipWords(uint32_t count);
    // Records the bytes consumed since `before` (the bytes left then) for an attribute.
    void noteAttribute(int container, const std::string& name, uint64_t before);
    // Names of old attribute identifiers.
    static std::string oldVertexName(uint32_t id);
    static std::string oldTriangleName(uint32_t id);

    // ---- positions ----
    // Reads the position header and builds the quantizers.
    void initializeFPQuantization();
    // Starts the positions of a component of `knownVertices` vertices: the component mesh
    // (with adjacency) that predictions look at.
    void beginComponentPositions(const Geometry::CTriangulation& component, uint32_t knownVertices);
    // Decodes the next position: v (a vertex of the component) predicted in t.
    CbVector3f decodeNextPosition(Geometry::CVertexRef v, Geometry::CTriangleRef t);
    // Decodes every vertex k = 0..K-1 of the component, predicted in referenceTriangle[k],
    // and stores the positions in the component mesh.
    void setVertexCoordinates(Geometry::CTriangulation& component, const std::vector<uint32_t>& referenceTriangle);

    CbStreamReadBinary& source() { return *m_source; }

    struct SPositionReaders;

    CbStreamReadBinary* m_source;
    std::unique_ptr<VnStreamReadBinaryFile> m_file;
    Geometry::CTriangulation* m_mesh = nullptr; // mesh of the last successful read
    std::array<std::unique_ptr<VnFloatingPointQuantization>, 3> m_quantizers;
    std::unique_ptr<SPositionReaders> m_positionCoders;
    std::unique_ptr<VnDecompressLZMA> m_lzma;

    // Header counts and what is left of them while components are decoded.
    uint32_t m_headerVertices = 0, m_headerTriangles = 0;
    uint32_t m_verticesLeft = 0, m_trianglesLeft = 0;
    // Known vertices of the current component (hole sizes plus C symbols).
    uint32_t m_knownVertices = 0;

    // Positions of the current component, by component vertex index.
    const Geometry::CTriangulation* m_component = nullptr;
    std::vector<CbVector3f> m_positions;
    std::vector<uint8_t> m_decoded;
    // Per decoded vertex of the whole mesh, the triangle it was predicted in.
    std::vector<uint32_t> m_vertexReferenceTriangles;

    SRecordInfo m_info;

private:
    void readMeshRecord(Geometry::CTriangulation& mesh);
    void readPolylineBody(VnPolylineTriangulation& polyline);
    void dropState();
};
