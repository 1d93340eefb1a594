#include "codecs.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <bit>
#include <map>
#include <memory>
#include <stdexcept>
#include <unordered_map>

#include <draco/compression/decode.h>
#include <draco/compression/encode.h>
#include <draco/mesh/mesh.h>

#include "basepool/cbexception.h"
#include "basepool/cbstreambinary.h"
#include "vnio/vnstreamreadcompressedtriangulation.h"
#include "basepool/cbstring.h"
#include "vnbase/vnquantization.h"
#include "vnio/vnply.h"
#include "vnio/vnstreamwritecompressedtriangulation.h"

namespace Compare {

namespace {

double median(std::vector<double> v) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}

void accumulate(SError& e, const float* decoded, const float* original) {
    double s = 0;
    for (int k = 0; k < 3; ++k) {
        const double d = std::fabs(double(decoded[k]) - double(original[k]));
        e.linf = std::max(e.linf, d);
        s += d * d;
    }
    e.l2 = std::max(e.l2, std::sqrt(s));
}

// ---- Draco ----
std::unique_ptr<draco::Mesh> makeDracoMesh(const SMesh& m, bool withIndex) {
    auto mesh = std::make_unique<draco::Mesh>();
    const uint32_t n = m.Vertices();
    mesh->set_num_points(n);
    draco::GeometryAttribute position;
    position.Init(draco::GeometryAttribute::POSITION, nullptr, 3, draco::DT_FLOAT32, false, 12, 0);
    draco::PointAttribute* p = mesh->attribute(mesh->AddAttribute(position, true, n));
    for (uint32_t i = 0; i < n; ++i) p->SetAttributeValue(draco::AttributeValueIndex(i), &m.xyz[3 * size_t(i)]);
    if (withIndex) {
        // The original vertex number travels losslessly beside the position, so the decoded
        // points can be matched to the original ones whatever order the coder chose.
        draco::GeometryAttribute index;
        index.Init(draco::GeometryAttribute::GENERIC, nullptr, 1, draco::DT_UINT32, false, 4, 0);
        draco::PointAttribute* q = mesh->attribute(mesh->AddAttribute(index, true, n));
        for (uint32_t i = 0; i < n; ++i) q->SetAttributeValue(draco::AttributeValueIndex(i), &i);
    }
    mesh->SetNumFaces(m.Triangles());
    for (uint32_t t = 0; t < m.Triangles(); ++t)
        mesh->SetFace(draco::FaceIndex(t), {draco::PointIndex(m.tris[3 * size_t(t)]), draco::PointIndex(m.tris[3 * size_t(t) + 1]),
                                            draco::PointIndex(m.tris[3 * size_t(t) + 2])});
    return mesh;
}

draco::EncoderBuffer dracoEncode(const draco::Mesh& mesh, int qp, int level) {
    draco::Encoder encoder;
    encoder.SetAttributeQuantization(draco::GeometryAttribute::POSITION, qp);
    encoder.SetSpeedOptions(10 - level, 10 - level);
    draco::EncoderBuffer buffer;
    const draco::Status s = encoder.EncodeMeshToBuffer(mesh, &buffer);
    if (!s.ok()) throw std::runtime_error(std::string("Draco encode: ") + s.error_msg());
    return buffer;
}

std::unique_ptr<draco::Mesh> dracoDecode(const draco::EncoderBuffer& buffer) {
    draco::DecoderBuffer in;
    in.Init(buffer.data(), buffer.size());
    draco::Decoder decoder;
    auto result = decoder.DecodeMeshFromBuffer(&in);
    if (!result.ok()) throw std::runtime_error(std::string("Draco decode: ") + result.status().error_msg());
    return std::move(result).value();
}

std::vector<float> dracoPositions(const draco::Mesh& mesh) {
    const draco::PointAttribute* p = mesh.GetNamedAttribute(draco::GeometryAttribute::POSITION);
    std::vector<float> xyz(3 * size_t(mesh.num_points()));
    for (uint32_t i = 0; i < mesh.num_points(); ++i) p->GetMappedValue(draco::PointIndex(i), &xyz[3 * size_t(i)]);
    return xyz;
}

// Replays the position predictions once the geometry is coded; the attribute section is the
// first hook after it, and the order, reference triangles and reconstructed positions are
// still there.
class CDiagnosticWriter : public VnStreamWriteCompressedTriangulation {
public:
    CDiagnosticWriter(::CbStreamWriteBinary& stream, float precision, SVnmDiagnostic& out)
        : VnStreamWriteCompressedTriangulation(stream, eQuantized, precision), m_out(out) {}

protected:
    void compressAttributes() override {
        analyse();
        VnStreamWriteCompressedTriangulation::compressAttributes();
    }

private:
    void analyse() {
        const Geometry::CTriangulation& mesh = predictionMesh();
        Geometry::CTriangulation fans(mesh);
        fans.ComputeVertexTriangleRelation();
        std::vector<uint8_t> known(m_reconstructed.size(), 0);
        std::map<int64_t, uint64_t> histogram[3], multiHistogram[3];
        double lengths = 0;
        const int n = m_vertexOrder.GetSize();
        for (int i = 0; i < n; ++i) {
            const Geometry::CVertexRef v = m_vertexOrder[i];
            const Geometry::CTriangleRef t = m_vertexReferenceTriangles[i];
            const Geometry::STriangleCorners& c = mesh.GetCorners(t);
            const int k = c[0] == v ? 0 : (c[1] == v ? 1 : 2);
            const uint32_t a = c[(k + 2) % 3], b = c[(k + 1) % 3];
            if (known[a] && known[b]) {
                const uint32_t across = mesh.GetAdjacentTriangle(t, (k + 1) % 3);
                bool opposite = false;
                if (across != Geometry::c_IndexInvalid) {
                    const Geometry::STriangleCorners& o = mesh.GetCorners(Geometry::CTriangleRef(across));
                    const int j = o[0] == b ? 0 : (o[1] == b ? 1 : 2);
                    opposite = known[o[(j + 1) % 3]] != 0;
                }
                ++(opposite ? m_out.parallelogram : m_out.midpoint);
            } else if (known[a] || known[b]) {
                ++m_out.oneCorner;
            } else {
                ++m_out.none;
            }
            const CbVector3f p = predictPosition(mesh, m_reconstructed.data(), known.data(), v, t);
            CbVector3f sum;
            int parallelograms = 0;
            for (uint32_t f : fans.GetVertexTriangles(v)) {
                const Geometry::STriangleCorners& fc = fans.GetCorners(Geometry::CTriangleRef(f));
                const int fk = fc[0] == v ? 0 : (fc[1] == v ? 1 : 2);
                const uint32_t fa = fc[(fk + 2) % 3], fb = fc[(fk + 1) % 3];
                const uint32_t across = mesh.GetAdjacentTriangle(Geometry::CTriangleRef(f), (fk + 1) % 3);
                if (!known[fa] || !known[fb] || across == Geometry::c_IndexInvalid) continue;
                const Geometry::STriangleCorners& o = mesh.GetCorners(Geometry::CTriangleRef(across));
                const int j = o[0] == fb ? 0 : (o[1] == fb ? 1 : 2);
                if (!known[o[(j + 1) % 3]]) continue;
                sum += m_reconstructed[fa] + m_reconstructed[fb] - m_reconstructed[o[(j + 1) % 3]];
                ++parallelograms;
            }
            const CbVector3f multi = parallelograms ? sum * (1.f / float(parallelograms)) : p;
            for (int axis = 0; axis < 3; ++axis) {
                const uint32_t code = m_quantizers[axis]->Map(m_reconstructed[v][axis]);
                const int64_t r = static_cast<int32_t>(code - m_quantizers[axis]->Map(p[axis]));
                ++histogram[axis][r];
                ++multiHistogram[axis][static_cast<int32_t>(code - m_quantizers[axis]->Map(multi[axis]))];
                lengths += std::bit_width(static_cast<uint64_t>(r < 0 ? -r : r));
            }
            known[v] = 1;
        }
        auto entropy = [n](const std::map<int64_t, uint64_t>* h) {
            double bits = 0;
            for (int axis = 0; axis < 3; ++axis)
                for (const auto& [value, count] : h[axis]) bits -= double(count) * std::log2(double(count) / n);
            return n ? bits / n : 0;
        };
        m_out.entropyBitsPerVertex = entropy(histogram);
        m_out.multiEntropyBitsPerVertex = entropy(multiHistogram);
        m_out.meanBitLength = n ? lengths / (3.0 * n) : 0;
    }

