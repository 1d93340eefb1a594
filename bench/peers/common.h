#pragma once
// Shared pieces of the peer comparison driver: a plain indexed mesh, the neutral file
// writers every library reads from, clocks and the per-operation memory probe.
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace Compare {

// Positions and triangles only: what every library under comparison can represent alike.
struct SMesh {
    std::vector<float> xyz;      // 3 per vertex
    std::vector<uint32_t> tris;  // 3 per triangle
    uint32_t Vertices() const { return static_cast<uint32_t>(xyz.size() / 3); }
    uint32_t Triangles() const { return static_cast<uint32_t>(tris.size() / 3); }
};

// Counts a reader is expected to see in the prepared files.
struct SExpected {
    uint32_t vertices = 0;  // indexed vertices (all referenced)
    uint32_t distinct = 0;  // distinct positions (what welding a soup gives)
    uint32_t triangles = 0;
};

// ---- neutral writers / reader (bench/peers/meshfiles.cpp) ----
// Text numbers are the shortest decimal that reads back to the same float, so every
// format holds exactly the same positions.
void WriteBinarySTL(const std::string& path, const SMesh& mesh);
void WriteOBJ(const std::string& path, const SMesh& mesh);
// Binary little-endian: float x y z, list uchar int vertex_indices.
void WriteBinaryPLY(const std::string& path, const SMesh& mesh);
void WriteOFF(const std::string& path, const SMesh& mesh);
// Reads back what WriteBinaryPLY wrote (and nothing else).
SMesh ReadOwnPLY(const std::string& path);
uint32_t CountDistinctPositions(const SMesh& mesh);
// A bumpy UV sphere with `segments` x `rings` bands: closed, manifold, genus 0.
SMesh MakeBumpySphere(uint32_t segments, uint32_t rings);
// Loads any source file with VnIO and keeps positions and triangles, dropping vertices no
// triangle uses. Throws std::runtime_error with the reason.
SMesh LoadSource(const std::string& path);

// ---- timing and memory ----
inline double NowMs() {
    using namespace std::chrono;
    return duration<double, std::milli>(steady_clock::now().time_since_epoch()).count();
}

// Peak resident memory of one operation, above what the process held when it began.
// Resets the kernel's high-water mark first (clear_refs 5) so an earlier peak in the same
// process (loading before a write, say) does not hide the operation's own.
class CMemProbe {
public:
    void Start();
    double PeakGrowthMB() const;
    bool Exact() const { return m_reset; }

private:
    bool m_reset = false;
    long m_rssBeforeKb = 0;
    long m_maxrssBeforeKb = 0;
};

long ProcStatusKb(const char* key);
std::string FileToString(const std::string& path);
uint64_t FileSize(const std::string& path);

// ---- child operations (bench/peers/meshops.cpp, bench/peers/codecs.cpp) ----
struct SOpResult {
    double ms = 0;
    double peakMB = 0;
    uint64_t vertices = 0, triangles = 0;
    std::string check = "ok"; // "ok" or what was wrong
};
// lib: vnio, tinyobj, assimp, assimp-join, openmesh; ops: load or load+write; fmt: stl obj
// ply off. `verify` re-reads a written file with the same library and checks its counts.
int RunOp(const std::string& lib, const std::string& ops, const std::string& fmt, const std::string& file,
          const std::string& out, bool verify);
// What a VnIO load of `file` builds besides positions and triangles, one line.
std::string InspectVnioLoad(const std::string& fmt, const std::string& file);

} // namespace Compare
