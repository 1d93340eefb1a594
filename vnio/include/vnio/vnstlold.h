#pragma once
// STL over the legacy mesh interface (VnTriangulationBase).
//
// The binary layout is the one of VnSTL (80-byte header, u32 count, 50-byte records). What
// differs from VnSTL: the ASCII reader works line by line; the ASCII writer indents its
// lines and prints "%f" numbers; headers travel as wide text of any length; facet normals
// written are always computed from the geometry; and the binary writer can put several
// meshes into one file, numbering them in the 16-bit attribute word, which the component
// reader uses to split the file again.
//
// Read flags: the bit values of VnSTL::EFlagsRead (1 join coincident vertices; with 1, 2
// also drops triangles the join made degenerate; with 1, 4 joins within 0.01; 64 computes
// vertex normals). Entry points without flags use c_FlagsDefault (71, all four bits).
//
// Readers fill a VnTriangulationDynamic target directly, adding to what it holds; any
// other target is filled through a temporary VnTriangulationDynamic that is then assigned
// to it. A reader that returns false has reset the target.
#include <cstdint>
#include <memory>

#include "basepool/cbarray.h"
#include "basepool/cbstreamascii.h"
#include "basepool/cbstreambinary.h"
#include "basepool/cbstring.h"
#include "vn3dbase/vntriangulationbase.h"
#include "vnbase/vnstreamfile.h"
#include "vnbase/vnstreamreadascii.h"

// One mesh of a multi-mesh binary STL file. `created` is true when the component reader
// allocated `mesh` (a VnTriangulationDynamic): the caller then owns it and deletes it, for
// example with DeleteCreated.
struct VnTriangulationComponent {
    bool created = false;
    VnTriangulationBase* mesh = nullptr;

    // Deletes the meshes the reader created and clears their entries.
    static void DeleteCreated(CbArray<VnTriangulationComponent>& components);
};

class VnSTLOld {
public:
    static constexpr uint32_t c_FlagsDefault = 71;

    // True when the stream's file size is 84 + 50 * count (count from bytes 80..83, the
    // product taken in 32-bit arithmetic). Peeks; consumes nothing.
    static bool IsBinary(VnStreamReadBinaryFileRaw& stream);

    // Loads a binary or ASCII file with c_FlagsDefault. False when the file does not exist
    // or a binary read fails. header receives the binary header's bytes up to the first zero
    // byte, widened byte by byte (empty for ASCII files). Exceptions of opening the file and
    // the ASCII reader's CbException (line 681) pass to the caller.
    static bool Load(const CStringW& path, VnTriangulationBase& mesh);
    static bool Load(const CStringW& path, VnTriangulationBase& mesh, CStringW& header, bool& isBinary);

    // ASCII read, line by line. Blank lines and lines starting with '!', '#' or '$' are
    // skipped; the first word of every other line must be the keyword expected next
    // (solid; facet or endsolid; outer; vertex three times; endloop; endfacet; facet or
    // endsolid). A facet line takes its three numbers as the normal only when it reads
    // "facet normal x y z"; otherwise the facet gets (0, 0, 0). A vertex line needs three
    // numbers. The end of the text is accepted like endsolid (a facet cut short is
    // dropped). An unexpected word or a short vertex line throws
    // CbException("vnlibraries/vnio/vnstlold", 681, "VnSTLOld::readASCII"); the target
    // then holds the facets completed so far when it is a VnTriangulationDynamic.
    // Returns the join step's result.
    static bool Serialize(VnStreamReadASCIIT<CStringA>& stream, VnTriangulationBase& mesh, uint32_t flags);

    // Binary reads. The header is read first and its stream errors pass to the caller; a
    // count of 1431655766 or more, a short record or any failure while reading the
    // records gives false. The attribute words are read and dropped.
    static bool Serialize(CbStreamReadBinary& stream, VnTriangulationBase& mesh);
    static bool Serialize(CbStreamReadBinary& stream, VnTriangulationBase& mesh, uint32_t flags);
    static bool Serialize(CbStreamReadBinary& stream, VnTriangulationBase& mesh, CStringW& header);
    static bool Serialize(CbStreamReadBinary& stream, VnTriangulationBase& mesh, CStringW& header, uint32_t flags);
    static bool Serialize(CbStreamReadBinary& stream, VnTriangulationBase& mesh, CbArray<unsigned char>& header, uint32_t flags);

    // Component read, the inverse of the multi-mesh writer: a record with attribute word w
    // goes to components[w]; the array grows to the largest w + 1, and every entry it adds
    // gets a new VnTriangulationDynamic with created = true (entries that exist with a null
    // mesh get one too). Existing meshes receive their records as the single-mesh readers
    // add them. Every entry then runs the join step with flags. wholeFile, when not null,
    // also receives every record (the file as one mesh) and is joined likewise. On false
    // the array is back to its previous size, the meshes created are deleted and the
    // meshes that received records are reset.
    static bool Serialize(CbStreamReadBinary& stream, CbArray<VnTriangulationComponent>& components,
                          VnTriangulationBase* wholeFile, uint32_t flags);

    // ASCII write: "solid <default text>", per triangle the indented facet block with
    // "%f" numbers and the unit normal computed from the corners ((0, 0, 0) when
    // degenerate), "endsolid". False on a stream failure.
    static bool Serialize(CbStreamWriteASCIIT<CStringA>& stream, const VnTriangulationBase& mesh);

    // Binary write with the default header; every attribute word is 0. False on failure.
    static bool Serialize(CbStreamWriteBinary& stream, const VnTriangulationBase& mesh);

    // Binary write with a header text (narrowed byte by byte; a text over 80 characters
    // is written whole and lengthens the header). Always returns false, even when the
    // file is complete: callers must not rely on the result.
    static bool Serialize(CbStreamWriteBinary& stream, const VnTriangulationBase& mesh, const CStringW& header);

    // Several meshes in one file: the count is the sum of their triangles, mesh i's records
    // carry the attribute word i. Stops at the first failure; true when all succeeded.
    // A null entry, more than 65536 meshes or more than 2^32 - 1 triangles in all throw
    // CbExceptionPreconditionViolation("vnlibraries/vnio/vnstlold", 540, "VnSTLOld::Serialize")
    // before anything is written.
    static bool Serialize(CbStreamWriteBinary& stream, const CbArray<std::shared_ptr<VnTriangulationBase>>& meshes);

private:
    static bool readBinaryHeader(CbStreamReadBinary& stream, CbArray<unsigned char>& header, uint32_t& count);
    static bool readBinary(VnTriangulationBase& mesh, CbStreamReadBinary& stream, uint32_t count, uint32_t flags);
    static bool readASCII(VnTriangulationBase& mesh, VnStreamReadASCIIT<CStringA>& stream, uint32_t flags);
    static bool writeBinaryHeader(CbStreamWriteBinary& stream, const CStringA& text, uint32_t count);
    static bool writeBinary(const VnTriangulationBase& mesh, CbStreamWriteBinary& stream, uint16_t component);
    static bool writeASCII(const VnTriangulationBase& mesh, CbStreamWriteASCIIT<CStringA>& stream);
};