    SVnmDiagnostic& m_out;
};

} // namespace

SVnmDefault RunVnmAsLoaded(const std::string& plyPath, double precision) {
    using Base = VnStreamCompressedTriangulationBase;
    SVnmDefault r;
    try {
        const Geometry::CTriangulation mesh = VnPLY::Read(std::wstring(CbUtf8ToWide(plyPath)));
        CbStreamWriteBinaryMemory memory;
        {
            VnStreamWriteCompressedTriangulation writer(memory, precision > 0 ? Base::eQuantized : Base::eLossless, float(precision));
            writer << mesh;
            r.coded = writer.IsConsistent();
        }
        const std::vector<uint8_t> bytes = memory.TakeData();
        r.bytes = bytes.size();
        CbStreamReadBinaryMemory source(bytes.data(), bytes.size());
        VnStreamReadCompressedTriangulation reader(source);
        Geometry::CTriangulation back;
        reader >> back;
        for (const auto& a : reader.GetRecordInfo().attributes) {
            r.attributeBytes += a.bytes;
            if (!r.attributes.empty()) r.attributes += ", ";
            r.attributes += std::string(a.container == Geometry::eContainerVertex ? "vertex " : "triangle ") + a.name;
        }
    } catch (const CbException& e) {
        r.problem = e.Describe();
    } catch (const std::exception& e) {
        r.problem = e.what();
    }
    return r;
}

