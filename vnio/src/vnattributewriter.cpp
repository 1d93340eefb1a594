// Attribute section of the compressed triangulation stream, writer side: the named
// per-vertex and per-triangle data, typed attributes coded against a prediction, every other
// attribute as raw element bytes in coding order.
#include <string>
#include <typeinfo>
#include <vector>

#include <algorithm>
#include <cstring>
#include <memory>

#include "detail/vnattributeprediction.h"
#include "detail/vncompressedshared.h"
#include "vn3dbase/registry.h"
#include "vnbase/vnfloatcoder.h"
#include "vnio/vnstreamwritecompressedtriangulation.h"

using namespace VnCompressedDetail;

namespace {
constexpr const char* kFnTyped = "VnStreamWriteCompressedTriangulation::compressAttributes";

// Every element of the attribute has its storage.
bool settled(const Geometry::CTriangulation& mesh, const Geometry::SAttributeEntry& e) {
    const uint64_t slots = e.container == Geometry::eContainerVertex ? mesh.GetVertexSlotCount() : mesh.GetTriangleSlotCount();
    return e.connected && e.data.size() == uint64_t(e.elementSize) * slots;
}

[[noreturn]] void precondition(uint32_t line) { throw CbExceptionPreconditionViolation(kSourceWriter, line, kFnTyped); }

} // namespace

namespace {
template <int N>
void writeTyped(CbStreamWriteBinary& out, const Geometry::CTriangulation& topology, const Geometry::SAttributeEntry& e,
                const CbArray<Geometry::CVertexRef>& vertexOrder, const CbArray<Geometry::CTriangleRef>& vertexTriangles,
                const CbArray<Geometry::CTriangleRef>& triangleOrder, const CbArray<Geometry::CVertexRef>& tipOrder) {
    const bool vertex = e.container == Geometry::eContainerVertex;
    const uint32_t count = static_cast<uint32_t>(vertex ? vertexOrder.GetSize() : triangleOrder.GetSize());
    const uint32_t slots = vertex ? topology.GetVertexSlotCount() : topology.GetTriangleSlotCount();
    // Values copied out of the byte storage (no alignment assumption).
    std::vector<SAttributeValue<N>> values(slots);
    std::memcpy(values.data(), e.data.data(), std::min(e.data.size(), values.size() * sizeof(SAttributeValue<N>)));
    std::vector<uint8_t> known(slots, 0);
    std::vector<std::unique_ptr<VnStreamWriteCompressedFloatingPoint>> coders;
    for (int i = 0; i < N; ++i) coders.push_back(std::make_unique<VnStreamWriteCompressedFloatingPoint>(out, count));
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t element;
        SAttributeValue<N> p;
        if (vertex) {
            element = vertexOrder[static_cast<int>(i)].Index();
            p = PredictVertexValue(topology, values.data(), known.data(), element, vertexTriangles[static_cast<int>(i)].Index());
        } else {
            element = triangleOrder[static_cast<int>(i)].Index();
            p = PredictTriangleValue(topology, values.data(), known.data(), tipOrder[static_cast<int>(i)].Index(), element);
        }
        for (int c = 0; c < N; ++c) coders[c]->WriteValue(values[element].c[c], p.c[c]);
        known[element] = 1;
    }
    // The reader makes its readers in component order, each consuming its own block.
    for (auto& coder : coders) coder->Flush();
}
} // namespace

void VnStreamWriteCompressedTriangulation::writeAttributeSection() {
    const Geometry::CTriangulation& mesh = *m_mesh;
    // Both predictions look across edges.
    if (!predictionMesh().HasAdjacency()) m_topology = TopologyWithAdjacency(mesh);
    for (int container : {Geometry::eContainerVertex, Geometry::eContainerTriangle}) {
        std::vector<std::string> names;
        for (const Geometry::SAttributeEntry* e : mesh.GetAttributes(container))
            if (e->serialize && carriesAttribute(container, e->name)) names.push_back(e->name);
        target() << static_cast<uint32_t>(names.size());
        for (const std::string& name : names) {
            if (container == Geometry::eContainerVertex)
                writeAttributeIdVertex(name.c_str());
            else
                writeAttributeIdTriangle(name.c_str());
            target() << uint32_t{0};
            const Geometry::SAttributeEntry* e = mesh.FindAttribute(container, name);
            if (!e) precondition(__LINE__);
            const int n = TypedComponents(container, name);
            if (n != 0) {
                if (e->elementSize != 4u * n || !settled(mesh, *e)) precondition(__LINE__);
                if (n == 1)
                    writeTyped<1>(target(), predictionMesh(), *e, m_vertexOrder, m_vertexReferenceTriangles, m_triangleOrder, m_tipOrder);
                else if (n == 2)
                    writeTyped<2>(target(), predictionMesh(), *e, m_vertexOrder, m_vertexReferenceTriangles, m_triangleOrder, m_tipOrder);
                else
                    writeTyped<3>(target(), predictionMesh(), *e, m_vertexOrder, m_vertexReferenceTriangles, m_triangleOrder, m_tipOrder);
                continue;
            }
            if (!settled(mesh, *e)) precondition(__LINE__);
            writeAttributeConfiguration(static_cast<unsigned int>(e->configuration.size()), e->configuration.data(), true, e->mode);
            const size_t size = e->elementSize;
            if (container == Geometry::eContainerVertex) {
                for (const Geometry::CVertexRef v : m_vertexOrder) target().WriteBuffer(e->data.data() + size * v.Index(), size);
            } else {
                for (const Geometry::CTriangleRef t : m_triangleOrder) target().WriteBuffer(e->data.data() + size * t.Index(), size);
            }
        }
    }
}

void VnStreamWriteCompressedTriangulation::compressAttributes() { writeAttributeSection(); }

void VnStreamWriteCompressedTriangulation::writeAttributeIdVertex(const char* name) { target() << name; }

void VnStreamWriteCompressedTriangulation::writeAttributeIdTriangle(const char* name) { target() << name; }

void VnStreamWriteCompressedTriangulation::writeAttributeConfiguration(unsigned int size, const unsigned char* data, bool flag,
                                                                       uint32_t mode) {
    target() << static_cast<uint32_t>(size);
    target().WriteBuffer(data, size);
    target() << flag << mode;
}

bool VnStreamWriteCompressedTriangulation::carriesAttribute(int, const std::string&) const { return true; }
