// One library's load of one file, and optionally its write of the loaded mesh, in a process
// of its own. Each operation is timed alone with the memory high-water mark reset just
// before it, so each peak is the operation's own. Prints one RESULT line per operation.
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

void print(const char* op, const SOpResult& r, bool exact) {
    std::string check = r.check + (exact ? "" : "(peak-approx)");
    for (char& c : check)
        if (c == ' ') c = '_';
    std::printf("RESULT op=%s ms=%.3f peak_mb=%.2f v=%llu t=%llu check=%s\n", op, r.ms, r.peakMB, (unsigned long long)r.vertices,
                (unsigned long long)r.triangles, check.c_str());
}

// Times `f` alone, with the high-water mark reset just before it.
template <class F> void timed(SOpResult& r, F&& f, bool& exact) {
    CMemProbe probe;
    probe.Start();
    const double t0 = NowMs();
    f();
    r.ms = NowMs() - t0;
    r.peakMB = probe.PeakGrowthMB();
    exact = probe.Exact();
}

std::string counts(uint64_t v, uint64_t t) { return "re-read " + std::to_string(v) + "/" + std::to_string(t); }

} // namespace

int RunOp(const std::string& lib, const std::string& ops, const std::string& fmt, const std::string& file,
          const std::string& out, bool verify) {
    const bool write = ops == "load+write";
    if (ops != "load" && !write) throw std::runtime_error("unknown operations " + ops);
    SOpResult load, store;
    bool loadExact = true, storeExact = true;
    const char* stage = "load";
    try {
        if (lib == "vnio") {
            Geometry::CTriangulation mesh;
            timed(load, [&] { vnioLoad(fmt, file, mesh); }, loadExact);
            load.vertices = store.vertices = mesh.GetVertexCount();
            load.triangles = store.triangles = mesh.GetTriangleCount();
            if (write) {
                stage = "write";
                timed(store, [&] { vnioWrite(fmt, out, mesh); }, storeExact);
                if (verify) {
                    Geometry::CTriangulation back;
                    vnioLoad(fmt, out, back);
                    if (back.GetVertexCount() != mesh.GetVertexCount() || back.GetTriangleCount() != mesh.GetTriangleCount())
                        store.check = counts(back.GetVertexCount(), back.GetTriangleCount());
                }
            }
        } else if (lib == "tinyobj") {
            if (write || fmt != "obj") throw std::runtime_error("tinyobjloader only reads OBJ");
            timed(load, [&] { tinyobjLoad(file, load.vertices, load.triangles); }, loadExact);
        } else if (lib == "assimp" || lib == "assimp-join") {
            Assimp::Importer importer;
            assimpConfigure(importer);
            const aiScene* scene = nullptr;
            timed(load, [&] { scene = importer.ReadFile(file, assimpFlags(lib)); }, loadExact);
            if (!scene) throw std::runtime_error(std::string("assimp: ") + importer.GetErrorString());
            assimpCount(scene, load.vertices, load.triangles);
            store.vertices = load.vertices;
            store.triangles = load.triangles;
            if (write) {
                stage = "write";
                const char* id = assimpExportId(fmt);
                if (!id) throw std::runtime_error("assimp has no exporter for " + fmt);
                Assimp::Exporter exporter;
                aiReturn result = aiReturn_FAILURE;
                timed(store, [&] { result = exporter.Export(scene, id, out); }, storeExact);
                if (result != aiReturn_SUCCESS) throw std::runtime_error(std::string("assimp export: ") + exporter.GetErrorString());
                if (verify) {
                    Assimp::Importer again;
                    assimpConfigure(again);
                    const aiScene* back = again.ReadFile(out, assimpFlags(lib));
                    uint64_t bv = 0, bt = 0;
                    if (back) assimpCount(back, bv, bt);
                    if (!back || bt != store.triangles) store.check = counts(bv, bt);
                }
            }
        } else if (lib == "openmesh") {
            OMesh mesh;
            timed(load, [&] { openmeshRead(file, mesh); }, loadExact);
            load.vertices = store.vertices = mesh.n_vertices();
            load.triangles = store.triangles = mesh.n_faces();
            if (write) {
                stage = "write";
                timed(store, [&] { openmeshWrite(fmt, out, mesh); }, storeExact);
                if (verify) {
                    OMesh back;
                    openmeshRead(out, back);
                    if (back.n_faces() != mesh.n_faces() || back.n_vertices() != mesh.n_vertices())
                        store.check = counts(back.n_vertices(), back.n_faces());
                }
            }
        } else {
            throw std::runtime_error("unknown library " + lib);
        }
    } catch (const CbException& e) {
        if (std::string(stage) == "write") print("load", load, loadExact);
        std::printf("RESULT op=%s failed=%s\n", stage, e.Describe().c_str());
        return 1;
    } catch (const std::exception& e) {
        if (std::string(stage) == "write") print("load", load, loadExact);
        std::printf("RESULT op=%s failed=%s\n", stage, e.what());
        return 1;
    }
    print("load", load, loadExact);
    if (write) {
        print("write", store, storeExact);
        std::filesystem::remove(out);
    }
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