SVnmDiagnostic DiagnoseVnm(const SMesh& m, double precision) {
    SVnmDiagnostic out;
    try {
        Geometry::CTriangulation mesh;
        mesh.AppendVertices(reinterpret_cast<const CbVector3f*>(m.xyz.data()), m.Vertices());
        mesh.AppendTriangles(reinterpret_cast<const Geometry::STriangleCorners*>(m.tris.data()), m.Triangles());
        CbStreamWriteBinaryMemory memory;
        CDiagnosticWriter writer(memory, float(precision), out);
        writer << mesh;
        out.positionBytes = writer.GetPositionBytes();
        if (!writer.IsConsistent()) out.problem = "stored natively";
    } catch (const CbException& e) {
        out.problem = e.Describe();
    } catch (const std::exception& e) {
        out.problem = e.what();
    }
    return out;
}

double MeanEdgeLength(const SMesh& m) {
    double sum = 0;
    for (uint32_t t = 0; t < m.Triangles(); ++t)
        for (int k = 0; k < 3; ++k) {
            const float* a = &m.xyz[3 * size_t(m.tris[3 * t + k])];
            const float* b = &m.xyz[3 * size_t(m.tris[3 * t + (k + 1) % 3])];
            sum += std::sqrt(double(a[0] - b[0]) * (a[0] - b[0]) + double(a[1] - b[1]) * (a[1] - b[1]) +
                             double(a[2] - b[2]) * (a[2] - b[2]));
        }
    return m.Triangles() ? sum / (3.0 * m.Triangles()) : 0;
}

