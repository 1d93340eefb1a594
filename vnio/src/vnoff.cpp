#include "vnio/vnoff.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <vector>

#include "basepool/cbexception.h"
#include "detail/fixedformat.h"
#include "vnbase/vnfilesystem.h"
#include "vnbase/vnstreamfile.h"

namespace {

constexpr const char* kSource = "vnlibraries/vnio/vnoff";
constexpr uint32_t kLineHeader = 160;
constexpr uint32_t kLineNotTriangle = 71;
constexpr uint32_t kLineIndexRange = 72;
constexpr uint32_t kLineBadCorner = 73;
constexpr uint32_t kLineNullPath = 70;

// The shortest text a vertex ("0 0 0\n") and a face ("3 0 0 0\n") can take: a count
// claims at most this many records per byte of the file.
constexpr uint64_t kMinVertexBytes = 6;
constexpr uint64_t kMinFaceBytes = 8;

void readHeader(VnStreamReadASCIIT<CStringA>& stream) {
    // The keyword line must be exactly "OFF": the three letters, then the LF that ends the
    // line (or the end of the data). Checking character by character gives the line
    // reader's answer without gathering an arbitrarily long first line of a foreign file.
    // A CR before the LF makes the line differ: CR LF files are rejected, as older readers did.
    for (char expected : {'O', 'F', 'F'}) {
        if (stream.IsEnd() || stream.GetChar() != expected)
            throw CbExceptionWrongFileVersion(kSource, kLineHeader, "ReadHeader");
        stream.Next();
    }
    if (!stream.IsEnd()) {
        if (stream.GetChar() != '\n') throw CbExceptionWrongFileVersion(kSource, kLineHeader, "ReadHeader");
        stream.Next();
    }
}

char* appendUnsigned(char* out, uint32_t value) { return std::to_chars(out, out + 10, value).ptr; }

} // namespace

void VnOFF::Read(const wchar_t* path, Geometry::CTriangulation& mesh) {
    if (!path) throw CbExceptionPreconditionViolation(kSource, kLineNullPath, "VnOFF::Read");
    mesh.Reset();
    try {
        VnStreamReadASCIIFile stream(path);
        readHeader(stream);
        const uint32_t vertexCount = stream.ReadUnsigned();
        const uint32_t faceCount = stream.ReadUnsigned();
        stream.ReadUnsigned(); // the edge count slot: read and ignored

        const uint64_t fileSize = VnFileSystem::GetFileSize(path);
        mesh.ReserveVertices(static_cast<uint32_t>(std::min<uint64_t>(vertexCount, fileSize / kMinVertexBytes)));
        mesh.ReserveTriangles(static_cast<uint32_t>(std::min<uint64_t>(faceCount, fileSize / kMinFaceBytes)));

        // The map from file vertex number to mesh vertex is the identity: the mesh was
        // reset, so the i-th vertex added gets index i. It grows with the mesh as vertices
        // arrive and is complete before the first face, which is checked against it.
        for (uint32_t i = 0; i < vertexCount; ++i) {
            CbVector3f p;
            p.x = stream.ReadFloat();
            p.y = stream.ReadFloat();
            p.z = stream.ReadFloat();
            mesh.AddVertex(p);
        }
        for (uint32_t i = 0; i < faceCount; ++i) {
            if (stream.ReadUnsigned() != 3) throw CbExceptionWrongFileVersion(kSource, kLineNotTriangle, "VnOFF::Read");
            uint32_t corner[3];
            for (uint32_t& c : corner) {
                c = stream.ReadUnsigned();
                if (c >= vertexCount) throw CbExceptionWrongFileVersion(kSource, kLineIndexRange, "VnOFF::Read");
            }
            mesh.AddTriangle(Geometry::CVertexRef(corner[0]), Geometry::CVertexRef(corner[1]),
                             Geometry::CVertexRef(corner[2]));
        }
        mesh.ComputeAdjacency();
        // Adjacency builds the relation on its way; recomputing it would only repeat the
        // same work on the unchanged mesh.
        if (!mesh.HasVertexTriangleRelation()) mesh.ComputeVertexTriangleRelation();
    } catch (...) {
        mesh.Reset();
        throw;
    }
}

void VnOFF::Write(const wchar_t* path, const Geometry::CTriangulation& mesh) {
    if (!path) throw CbExceptionPreconditionViolation(kSource, kLineNullPath, "VnOFF::Write");
    // Corner numbers are ranks among live vertices; without deleted slots the rank is the
    // index itself and no table is needed.
    const bool dense = mesh.GetVertexCount() == mesh.GetVertexSlotCount();
    std::vector<uint32_t> rank;
    if (!dense) rank = mesh.ComputeDenseVertexIndices();
    for (Geometry::CTriangleRef t : mesh.Triangles())
        for (uint32_t c : mesh.GetCorners(t))
            if (!mesh.IsVertexLive(c)) throw CbExceptionPreconditionViolation(kSource, kLineBadCorner, "VnOFF::Write");

    VnStreamWriteASCIIFile stream(path, 0, 0, nullptr);
    char line[3 * VnDetail::c_Fixed6MaxChars + 8];
    char* p = line;
    const uint32_t triangleCount = mesh.GetTriangleCount();
    std::memcpy(p, "OFF\n", 4);
    p += 4;
    p = appendUnsigned(p, mesh.GetVertexCount());
    *p++ = ' ';
    p = appendUnsigned(p, triangleCount);
    *p++ = ' ';
    p = appendUnsigned(p, triangleCount * 3u); // 32-bit on purpose: the slot is ignored and must stay readable
    *p++ = '\n';
    stream.Write(line, static_cast<size_t>(p - line));

    const CbVector3f* positions = mesh.GetPositions();
    for (Geometry::CVertexRef v : mesh.Vertices()) {
        const CbVector3f& q = positions[v];
        p = VnDetail::AppendFixed6(line, q.x);
        *p++ = ' ';
        p = VnDetail::AppendFixed6(p, q.y);
        *p++ = ' ';
        p = VnDetail::AppendFixed6(p, q.z);
        *p++ = '\n';
        stream.Write(line, static_cast<size_t>(p - line));
    }
    for (Geometry::CTriangleRef t : mesh.Triangles()) {
        const Geometry::STriangleCorners& c = mesh.GetCorners(t);
        p = line;
        *p++ = '3';
        for (uint32_t v : c) {
            *p++ = ' ';
            p = appendUnsigned(p, dense ? v : rank[v]);
        }
        *p++ = '\n';
        stream.Write(line, static_cast<size_t>(p - line));
    }
    stream.Flush();
}
