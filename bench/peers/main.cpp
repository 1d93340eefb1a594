// vnio_compare: side-by-side figures of VnIO and peer libraries.
//
//   vnio_compare run --work DIR --report FILE [--corpus DIR] [--header FILE] [--quick] [--runs N]
//   vnio_compare op LIB load|load+write FMT FILE OUT [--verify]   measured operations (a child of run)
//   vnio_compare inspect FMT FILE                      what a VnIO load builds
//
// `run` prepares every mesh once (positions and triangles only, written in every format
// by this program's own plain writers), measures each library's load (and write) of each
// file in fresh processes, compares compressed sizes in process, and writes one markdown
// report.
#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "codecs.h"
#include "common.h"

extern char** environ;

namespace fs = std::filesystem;
using namespace Compare;

namespace {

const char* const kFormats[] = {"stl", "obj", "ply", "off"};
const char* formatTitle(const std::string& f) {
    if (f == "stl") return "STL binary";
    if (f == "obj") return "OBJ";
    if (f == "ply") return "PLY binary";
    return "OFF";
}

struct SColumn {
    const char* lib;
    const char* op;
    const char* title;
};
const SColumn kColumns[] = {
    {"vnio", "load", "VnIO load"},           {"vnio", "write", "VnIO write"},
    {"tinyobj", "load", "tinyobjloader load"}, {"assimp", "load", "assimp load"},
    {"assimp-join", "load", "assimp load +Join"}, {"assimp-join", "write", "assimp export"},
    {"openmesh", "load", "OpenMesh read"},   {"openmesh", "write", "OpenMesh write"},
};

bool applies(const SColumn& c, const std::string& fmt) {
    if (std::string(c.lib) == "tinyobj") return fmt == "obj";
    if (std::string(c.lib) == "assimp-join" && std::string(c.op) == "write") return fmt != "off";
    return true;
}

struct SPrepared {
    std::string name, source, base; // base: path without extension
    SExpected expected;
    bool generated = false;
};

struct SCell {
    bool ran = false;
    std::vector<double> ms, mb;
    uint64_t v = 0, t = 0;
    std::string failure, check, countNote;
    bool countOk = true;
    bool soup = false;
};

double median(std::vector<double> v) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}

std::string fmtMs(double ms) {
    char b[32];
    if (ms < 10) std::snprintf(b, sizeof b, "%.2f", ms);
    else if (ms < 100) std::snprintf(b, sizeof b, "%.1f", ms);
    else std::snprintf(b, sizeof b, "%.0f", ms);
    return b;
}
std::string fmtNum(double v, const char* f) {
    char b[64];
    std::snprintf(b, sizeof b, f, v);
    return b;
}
std::string fmtErr(double e) { return fmtNum(e, "%.3g"); }

std::string selfPath() {
    char buf[4096];
    const ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
    if (n <= 0) throw std::runtime_error("cannot find this executable");
    return std::string(buf, size_t(n));
}