double SymmetricNearest(const std::vector<float>& a, const std::vector<float>& b, double cell) {
    if (a.empty() || b.empty()) return a.size() == b.size() ? 0 : std::numeric_limits<double>::infinity();
    if (!(cell > 0)) cell = 1e-6;
    auto directed = [cell](const std::vector<float>& from, const std::vector<float>& to) {
        auto key = [](int64_t x, int64_t y, int64_t z) {
            return (uint64_t(x) & 0x1FFFFF) | ((uint64_t(y) & 0x1FFFFF) << 21) | ((uint64_t(z) & 0x1FFFFF) << 42);
        };
        auto cellOf = [cell](float f) { return static_cast<int64_t>(std::floor(double(f) / cell)); };
        std::unordered_map<uint64_t, std::vector<uint32_t>> grid;
        grid.reserve(to.size() / 3);
        for (size_t i = 0; i < to.size() / 3; ++i)
            grid[key(cellOf(to[3 * i]), cellOf(to[3 * i + 1]), cellOf(to[3 * i + 2]))].push_back(uint32_t(i));
        double worst = 0;
        for (size_t i = 0; i < from.size() / 3; ++i) {
            const float* q = &from[3 * i];
            const int64_t cx = cellOf(q[0]), cy = cellOf(q[1]), cz = cellOf(q[2]);
            double best = std::numeric_limits<double>::infinity();
            auto visit = [&](int64_t x, int64_t y, int64_t z) {
                auto it = grid.find(key(x, y, z));
                if (it == grid.end()) return;
                for (uint32_t j : it->second) {
                    const float* p = &to[3 * size_t(j)];
                    const double d = std::sqrt(double(p[0] - q[0]) * (p[0] - q[0]) + double(p[1] - q[1]) * (p[1] - q[1]) +
                                               double(p[2] - q[2]) * (p[2] - q[2]));
                    best = std::min(best, d);
                }
            };
            // Ring r holds the cells at Chebyshev distance r; once the best distance is within
            // r cells nothing farther out can beat it.
            int r = 0;
            for (; r <= 16; ++r) {
                for (int64_t x = -r; x <= r; ++x)
                    for (int64_t y = -r; y <= r; ++y)
                        for (int64_t z = -r; z <= r; ++z)
                            if (std::max({std::llabs(x), std::llabs(y), std::llabs(z)}) == r) visit(cx + x, cy + y, cz + z);
                if (best <= r * cell) break;
            }
            if (r > 16) { // far from everything: settle it by brute force
                for (size_t j = 0; j < to.size() / 3; ++j) {
                    const float* p = &to[3 * j];
                    best = std::min(best, std::sqrt(double(p[0] - q[0]) * (p[0] - q[0]) + double(p[1] - q[1]) * (p[1] - q[1]) +
                                                    double(p[2] - q[2]) * (p[2] - q[2])));
                }
            }
            worst = std::max(worst, best);
        }
        return worst;
    };
    return std::max(directed(a, b), directed(b, a));
}

SDracoResult RunDraco(const SMesh& m, int qp, int level, int runs, bool measureError) {
    SDracoResult r;
    try {
        const auto mesh = makeDracoMesh(m, false);
        std::vector<double> enc, dec;
        draco::EncoderBuffer buffer;
        for (int i = 0; i < runs; ++i) {
            const double t0 = NowMs();
            buffer = dracoEncode(*mesh, qp, level);
            enc.push_back(NowMs() - t0);
        }
        r.bytes = buffer.size();
        std::unique_ptr<draco::Mesh> decoded;
        for (int i = 0; i < runs; ++i) {
            const double t0 = NowMs();
            decoded = dracoDecode(buffer);
            dec.push_back(NowMs() - t0);
        }
        r.encodeMs = median(enc);
        r.decodeMs = median(dec);
        r.decodedPoints = decoded->num_points();
        r.decodedFaces = decoded->num_faces();
        if (!measureError) return r;
        const std::vector<float> plain = dracoPositions(*decoded);
        r.nearestL2 = SymmetricNearest(plain, m.xyz, 0.5 * MeanEdgeLength(m));

        const auto indexed = makeDracoMesh(m, true);
        const auto back = dracoDecode(dracoEncode(*indexed, qp, level));
        const std::vector<float> xyz = dracoPositions(*back);
        const draco::PointAttribute* index = back->GetNamedAttribute(draco::GeometryAttribute::GENERIC);
        if (!index) throw std::runtime_error("Draco lost the index attribute");
        std::vector<uint8_t> seen(m.Vertices(), 0);
        for (uint32_t i = 0; i < back->num_points(); ++i) {
            uint32_t original = 0;
            index->GetMappedValue(draco::PointIndex(i), &original);
            if (original >= m.Vertices()) {
                r.error.problem = "index out of range";
                continue;
            }
            seen[original] = 1;
            accumulate(r.error, &xyz[3 * size_t(i)], &m.xyz[3 * size_t(original)]);
        }
        if (std::count(seen.begin(), seen.end(), 0)) r.error.problem = "vertices missing after decoding";
    } catch (const std::exception& e) {
        r.problem = e.what();
    }
    return r;
}

