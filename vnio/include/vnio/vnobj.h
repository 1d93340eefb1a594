#pragma once
// VnOBJ: Wavefront OBJ text (the polygonal subset) with its MTL material library,
// per-triangle texture coordinates, material ids and named groups.
//
// Orientation: OBJ files are read mirrored in z, with the texture v axis flipped (v -> 1 - v)
// and the winding reversed; the writer applies the same three changes, so a mesh written and
// read back keeps its coordinates and orientation.
//
// Attributes: texture coordinates live in the per-triangle attribute named by
// Geometry::CAttributeConfigurationTriangleParameters (three (u, v) pairs in corner order;
// a triangle without texture holds the largest finite float in all six values), the
// material id in the per-triangle unsigned attribute "triangleType".
#include "basepool/cbarray.h"
#include "basepool/cbmap.h"
#include "basepool/cbstreamascii.h"
#include "basepool/cbstring.h"
#include "vn3dbase/cregiontriangulation.h"
#include "vn3dbase/ctriangulation.h"
#include "vnbase/vncolor.h"
#include "vnbase/vnstreamreadascii.h"

class VnOBJ {
public:
    // One MTL material. A material starts as ambient 0, diffuse and specular white, opaque,
    // without maps; colours are packed VnColorRGBA words.
    struct SMaterial {
        uint32_t ambient = 0;
        uint32_t diffuse = VnColorRGBA::c_WHITE.GetValue();
        uint32_t specular = VnColorRGBA::c_WHITE.GetValue();
        float opacity = 1.f;
        CStringW diffuseMap;
        CStringW bumpMap;
    };
    struct SMaterialInfo {
        // Material id ("triangleType" value) -> material name, ids in order of first use.
        CbMap<unsigned int, CStringA> materialNames;
        // Material name -> material, as read from the MTL file.
        CbMap<CStringA, SMaterial> materials;
    };
    // One named group: the triangles it holds, and its name.
    struct SGroup {
        Geometry::CRegionTriangulation<Geometry::CTriangleRef> region;
        CStringA name;
    };

    // ---- reading ----
    // The file-name forms return false when the OBJ file is missing, when it holds a keyword
    // outside the accepted lists (the mesh keeps what was read before it), when the MTL file it
    // names is missing beside it (the mesh stays loaded), or when a stream, container or mesh
    // error occurs (the mesh is reset). Any previous content of the mesh is replaced.
    static bool Load(const CStringW& fileName, Geometry::CTriangulation& mesh);
    static bool LoadWithMaterial(const CStringW& fileName, Geometry::CTriangulation& mesh, SMaterialInfo& materialInfo);
    // materialInfo.materialNames is extended (ids continue after the entries passed in);
    // materialInfo.materials is replaced by the MTL file's content when the OBJ names one.
    static bool LoadWithMaterialAndGroups(const CStringW& fileName, Geometry::CTriangulation& mesh,
                                          SMaterialInfo& materialInfo, CbArray<SGroup>& groups);
    // The stream forms report only errors: they return true whatever the parse gave, and
    // false (mesh reset) when a stream, container or mesh error occurred.
    static bool Serialize(VnStreamReadASCIIT<CStringA>& stream, Geometry::CTriangulation& mesh);
    static bool Serialize(VnStreamReadASCIIT<CStringA>& stream, Geometry::CTriangulation& mesh,
                          CStringW& materialLibraryName, CbMap<unsigned int, CStringA>& materialNames);
    // Parses MTL text. The first definition of a name wins; a material without any property
    // line is not in the result. Stream errors pass to the caller.
    static CbMap<CStringA, SMaterial> ReadMTL(VnStreamReadASCIIT<CStringA>& stream);

    // ---- writing ----
    // Every form returns true once the text is written (write errors inside are swallowed and
    // leave the text cut short; check the stream). A groups array of more than 255 entries
    // throws CbExceptionPreconditionViolation before anything is written.
    static bool Serialize(CbStreamWriteASCIIT<CStringA>& stream, const Geometry::CTriangulation& mesh);
    static bool Serialize(CbStreamWriteASCIIT<CStringA>& stream, const Geometry::CTriangulation& mesh,
                          const CStringA& header);
    static bool Serialize(CbStreamWriteASCIIT<CStringA>& stream, const Geometry::CTriangulation& mesh,
                          const CbArray<SGroup>& groups);
    // mtlStream may be null: then no MTL text and no "mtllib" line are written.
    static bool Serialize(CbStreamWriteASCIIT<CStringA>& stream, const Geometry::CTriangulation& mesh,
                          CbStreamWriteASCIIT<CStringA>* mtlStream, const CStringA& materialLibraryName,
                          const SMaterialInfo& materialInfo, const CStringA& header);
    static bool Serialize(CbStreamWriteASCIIT<CStringA>& stream, const Geometry::CTriangulation& mesh,
                          CbStreamWriteASCIIT<CStringA>* mtlStream, const CStringA& materialLibraryName,
                          const SMaterialInfo& materialInfo, const CStringA& header, const CbArray<SGroup>& groups);

    // The header the short Serialize forms write: the library's copyright notice, with the
    // year range ending in the year the library was loaded.
    static const CStringA& GetStoredNotice();

private:
    static bool readASCII(Geometry::CTriangulation& mesh, CStringW& materialLibraryName,
                          VnStreamReadASCIIT<CStringA>& stream, CbMap<unsigned int, CStringA>& materialNames,
                          CbArray<SGroup>& groups);
    static bool writeASCII(const Geometry::CTriangulation& mesh, CbStreamWriteASCIIT<CStringA>& stream,
                           CbStreamWriteASCIIT<CStringA>* mtlStream, const CStringA& materialLibraryName,
                           const SMaterialInfo& materialInfo, const CStringA& header, const CbArray<SGroup>& groups);
    static bool writeMTL(CbStreamWriteASCIIT<CStringA>& mtlStream, const SMaterialInfo& materialInfo,
                         const CStringA& header);
    static void writeUseMTL(CbStreamWriteASCIIT<CStringA>& stream, const SMaterialInfo& materialInfo,
                            unsigned int materialId);
};