// Runs argv with stdout to `outFile` (or captured when empty) and stderr appended to
// `errFile`. Returns the exit status (128 + signal for a signal).
int spawn(const std::vector<std::string>& argv, const std::string& outFile, const std::string& errFile, std::string* captured) {
    int pipeFd[2] = {-1, -1};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (captured) {
        if (pipe(pipeFd) != 0) throw std::runtime_error("pipe failed");
        posix_spawn_file_actions_adddup2(&actions, pipeFd[1], 1);
        posix_spawn_file_actions_addclose(&actions, pipeFd[0]);
        posix_spawn_file_actions_addclose(&actions, pipeFd[1]);
    } else {
        posix_spawn_file_actions_addopen(&actions, 1, outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    }
    posix_spawn_file_actions_addopen(&actions, 2, errFile.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    std::vector<char*> args;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    pid_t pid = 0;
    const int rc = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (captured) close(pipeFd[1]);
    if (rc != 0) {
        if (captured) close(pipeFd[0]);
        return 127;
    }
    if (captured) {
        char buf[4096];
        ssize_t n;
        while ((n = read(pipeFd[0], buf, sizeof buf)) > 0) captured->append(buf, size_t(n));
        close(pipeFd[0]);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return WEXITSTATUS(status);
}

// One map of key=value per RESULT line, by its op.
std::map<std::string, std::map<std::string, std::string>> parseResults(const std::string& out) {
    std::map<std::string, std::map<std::string, std::string>> all;
    std::istringstream lines(out);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.rfind("RESULT ", 0) != 0) continue;
        std::map<std::string, std::string> kv;
        std::istringstream s(line.substr(7));
        std::string item;
        while (s >> item) {
            const size_t eq = item.find('=');
            if (eq == std::string::npos) continue;
            if (item.compare(0, eq, "failed") == 0) { // the reason runs to the end of the line
                kv["failed"] = line.substr(line.find("failed=") + 7);
                break;
            }
            kv[item.substr(0, eq)] = item.substr(eq + 1);
        }
        all[kv["op"]] = kv;
    }
    return all;
}

// The vertex count each library is expected to report for a prepared file.
void checkCounts(SCell& c, const std::string& lib, const std::string& fmt, const SExpected& e) {
    const bool welds = lib == "assimp-join" || (fmt == "stl" && (lib == "vnio" || lib == "openmesh"));
    const uint64_t want = welds ? e.distinct : e.vertices;
    if (c.t != e.triangles) {
        c.countOk = false;
    } else if (c.v != want) {
        // assimp without joining hands out one vertex per corner: fine, but said so.
        if (lib == "assimp" && c.v == 3ull * e.triangles) c.soup = true;
        else c.countOk = false;
    }
    if (!c.countOk)
        c.countNote = "V " + std::to_string(c.v) + "/" + std::to_string(want) + ", T " + std::to_string(c.t) + "/" +
                      std::to_string(e.triangles);
}

struct SContext {
    std::string self, work, errLog;
    int runs = 3;
    bool quick = false;
    std::vector<std::string> log;
};

void progress(const std::string& s) {
    std::fprintf(stderr, "[compare] %s\n", s.c_str());
    std::fflush(stderr);
}

// Runs one library on one file: each run a fresh process that loads the file and, when the
// row has a write column for the library, writes the loaded mesh; fills those cells.
void measure(SContext& ctx, const SPrepared& p, const std::string& lib, const std::string& fmt, SCell* loadCell, SCell* writeCell) {
    const std::string file = p.base + "." + fmt;
    const std::string out = ctx.work + "/out-" + lib + "." + fmt;
    SCell* cells[2] = {loadCell, writeCell};
    const char* ops[2] = {"load", "write"};
    for (SCell* c : cells)
        if (c) c->ran = true;
    for (int run = 0; run < ctx.runs; ++run) {
        std::vector<std::string> argv = {ctx.self, "op", lib, writeCell ? "load+write" : "load", fmt, file, out};
        if (run == 0) argv.push_back("--verify");
        std::string captured;
        const int rc = spawn(argv, "", ctx.errLog, &captured);
        fs::remove(out);
        auto results = parseResults(captured);
        bool failed = false;
        for (int i = 0; i < 2; ++i) {
            SCell* cell = cells[i];
            if (!cell || !cell->failure.empty()) continue;
            auto& kv = results[ops[i]];
            if (kv.count("failed") || !kv.count("ms")) {
                cell->failure = kv.count("failed") ? kv["failed"] : "exit status " + std::to_string(rc);
                failed = true;
                continue;
            }
            cell->ms.push_back(std::stod(kv["ms"]));
            cell->mb.push_back(std::stod(kv["peak_mb"]));
            if (run == 0) {
                cell->v = std::stoull(kv["v"]);
                cell->t = std::stoull(kv["t"]);
                if (kv["check"] != "ok") cell->check = kv["check"];
            }
        }
        if (failed) break;
    }
    for (SCell* c : cells)
        if (c && c->failure.empty()) checkCounts(*c, lib, fmt, p.expected);
}

std::string cellText(const SCell& c) {
    if (!c.ran) return "—";
    if (!c.failure.empty()) return "FAILED: " + c.failure;
    std::string s = fmtMs(median(c.ms)) + " ms · " + fmtNum(median(c.mb), "%.0f") + " MB";
    if (c.soup) s += " †";
    if (!c.countOk) s += " ⚠ counts " + c.countNote;
    if (!c.check.empty()) s += " ⚠ " + c.check;
    return s;
}

bool usable(const SCell& c) { return c.ran && c.failure.empty() && c.countOk && c.check.empty() && !c.ms.empty(); }
// A peer result that is a fair yardstick: right counts and an indexed mesh (not a soup).
bool comparable(const SCell& c) { return usable(c) && !c.soup; }

std::string ratioText(const SCell& vn, const std::vector<std::pair<std::string, const SCell*>>& peers, double* ratio) {
    *ratio = 0;
    if (!usable(vn)) return "—";
    double best = 0;
    std::string who;
    for (const auto& [name, c] : peers)
        if (comparable(*c) && (who.empty() || median(c->ms) < best)) {
            best = median(c->ms);
            who = name;
        }
    if (who.empty()) return "no peer";
    *ratio = median(vn.ms) / best;
    return fmtNum(*ratio, "%.2g") + "× " + who;
}

SPrepared prepare(const std::string& work, const std::string& name, const SMesh& mesh, const std::string& source, bool generated) {
    SPrepared p;
    p.name = name;
    p.source = source;
    p.generated = generated;
    p.base = work + "/" + name;
    WriteBinarySTL(p.base + ".stl", mesh);
    WriteOBJ(p.base + ".obj", mesh);
    WriteBinaryPLY(p.base + ".ply", mesh);
    WriteOFF(p.base + ".off", mesh);
    p.expected.vertices = mesh.Vertices();
    p.expected.triangles = mesh.Triangles();
    p.expected.distinct = CountDistinctPositions(mesh);
    return p;
}

// ---- compressed sizes ----
struct SMatched {
    int qp = 0;
    SDracoResult draco[2]; // level 7, level 10
    SVnmResult vnm;
    double precision = 0;
    SVnmResult coarser; // one grid step coarser than the one chosen (error above Draco's)
    bool haveCoarser = false;
    bool capped = false; // a precision four times coarser than needed still met the error
    SVnmDiagnostic diagnostic; // at the chosen precision
};

SMatched matchDraco(const SMesh& mesh, int qp, int runs) {
    SMatched m;
    m.qp = qp;
    m.draco[0] = RunDraco(mesh, qp, 7, runs, true);
    m.draco[1] = RunDraco(mesh, qp, 10, runs, false);
    const double target = m.draco[0].error.l2;
    if (!m.draco[0].problem.empty() || !(target > 0)) return m;
    // The stream's grid step is a power of two at most the precision asked for, so the
    // precisions worth trying are powers of two: from clearly too coarse down to the first
    // whose actual error is within Draco's.
    // Two powers of two above the expected one, to see whether the writer caps the step.
    int k = static_cast<int>(std::ceil(std::log2(8 * target))) + 2;
    for (int tries = 0; tries < 18; ++tries, --k) {
        const double precision = std::ldexp(1.0, k);
        SVnmResult r = RunVnm(mesh, precision, 1, false);
        if (!r.problem.empty()) {
            m.vnm = r;
            m.precision = precision;
            return m;
        }
        if (r.error.l2 <= target) {
            m.capped = tries == 0;
            m.precision = precision;
            m.vnm = RunVnm(mesh, precision, runs, true);
            m.diagnostic = DiagnoseVnm(mesh, precision);
            return m;
        }
        m.coarser = r;
        m.haveCoarser = true;
    }
    m.vnm.problem = "no precision reached Draco's error";
    return m;
}

double bitsPerVertex(uint64_t bytes, uint32_t vertices) { return vertices ? 8.0 * double(bytes) / vertices : 0; }

struct SLossless {
    uint64_t ply = 0, xz = 0, zstd = 0;
    double xzC = 0, xzD = 0, zstdC = 0, zstdD = 0;
    std::string xzProblem, zstdProblem;
    SVnmResult vnm;
};

void externalCompress(SContext& ctx, const std::string& ply, const std::string& tool, uint64_t& bytes, double& cMs, double& dMs,
                      std::string& problem) {
    const std::string packed = ply + (tool == "xz" ? ".xz" : ".zst");
    std::vector<std::string> c = tool == "xz" ? std::vector<std::string>{"xz", "-9", "-T1", "-k", "-c", ply}
                                              : std::vector<std::string>{"zstd", "-19", "-q", "-c", ply};
    std::vector<std::string> d = tool == "xz" ? std::vector<std::string>{"xz", "-d", "-T1", "-c", packed}
                                              : std::vector<std::string>{"zstd", "-d", "-q", "-c", packed};
    double t0 = NowMs();
    int rc = spawn(c, packed, ctx.errLog, nullptr);
    cMs = NowMs() - t0;
    if (rc != 0) {
        problem = tool + " exit " + std::to_string(rc);
        return;
    }
    bytes = FileSize(packed);
    const std::string back = ply + ".back";
    t0 = NowMs();
    rc = spawn(d, back, ctx.errLog, nullptr);
    dMs = NowMs() - t0;
    if (rc != 0 || FileToString(back) != FileToString(ply)) problem = tool + " round trip differs";
    fs::remove(back);
    fs::remove(packed);
}

// What touching fresh memory costs here: allocation-heavy code pays it on every first touch,
// and on virtual machines it can dominate small operations.
double freshPageMsPerMiB() {
    constexpr size_t kBytes = size_t(8) << 20;
    std::vector<double> t;
    for (int i = 0; i < 5; ++i) {
        void* p = mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (p == MAP_FAILED) return 0;
        const double t0 = NowMs();
        std::memset(p, 1, kBytes);
        t.push_back((NowMs() - t0) / 8.0);
        munmap(p, kBytes);
    }
    return median(t);
}

int run(const std::vector<std::string>& args) {
    SContext ctx;
    std::string report, corpus, header;
    for (size_t i = 0; i < args.size(); ++i) {
        auto next = [&]() -> std::string {
            if (i + 1 >= args.size()) throw std::runtime_error(args[i] + " needs a value");
            return args[++i];
        };
        if (args[i] == "--work") ctx.work = next();
        else if (args[i] == "--report") report = next();
        else if (args[i] == "--corpus") corpus = next();
        else if (args[i] == "--header") header = next();
        else if (args[i] == "--runs") ctx.runs = std::stoi(next());
        else if (args[i] == "--quick") ctx.quick = true;
        else throw std::runtime_error("unknown option " + args[i]);
    }
    if (ctx.work.empty() || report.empty()) throw std::runtime_error("run needs --work and --report");
    if (ctx.quick) ctx.runs = 1;
    if (ctx.runs < 1) ctx.runs = 1;
    fs::create_directories(ctx.work);
    ctx.self = selfPath();
    ctx.errLog = ctx.work + "/child-stderr.log";
    fs::remove(ctx.errLog);
    const double start = NowMs();
    const double pageCost = freshPageMsPerMiB();

    // ---- meshes ----
    std::vector<SPrepared> meshes;
    std::vector<std::string> corpusNotes;
    const bool haveCorpus = !corpus.empty() && fs::is_directory(corpus);
    if (!ctx.quick) {
        const char* files[] = {"ply/Armadillo.ply", "ply/bun_zipper.ply", "ply/hammer_loop2.ply", "stl/nasa_dawn.stl",
                               "obj/boot.obj",      "obj/skull_low_resolution.obj"};
        if (!haveCorpus) {
            corpusNotes.push_back("**Mesh corpus not found** (looked in `" + corpus + "`): only the generated mesh is measured.");
        } else {
            for (const char* f : files) {
                const std::string path = corpus + "/" + f;
                if (!fs::exists(path)) {
                    corpusNotes.push_back("corpus file `" + std::string(f) + "` is missing: skipped");
                    continue;
                }
                progress("preparing " + std::string(f));
                try {
                    std::string name = fs::path(f).stem().string();
                    meshes.push_back(prepare(ctx.work, name, LoadSource(path), f, false));
                } catch (const std::exception& e) {
                    corpusNotes.push_back("`" + std::string(f) + "` could not be prepared: " + e.what());
                }
            }
        }
    } else {
        corpusNotes.push_back("`--quick`: one small generated mesh, one run per figure (smoke check, not a measurement).");
        if (!haveCorpus) corpusNotes.push_back("**Mesh corpus not found** (looked in `" + corpus + "`).");
    }
    progress("generating the bumpy sphere");
    if (ctx.quick) meshes.push_back(prepare(ctx.work, "sphere-14k", MakeBumpySphere(120, 60), "generated", true));
    else meshes.push_back(prepare(ctx.work, "sphere-1M", MakeBumpySphere(1000, 500), "generated", true));

    // ---- a. load / write ----
    std::map<std::string, std::map<std::string, std::vector<SCell>>> cells; // mesh -> format -> columns
    for (const SPrepared& p : meshes)
        for (const char* fmt : kFormats) {
            progress("load/write " + p.name + " " + fmt);
            auto& row = cells[p.name][fmt];
            row.assign(std::size(kColumns), SCell{});
            for (size_t i = 0; i < std::size(kColumns); ++i) {
                const SColumn& col = kColumns[i];
                if (std::string(col.op) != "load" || !applies(col, fmt)) continue;
                SCell* write = nullptr;
                for (size_t j = 0; j < std::size(kColumns); ++j)
                    if (std::string(kColumns[j].lib) == col.lib && std::string(kColumns[j].op) == "write" && applies(kColumns[j], fmt))
                        write = &row[j];
                measure(ctx, p, col.lib, fmt, &row[i], write);
            }
        }
    std::map<std::string, std::string> inspect;
    for (const char* fmt : kFormats) {
        std::string captured;
        spawn({ctx.self, "inspect", fmt, meshes.back().base + "." + fmt}, "", ctx.errLog, &captured);
        while (!captured.empty() && captured.back() == '\n') captured.pop_back();
        inspect[fmt] = captured.empty() ? "(inspection failed)" : captured;
    }

    // ---- b. lossy sizes against Draco, c. lossless sizes ----
    std::map<std::string, std::vector<SMatched>> matched;
    std::map<std::string, SLossless> lossless;
    std::map<std::string, double> meanEdge;
    std::map<std::string, SVnmDefault> asLoaded; // at the precision matched to Draco's qp 14
    for (const SPrepared& p : meshes) {
        const SMesh mesh = ReadOwnPLY(p.base + ".ply");
        meanEdge[p.name] = MeanEdgeLength(mesh);
        for (int qp : {11, 14, 16}) {
            progress("Draco / VnIO quantised " + p.name + " qp " + std::to_string(qp));
            matched[p.name].push_back(matchDraco(mesh, qp, ctx.runs));
        }
        if (matched[p.name].size() > 1 && matched[p.name][1].vnm.problem.empty())
            asLoaded[p.name] = RunVnmAsLoaded(p.base + ".ply", matched[p.name][1].precision);
        progress("lossless " + p.name);
        SLossless& l = lossless[p.name];
        l.ply = FileSize(p.base + ".ply");
        externalCompress(ctx, p.base + ".ply", "xz", l.xz, l.xzC, l.xzD, l.xzProblem);
        externalCompress(ctx, p.base + ".ply", "zstd", l.zstd, l.zstdC, l.zstdD, l.zstdProblem);
        l.vnm = RunVnm(mesh, 0, ctx.runs, true);
    }

    // ---- report ----
    std::ostringstream md;
    md << "# VnIO and peer libraries, side by side\n\n";
    if (!header.empty()) md << FileToString(header);
    md << "- First touch of fresh memory (page faults): " << fmtNum(pageCost, "%.2f")
       << " ms per MiB on this machine, measured at the start of the run.\n\n";
    for (const std::string& n : corpusNotes) md << "- " << n << "\n";
    md << "- Meshes (positions and triangles only; vertices no triangle uses dropped):";
    for (const SPrepared& p : meshes)
        md << " `" << p.name << "` (" << p.source << ", V " << p.expected.vertices << ", T " << p.expected.triangles
           << (p.expected.distinct != p.expected.vertices ? ", distinct positions " + std::to_string(p.expected.distinct) : "")
           << ");";
    md << "\n- Runs per figure: " << ctx.runs << " (median). Each run of a library on a file is a fresh process that loads "
          "the file and then, where there is a write column, writes what it loaded; each operation is timed alone and "
          "the kernel's memory high-water mark is reset just before it.\n\n";

    md << "## a. Load / write per format\n\n";
    md << "Each cell: wall time of the operation alone (median) · peak resident memory above what the process held just "
          "before it (for a write: above the loaded mesh). Ratio columns: VnIO's time over the fastest peer that "
          "produced an indexed mesh with the right counts (below 1: VnIO faster).\n\n";
    md << "| mesh | format |";
    for (const SColumn& c : kColumns) md << " " << c.title << " |";
    md << " VnIO load vs fastest peer | VnIO write vs fastest peer | why VnIO is behind |\n|---|---|";
    for (size_t i = 0; i < std::size(kColumns) + 3; ++i) md << "---|";
    md << "\n";
    for (const SPrepared& p : meshes)
        for (const char* fmt : kFormats) {
            const auto& row = cells[p.name][fmt];
            md << "| " << p.name << " | " << formatTitle(fmt) << " |";
            for (const SCell& c : row) md << " " << cellText(c) << " |";
            double loadRatio = 0, writeRatio = 0;
            md << " " << ratioText(row[0], {{"tinyobjloader", &row[2]}, {"assimp", &row[3]}, {"assimp+Join", &row[4]},
                                            {"OpenMesh", &row[6]}}, &loadRatio)
               << " | " << ratioText(row[1], {{"assimp", &row[5]}, {"OpenMesh", &row[7]}}, &writeRatio) << " | ";
            std::string why;
            if (loadRatio > 1.05) why += "The load also builds " + inspect[fmt] + ". ";
            if (writeRatio > 1.05 && usable(row[1]) && median(row[1].ms) < 2 * pageCost && median(row[1].mb) >= 0.8)
                why += "The write costs about a first touch of 1 MiB of fresh memory here (peak +" +
                       fmtNum(median(row[1].mb), "%.1f") + " MB): a fixed cost per file. ";
            md << why << "|\n";
        }
    md << "\nWhat each library produces:\n\n";
    md << "- **VnIO**: `Geometry::CTriangulation`. STL is read with `eFlagCombine` (corners with equal coordinates joined); "
          "written binary. A load builds (inspected on the generated mesh): STL: "
       << inspect["stl"] << "; OBJ: " << inspect["obj"] << "; PLY: " << inspect["ply"] << "; OFF: " << inspect["off"]
       << ". Writes: binary STL, OBJ, binary little-endian PLY, OFF (six decimals).\n";
    md << "- **tinyobjloader** (`ObjReader`, triangulate on, vertex colours off): flat position and index arrays, no "
          "connectivity.\n";
    md << "- **assimp** `ReadFile` with no post-processing: an `aiScene`; † = one vertex per triangle corner (3T vertices, "
          "nothing shared). **+Join** adds `aiProcess_RemoveComponent` (normals) and "
          "`aiProcess_JoinIdenticalVertices`, which gives an indexed mesh like the others (the STL importer's per-corner "
          "facet normals would otherwise keep every corner apart); "
          "the export column writes that scene with `stlb`, `objnomtl`, `plyb` (assimp has no OFF exporter).\n";
    md << "- **OpenMesh** `TriMesh_ArrayKernelT<>` (default traits, no normals requested): `read_mesh` builds the half-edge "
          "structure; STL corners are joined by position. `write_mesh` binary for STL, binary little-endian for PLY.\n";
    md << "- ⚠ marks a count that differs from the file (V vertices / T triangles expected) or a written file that did "
          "not read back with the same counts; FAILED cells name the error.\n\n";

    md << "## b. Compressed size at equal maximum position error vs Draco\n\n";
    md << "Positions and triangles only on both sides. Draco: libdraco " << "C++ API in process, position quantisation qp "
          "bits, compression level 7 (Draco's default, speed 3) and 10 (speed 0); its maximum error is measured on the "
          "decoded level-7 mesh (both levels quantise alike). VnIO: `eQuantized` with the largest power-of-two `precision` whose measured maximum error is at "
          "most Draco's. Errors are Euclidean distances between each decoded vertex and the original vertex it stands for "
          "(matched through a lossless index attribute in a second Draco stream, and through the writer's coding order for "
          "VnIO), checked against an order-free symmetric nearest-neighbour distance. bpv = file bits per original vertex. "
          "VnIO's breakdown: connectivity bits per triangle + position bits per vertex. Times: median "
       << ctx.runs << " in-process runs; VnIO's decode also computes vertex and triangle normals, as its reader always does.\n\n";
    md << "| mesh | qp | Draco max err | Draco bpv L7 / L10 | Draco enc / dec ms L7 | Draco enc / dec ms L10 | VnIO "
          "precision → step | VnIO max err | VnIO bpv (conn b/T + pos b/V) | VnIO enc / dec ms | VnIO / smaller Draco | "
          "note |\n|---|---|---|---|---|---|---|---|---|---|---|---|\n";
    for (const SPrepared& p : meshes)
        for (const SMatched& m : matched[p.name]) {
            const SDracoResult& d7 = m.draco[0];
            const SDracoResult& d10 = m.draco[1];
            const SVnmResult& v = m.vnm;
            const uint32_t V = p.expected.vertices, T = p.expected.triangles;
            std::string note;
            md << "| " << p.name << " | " << m.qp << " | ";
            if (!d7.problem.empty() || !d10.problem.empty()) {
                md << "FAILED: " << d7.problem << d10.problem << " | | | | | | | | | |\n";
                continue;
            }
            md << fmtErr(d7.error.l2) << " | " << fmtNum(bitsPerVertex(d7.bytes, V), "%.2f") << " / "
               << fmtNum(bitsPerVertex(d10.bytes, V), "%.2f") << " | " << fmtMs(d7.encodeMs) << " / " << fmtMs(d7.decodeMs)
               << " | " << fmtMs(d10.encodeMs) << " / " << fmtMs(d10.decodeMs) << " | ";
            if (!d7.error.problem.empty()) note += "Draco correspondence: " + d7.error.problem + ". ";
            if (std::fabs(d7.nearestL2 - d7.error.l2) > 1e-6 * (1 + d7.error.l2) && d7.nearestL2 > d7.error.l2)
                note += "Draco nearest-neighbour check " + fmtErr(d7.nearestL2) + ". ";
            if (!v.problem.empty()) {
                md << fmtNum(m.precision, "%.3g") << " | FAILED: " << v.problem << " | | | | " << note << " |\n";
                continue;
            }
            const double drStep = d7.error.linf; // for the note only
            (void)drStep;
            md << fmtNum(m.precision, "%.3g") << " → " << fmtNum(v.step, "%.3g") << " | " << fmtErr(v.error.l2) << " | "
               << fmtNum(bitsPerVertex(v.bytes, V), "%.2f");
            if (v.coded)
                md << " (" << fmtNum(T ? 8.0 * double(v.connectivityBytes) / T : 0, "%.2f") << " + "
                   << fmtNum(bitsPerVertex(v.positionBytes, V), "%.2f") << ")";
            md << " | " << fmtMs(v.encodeMs) << " / " << fmtMs(v.decodeMs) << " | "
               << fmtNum(double(v.bytes) / double(std::min(d7.bytes, d10.bytes)), "%.2f") << "× | ";
            if (!v.coded) note += "VnIO stored the mesh natively (uncoded): the connectivity coder cannot reproduce it. ";
            if (v.attributes) note += "VnIO stream carries " + std::to_string(v.attributes) + " attribute records. ";
            if (std::fabs(v.nearestL2 - v.error.l2) > 1e-6 * (1 + v.error.l2) && v.nearestL2 > v.error.l2)
                note += "VnIO nearest-neighbour check " + fmtErr(v.nearestL2) + ". ";
            if (m.capped && v.coded)
                note += "the writer caps the grid step between 1/8 and 1/4 of the mean edge length (≈" +
                        fmtNum(meanEdge[p.name], "%.3g") + "): any larger precision gives this grid. ";
            if (m.haveCoarser && m.coarser.problem.empty())
                note += "one grid step coarser: err " + fmtErr(m.coarser.error.l2) + ", " +
                        fmtNum(bitsPerVertex(m.coarser.bytes, V), "%.2f") + " bpv. ";
            md << note << "|\n";
        }
    md << "\nThe same stream as VnIO writes it by default from a mesh its own PLY reader loaded, with every attribute the "
          "reader leaves marked for serialisation (listed; the stream stores them losslessly), at the precision matched to "
          "qp 14 above:\n\n| mesh | precision | positions and triangles only bpv | as loaded bpv | "
          "attribute records | attribute share |\n|---|---|---|---|---|---|\n";
    for (const SPrepared& p : meshes) {
        if (!asLoaded.count(p.name)) continue;
        const SVnmDefault& d = asLoaded[p.name];
        const SMatched& m = matched[p.name][1];
        md << "| " << p.name << " | " << fmtNum(m.precision, "%.3g") << " | " << fmtNum(bitsPerVertex(m.vnm.bytes, p.expected.vertices), "%.2f")
           << " | ";
        if (!d.problem.empty()) {
            md << "FAILED: " << d.problem << " | | |\n";
            continue;
        }
        md << fmtNum(bitsPerVertex(d.bytes, p.expected.vertices), "%.2f") << " | ";
        if (!d.coded) {
            md << "stored natively (uncoded): attributes travel inside the native record | — |\n";
            continue;
        }
        md << (d.attributes.empty() ? "none" : d.attributes) << " | "
           << fmtNum(d.bytes ? 100.0 * double(d.attributeBytes) / double(d.bytes) : 0, "%.1f") << "% |\n";
    }
    md << "\nWhere VnIO's position bits go at the precision chosen above (a writer subclass replays the predictions "
          "after the geometry is coded): how the vertices were predicted, the order-0 entropy of the per-axis residual codes "
          "(what an ideal static coder of exactly these residuals would spend) against the bits the stream spends, and the "
          "mean bit length of a residual.\n\n";
    md << "| mesh | qp | parallelogram | midpoint | one corner / none | residual entropy b/V | coded pos b/V | mean "
          "residual bits | entropy with all known parallelograms averaged b/V |\n|---|---|---|---|---|---|---|---|---|\n";
    for (const SPrepared& p : meshes)
        for (const SMatched& m : matched[p.name]) {
            const SVnmDiagnostic& d = m.diagnostic;
            md << "| " << p.name << " | " << m.qp << " | ";
            if (!d.problem.empty() || !m.vnm.coded) {
                md << (d.problem.empty() ? std::string("not coded") : d.problem) << " | | | | | | |\n";
                continue;
            }
            const double n = double(d.parallelogram + d.midpoint + d.oneCorner + d.none);
            auto pct = [n](uint64_t c) { return fmtNum(n > 0 ? 100.0 * double(c) / n : 0, "%.1f") + "%"; };
            md << pct(d.parallelogram) << " | " << pct(d.midpoint) << " | " << pct(d.oneCorner) << " / " << pct(d.none) << " | "
               << fmtNum(d.entropyBitsPerVertex, "%.2f") << " | " << fmtNum(bitsPerVertex(d.positionBytes, p.expected.vertices), "%.2f")
               << " | " << fmtNum(d.meanBitLength, "%.2f") << " | " << fmtNum(d.multiEntropyBitsPerVertex, "%.2f") << " |\n";
        }
    md << "\n";

    md << "## c. Lossless size\n\n";
    md << "The same binary little-endian PLY (float xyz, uchar-count int faces) compressed by `xz -9 -T1` and `zstd -19` "
          "(one run each, wall time including the process, decompressed output compared with the input), against the "
          "VnIO stream in `eLossless` mode (bit-exact positions; decoded positions compared bit for bit). bpv = bits per "
          "vertex.\n\n";
    md << "| mesh | V | T | PLY bytes (bpv) | xz -9 bpv (c / d ms) | zstd -19 bpv (c / d ms) | VnIO lossless bpv (enc / dec "
          "ms) | VnIO conn b/T + pos b/V | VnIO vs xz / zstd | note |\n|---|---|---|---|---|---|---|---|---|---|\n";
    for (const SPrepared& p : meshes) {
        const SLossless& l = lossless[p.name];
        const uint32_t V = p.expected.vertices, T = p.expected.triangles;
        md << "| " << p.name << " | " << V << " | " << T << " | " << l.ply << " (" << fmtNum(bitsPerVertex(l.ply, V), "%.1f")
           << ") | ";
        md << (l.xzProblem.empty() ? fmtNum(bitsPerVertex(l.xz, V), "%.2f") + " (" + fmtMs(l.xzC) + " / " + fmtMs(l.xzD) + ")"
                                   : "FAILED: " + l.xzProblem)
           << " | ";
        md << (l.zstdProblem.empty()
                   ? fmtNum(bitsPerVertex(l.zstd, V), "%.2f") + " (" + fmtMs(l.zstdC) + " / " + fmtMs(l.zstdD) + ")"
                   : "FAILED: " + l.zstdProblem)
           << " | ";
        const SVnmResult& v = l.vnm;
        std::string note;
        if (!v.problem.empty()) {
            md << "FAILED: " << v.problem << " | | | |\n";
            continue;
        }
        md << fmtNum(bitsPerVertex(v.bytes, V), "%.2f") << " (" << fmtMs(v.encodeMs) << " / " << fmtMs(v.decodeMs) << ") | ";
        if (v.coded)
            md << fmtNum(T ? 8.0 * double(v.connectivityBytes) / T : 0, "%.2f") << " + "
               << fmtNum(bitsPerVertex(v.positionBytes, V), "%.2f");
        else md << "—";
        md << " | " << fmtNum(double(v.bytes) / double(std::max<uint64_t>(l.xz, 1)), "%.2f") << "× / "
           << fmtNum(double(v.bytes) / double(std::max<uint64_t>(l.zstd, 1)), "%.2f") << "× | ";
        if (!v.bitExact) note += "⚠ decoded positions are not bit exact. ";
        if (!v.coded) note += "stored natively (uncoded): the connectivity coder cannot reproduce this mesh. ";
        if (v.attributes) note += std::to_string(v.attributes) + " attribute records. ";
        md << note << "|\n";
    }
    md << "\nTotal driver time: " << fmtNum((NowMs() - start) / 1000.0, "%.0f") << " s.\n";

    std::ofstream(report) << md.str();
    std::fputs(md.str().c_str(), stdout);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    try {
        if (args.size() >= 6 && args[0] == "op")
            return RunOp(args[1], args[2], args[3], args[4], args[5], args.size() > 6 && args[6] == "--verify");
        if (args.size() == 3 && args[0] == "inspect") {
            std::printf("%s\n", InspectVnioLoad(args[1], args[2]).c_str());
            return 0;
        }
        if (!args.empty() && args[0] == "run") return run(std::vector<std::string>(args.begin() + 1, args.end()));
    } catch (const std::exception& e) {
        std::fprintf(stderr, "vnio_compare: %s\n", e.what());
        return 1;
    }
    std::fprintf(stderr, "usage: vnio_compare run --work DIR --report FILE [--corpus DIR] [--header FILE] [--quick] [--runs N]\n"
                         "       vnio_compare op LIB load|load+write FMT FILE OUT [--verify]\n       vnio_compare inspect FMT FILE\n");
    return 2;
}
