// One load or write by one library, run in a process of its own so that its peak memory
// is its own. Prints a single RESULT line for the parent.
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include <OpenMesh/Core/IO/MeshIO.hh>
#include <OpenMesh/Core/Mesh/TriMesh_ArrayKernelT.hh>
#include <assimp/Exporter.hpp>
#include <assimp/Importer.hpp>
#include <assimp/config.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>
#include <tiny_obj_loader.h>

#include "basepool/cbexception.h"
#include "basepool/cbstring.h"
#include "common.h"
#include "vnbase/vnstreamfile.h"
#include "vnio/vnobj.h"
#include "vnio/vnoff.h"
#include "vnio/vnply.h"
#include "vnio/vnstl.h"

namespace Compare {

namespace {

using OMesh = OpenMesh::TriMesh_ArrayKernelT<>;

// ---- VnIO ----
void vnioLoad(const std::string& fmt, const std::string& file, Geometry::CTriangulation& mesh) {
    const CStringW w = CbUtf8ToWide(file);
    if (fmt == "stl") {
        // Joining the soup's corners is what makes the result an indexed mesh like the others'.
        if (!VnSTL::Load(w, mesh, VnSTL::eFlagCombine)) throw std::runtime_error("VnSTL::Load returned false");
    } else if (fmt == "obj") {
        if (!VnOBJ::Load(w, mesh)) throw std::runtime_error("VnOBJ::Load returned false");
    } else if (fmt == "ply") {
        mesh = VnPLY::Read(std::wstring(w));
    } else if (fmt == "off") {
        VnOFF::Read(w.c_str(), mesh);
    } else {
        throw std::runtime_error("unknown format " + fmt);
    }
}

void vnioWrite(const std::string& fmt, const std::string& file, const Geometry::CTriangulation& mesh) {
    const CStringW w = CbUtf8ToWide(file);
    if (fmt == "stl") {
        VnSTL::Serialize(w.c_str(), mesh);
    } else if (fmt == "obj") {
        VnStreamWriteASCIIFile stream{w};
        if (!VnOBJ::Serialize(stream, mesh)) throw std::runtime_error("VnOBJ::Serialize returned false");
        stream.Flush();
    } else if (fmt == "ply") {
        VnPLY::Write(w.c_str(), mesh, VnPLY::eOutputFormatBinary);
    } else if (fmt == "off") {
        VnOFF::Write(w.c_str(), mesh);
    } else {
        throw std::runtime_error("unknown format " + fmt);
    }
}

// ---- tinyobjloader ----
void tinyobjLoad(const std::string& file, uint64_t& v, uint64_t& t) {
    tinyobj::ObjReaderConfig config;
    config.triangulate = true;
    config.vertex_color = false; // the files have none; keeps it from filling a colour array
    tinyobj::ObjReader reader;
    if (!reader.ParseFromFile(file, config)) throw std::runtime_error("tinyobjloader: " + reader.Error());
    v = reader.GetAttrib().vertices.size() / 3;
    t = 0;
    for (const auto& shape : reader.GetShapes()) t += shape.mesh.num_face_vertices.size();
}

// ---- assimp ----
// "+Join" drops the normals before joining: the STL importer gives every corner its facet
// normal, which would keep all corners apart (and leaves a scene the STL exporter refuses).
unsigned assimpFlags(const std::string& lib) {
    return lib == "assimp-join" ? unsigned(aiProcess_RemoveComponent | aiProcess_JoinIdenticalVertices) : 0u;
}

void assimpConfigure(Assimp::Importer& importer) { importer.SetPropertyInteger(AI_CONFIG_PP_RVC_FLAGS, aiComponent_NORMALS); }

void assimpCount(const aiScene* scene, uint64_t& v, uint64_t& t) {
    v = t = 0;
    for (unsigned i = 0; i < scene->mNumMeshes; ++i) {
        v += scene->mMeshes[i]->mNumVertices;
        t += scene->mMeshes[i]->mNumFaces;
    }
}

const char* assimpExportId(const std::string& fmt) {
    if (fmt == "stl") return "stlb";
    if (fmt == "obj") return "objnomtl";
    if (fmt == "ply") return "plyb";
    return nullptr; // no OFF exporter
}

// ---- OpenMesh ----
void openmeshRead(const std::string& file, OMesh& mesh) {
    OpenMesh::IO::Options options;
    if (!OpenMesh::IO::read_mesh(mesh, file, options)) throw std::runtime_error("OpenMesh read_mesh failed");
}

void openmeshWrite(const std::string& fmt, const std::string& file, const OMesh& mesh) {
    OpenMesh::IO::Options options;
    if (fmt == "stl") options += OpenMesh::IO::Options::Binary;
    if (fmt == "ply") {
        options += OpenMesh::IO::Options::Binary;
        options += OpenMesh::IO::Options::LSB;
    }
    if (!OpenMesh::IO::write_mesh(mesh, file, options)) throw std::runtime_error("OpenMesh write_mesh failed");
}

void print(const SOpResult& r) {
    std::printf("RESULT ms=%.3f peak_mb=%.2f v=%llu t=%llu check=%s\n", r.ms, r.peakMB, (unsigned long long)r.vertices,
                (unsigned long long)r.triangles, r.check.c_str());
}

} // namespace

int RunOp(const std::string& lib, const std::string& op, const std::string& fmt, const std::string& file,
          const std::string& out, bool verify) {
    SOpResult r;
    CMemProbe probe;
    double t0 = 0;
    const bool write = op == "write";
    if (op != "load" && !write) throw std::runtime_error("unknown op " + op);
    try {
        if (lib == "vnio") {
            Geometry::CTriangulation mesh;
            if (write) vnioLoad(fmt, file, mesh);
            probe.Start();
            t0 = NowMs();
            if (write) vnioWrite(fmt, out, mesh);
            else vnioLoad(fmt, file, mesh);
            r.ms = NowMs() - t0;
            r.peakMB = probe.PeakGrowthMB();
            r.vertices = mesh.GetVertexCount();
            r.triangles = mesh.GetTriangleCount();
            if (write && verify) {
                Geometry::CTriangulation back;
                vnioLoad(fmt, out, back);
                if (back.GetVertexCount() != mesh.GetVertexCount() || back.GetTriangleCount() != mesh.GetTriangleCount())
                    r.check = "re-read " + std::to_string(back.GetVertexCount()) + "/" + std::to_string(back.GetTriangleCount());
            }
        } else if (lib == "tinyobj") {
            if (write || fmt != "obj") throw std::runtime_error("tinyobjloader only reads OBJ");
            probe.Start();
            t0 = NowMs();
            tinyobjLoad(file, r.vertices, r.triangles);
            r.ms = NowMs() - t0;
            r.peakMB = probe.PeakGrowthMB();
        } else if (lib == "assimp" || lib == "assimp-join") {
            Assimp::Importer importer;
            assimpConfigure(importer);
            const aiScene* scene = nullptr;
            if (write) {
                scene = importer.ReadFile(file, assimpFlags(lib));
                if (!scene) throw std::runtime_error(std::string("assimp: ") + importer.GetErrorString());
                const char* id = assimpExportId(fmt);
                if (!id) throw std::runtime_error("assimp has no exporter for " + fmt);
                Assimp::Exporter exporter;
                probe.Start();
                t0 = NowMs();
                if (exporter.Export(scene, id, out) != aiReturn_SUCCESS)
                    throw std::runtime_error(std::string("assimp export: ") + exporter.GetErrorString());
                r.ms = NowMs() - t0;
                r.peakMB = probe.PeakGrowthMB();
                assimpCount(scene, r.vertices, r.triangles);
                if (verify) {
                    Assimp::Importer again;
                    assimpConfigure(again);
                    const aiScene* back = again.ReadFile(out, assimpFlags(lib));
                    uint64_t bv = 0, bt = 0;
                    if (back) assimpCount(back, bv, bt);
                    if (!back || bt != r.triangles) r.check = "re-read " + std::to_string(bv) + "/" + std::to_string(bt);
                }
            } else {
                probe.Start();
                t0 = NowMs();
                scene = importer.ReadFile(file, assimpFlags(lib));
                r.ms = NowMs() - t0;
                r.peakMB = probe.PeakGrowthMB();
                if (!scene) throw std::runtime_error(std::string("assimp: ") + importer.GetErrorString());
                assimpCount(scene, r.vertices, r.triangles);
            }
        } else if (lib == "openmesh") {
            OMesh mesh;
            if (write) openmeshRead(file, mesh);
            probe.Start();
            t0 = NowMs();
            if (write) openmeshWrite(fmt, out, mesh);
            else openmeshRead(file, mesh);
            r.ms = NowMs() - t0;
            r.peakMB = probe.PeakGrowthMB();
            r.vertices = mesh.n_vertices();
            r.triangles = mesh.n_faces();
            if (write && verify) {
                OMesh back;
                openmeshRead(out, back);
                if (back.n_faces() != mesh.n_faces() || back.n_vertices() != mesh.n_vertices())
                    r.check = "re-read " + std::to_string(back.n_vertices()) + "/" + std::to_string(back.n_faces());
            }
        } else {
            throw std::runtime_error("unknown library " + lib);
        }
    } catch (const CbException& e) {
        std::printf("RESULT failed=%s\n", e.Describe().c_str());
        return 1;
    } catch (const std::exception& e) {
        std::printf("RESULT failed=%s\n", e.what());
        return 1;
    }
    if (!probe.Exact()) r.check += "(peak-approx)";
    for (char& c : r.check)
        if (c == ' ') c = '_';
    print(r);
    if (write) std::filesystem::remove(out);
    return 0;
}

std::string InspectVnioLoad(const std::string& fmt, const std::string& file) {
    Geometry::CTriangulation mesh;
    vnioLoad(fmt, file, mesh);
    std::vector<std::string> built;
    if (mesh.HasAdjacency()) built.push_back("adjacency");
    if (mesh.HasVertexTriangleRelation()) built.push_back("vertex-triangle relation");
    for (int c = 0; c < 2; ++c)
        for (const Geometry::SAttributeEntry* e : mesh.GetAttributes(c))
            if (e->connected) built.push_back(std::string(c == 0 ? "vertex " : "triangle ") + e->name);
    std::string s;
    for (const std::string& b : built) s += (s.empty() ? "" : ", ") + b;
    return s.empty() ? "nothing else" : s;
}

} // namespace Compare