SVnmResult RunVnm(const SMesh& m, double precision, int runs, bool timed) {
    using Base = VnStreamCompressedTriangulationBase;
    SVnmResult r;
    try {
        Geometry::CTriangulation mesh;
        // Positions and corners only: no adjacency, no attribute, nothing the writer could
        // carry besides what Draco is given.
        mesh.AppendVertices(reinterpret_cast<const CbVector3f*>(m.xyz.data()), m.Vertices());
        mesh.AppendTriangles(reinterpret_cast<const Geometry::STriangleCorners*>(m.tris.data()), m.Triangles());
        const Base::ECompressionMethod method = precision > 0 ? Base::eQuantized : Base::eLossless;
        std::vector<double> enc, dec;
        std::vector<uint8_t> bytes;
        std::vector<uint32_t> order;
        for (int i = 0; i < (timed ? runs : 1); ++i) {
            const double t0 = NowMs();
            CbStreamWriteBinaryMemory memory;
            VnStreamWriteCompressedTriangulation writer(memory, method, float(precision));
            writer << mesh;
            bytes = memory.TakeData();
            enc.push_back(NowMs() - t0);
            r.coded = writer.IsConsistent();
            order.assign(writer.GetVertexMap().begin(), writer.GetVertexMap().end());
        }
        r.bytes = bytes.size();
        Geometry::CTriangulation back;
        VnStreamReadCompressedTriangulation::SRecordInfo info;
        for (int i = 0; i < (timed ? runs : 1); ++i) {
            back.Reset();
            const double t0 = NowMs();
            CbStreamReadBinaryMemory source(bytes.data(), bytes.size());
            VnStreamReadCompressedTriangulation reader(source);
            reader >> back;
            dec.push_back(NowMs() - t0);
            info = reader.GetRecordInfo();
        }
        r.encodeMs = median(enc);
        r.decodeMs = median(dec);
        r.step = info.step;
        r.connectivityBytes = info.connectivityBytes;
        r.positionBytes = info.positionBytes;
        r.attributes = info.attributes.size();
        for (const auto& a : info.attributes) r.attributeBytes += a.bytes;
        r.decodedVertices = back.GetVertexCount();
        r.decodedTriangles = back.GetTriangleCount();
        if (r.decodedVertices != m.Vertices() || r.decodedTriangles != m.Triangles() || order.size() != m.Vertices()) {
            r.problem = "decoded " + std::to_string(r.decodedVertices) + "/" + std::to_string(r.decodedTriangles);
            return r;
        }
        std::vector<float> xyz;
        xyz.reserve(m.xyz.size());
        for (Geometry::CVertexRef v : back.Vertices()) {
            const CbVector3f& p = back.GetPosition(v);
            xyz.insert(xyz.end(), {p.x, p.y, p.z});
        }
        r.bitExact = true;
        for (uint32_t i = 0; i < m.Vertices(); ++i) {
            const float* d = &xyz[3 * size_t(i)];
            const float* o = &m.xyz[3 * size_t(order[i])];
            accumulate(r.error, d, o);
            if (std::memcmp(d, o, 12) != 0) r.bitExact = false;
        }
        r.nearestL2 = SymmetricNearest(xyz, m.xyz, 0.5 * MeanEdgeLength(m));
    } catch (const CbException& e) {
        r.problem = e.Describe();
    } catch (const std::exception& e) {
        r.problem = e.what();
    }
    return r;
}

} // namespace Compare
