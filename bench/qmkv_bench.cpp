// qmkv_bench: whole-file demux throughput, reads of the data source, open,
// first-frame and first-seek time, random seeks and peak memory of the
// demuxer core, the plug-in (through the host framework), libavformat,
// libwebm and mkvparser, on the same files in one run.
//
//   qmkv_bench [--files DIR] [--reps N] [--open-reps N] [--seeks N] [--charge US]
//              [--readers a,b,..] [--only f1,f2,..] [--no-memory] [--json OUT]
//   qmkv_bench --child READER FILE [--phase open|read]
//       one open + whole-file read, one JSON line; used for peak memory
//       (a fresh process per reader), callgrind (the phase is bracketed by
//       instrumentation start/stop) and, in qmkv_bench_copies, copy counting.
//   qmkv_bench --child READER FILE --phase first|seek [--target US] [--charge US]
//       in a fresh process: open, then the first frame (or a seek of track 0
//       to US and one frame there); one JSON line with the times. With
//       --charge every read of the source busy-waits US first.
#include <ctype.h>
#include <fcntl.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include <valgrind/callgrind.h>

#include "bench_readers.h"

using namespace qmkvbench;

namespace {

double now() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec + ts.tv_nsec * 1e-9;
}

double cpuNow() {
    timespec ts;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return ts.tv_sec + ts.tv_nsec * 1e-9;
}

// System (kernel) CPU time of this process, seconds.
double sysNow() {
    rusage u;
    getrusage(RUSAGE_SELF, &u);
    return u.ru_stime.tv_sec + u.ru_stime.tv_usec * 1e-6;
}

double median(std::vector<double> v) {
    if (v.empty()) return NAN;
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}

// splitmix64 from state 0; target_i = floor((x_i >> 11) * 2^-53 * D).
std::vector<int64_t> seekTargets(int n, int64_t durationUs) {
    std::vector<int64_t> out;
    uint64_t state = 0;
    for (int i = 0; i < n; ++i) {
        uint64_t z = (state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        z ^= z >> 31;
        out.push_back((int64_t)floor((double)(z >> 11) * 0x1.0p-53 * (double)durationUs));
    }
    return out;
}

std::vector<std::string> split(const std::string &s) {
    std::vector<std::string> out;
    size_t start = 0;
    while (start <= s.size()) {
        const size_t comma = s.find(',', start);
        const std::string part = s.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        if (!part.empty()) out.push_back(part);
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    return out;
}

std::string selfExe() {
    char buf[4096];
    const ssize_t n = readlink("/proc/self/exe", buf, sizeof(buf) - 1);
    if (n <= 0) return "qmkv_bench";
    buf[n] = '\0';
    return buf;
}

// This process's peak resident set (VmHWM), KiB.
long peakRssKiB() {
    FILE *f = fopen("/proc/self/status", "r");
    if (f == nullptr) return -1;
    char line[256];
    long kib = -1;
    while (fgets(line, sizeof(line), f) != nullptr)
        if (strncmp(line, "VmHWM:", 6) == 0) kib = atol(line + 6);
    fclose(f);
    return kib;
}

// ---------------------------------------------------------------------------
// Child mode.

// Open, then the first frame of track 0 or a seek of track 0 to `targetUs`
// and its frame there, timed in this fresh process (nothing opened before).
int runFirstChild(Kind kind, const std::string &path, bool seek, int64_t targetUs) {
    std::unique_ptr<Reader> reader = makeReader(kind, {});
    Sink sink;
    std::string error;
    const double t0 = now();
    if (!reader->open(path, &error)) return 1;
    const double t1 = now();
    const bool ok = seek ? reader->canSeek() && reader->beginTrack(0) && reader->seekRead(0, targetUs, sink)
                         : reader->firstFrame(sink);
    const double t2 = now();
    const IoCounts io = reader->io();
    printf("{\"reader\": \"%s\", \"ok\": %s, \"open_s\": %.7f, \"%s\": %.7f, \"reads\": %llu, "
           "\"asked_bytes\": %llu}\n",
           kindName(kind), ok ? "true" : "false", t1 - t0, seek ? "open_seek_s" : "open_first_s", t2 - t0,
           (unsigned long long)io.calls, (unsigned long long)io.asked);
    return ok ? 0 : 1;
}

int runChild(const std::string &kindName, const std::string &path, const std::string &phase, int64_t targetUs) {
    if (kindName == "none") {
        printf("{\"reader\": \"none\", \"vmhwm_kib\": %ld}\n", peakRssKiB());
        return 0;
    }
    Kind kind;
    if (!kindFromName(kindName, &kind)) {
        fprintf(stderr, "qmkv_bench: unknown reader %s\n", kindName.c_str());
        return 2;
    }
    if (phase == "first" || phase == "seek") return runFirstChild(kind, path, phase == "seek", targetUs);
    std::vector<uint32_t> maxInput;
    int64_t durationUs = 0;
    if (kind == Kind::kCoreDirect && !fileFacts(path, &maxInput, &durationUs)) {
        fprintf(stderr, "qmkv_bench: %s: no facts\n", path.c_str());
        return 1;
    }
    std::unique_ptr<Reader> reader = makeReader(kind, maxInput);
    Sink sink;
    std::string error;
    if (phase == "open") CALLGRIND_START_INSTRUMENTATION;
    const bool opened = reader->open(path, &error);
    if (phase == "open") CALLGRIND_STOP_INSTRUMENTATION;
    if (!opened) {
        fprintf(stderr, "qmkv_bench: %s: %s\n", path.c_str(), error.c_str());
        return 1;
    }
    const IoCounts before = reader->io();
    if (phase == "read") CALLGRIND_START_INSTRUMENTATION;
    copyCountingEnable(true);
    const bool ok = reader->readAll(sink, &error);
    copyCountingEnable(false);
    if (phase == "read") CALLGRIND_STOP_INSTRUMENTATION;
    const IoCounts after = reader->io();
    printf("{\"reader\": \"%s\", \"ok\": %s, \"frames\": %llu, \"bytes\": %llu, \"open_reads\": %llu, "
           "\"open_read_bytes\": %llu, \"reads\": %llu, \"read_bytes\": %llu, \"asked_bytes\": %llu, "
           "\"copy_bytes\": %llu, "
           "\"copy_calls\": %llu, \"copy_counted\": %s, \"vmhwm_kib\": %ld}\n",
           kindName.c_str(), ok ? "true" : "false", (unsigned long long)sink.frames,
           (unsigned long long)sink.bytes, (unsigned long long)before.calls, (unsigned long long)before.bytes,
           (unsigned long long)(after.calls - before.calls), (unsigned long long)(after.bytes - before.bytes),
           (unsigned long long)(after.asked - before.asked), (unsigned long long)copyCountedBytes(), (unsigned long long)copyCountedCalls(),
           copyCountingAvailable() ? "true" : "false", peakRssKiB());
    if (!ok) fprintf(stderr, "qmkv_bench: %s: %s\n", path.c_str(), error.c_str());
    return ok ? 0 : 1;
}

// Runs a child (`args` after --child) and returns the numbers of its JSON
// line by key; empty when it failed. The dynamic linker binds every symbol
// at load, as the platform's does, so that a fresh process's first calls
// do not pay for lazy binding inside the timed part.
std::map<std::string, double> childValues(const std::string &exe, const std::string &args) {
    std::map<std::string, double> out;
    const std::string cmd = "LD_BIND_NOW=1 '" + exe + "' --child " + args + " 2>/dev/null";
    FILE *p = popen(cmd.c_str(), "r");
    if (p == nullptr) return out;
    char line[4096];
    while (fgets(line, sizeof(line), p) != nullptr) {
        for (const char *q = strchr(line, '"'); q != nullptr; q = strchr(q, '"')) {
            const char *end = strchr(q + 1, '"');
            if (end == nullptr) break;
            const std::string key(q + 1, end);
            q = end + 1;
            if (strncmp(q, ": ", 2) == 0 && (isdigit((unsigned char)q[2]) || q[2] == '-')) out[key] = atof(q + 2);
        }
    }
    if (pclose(p) != 0) out.clear();
    return out;
}

// Peak resident set of a fresh process that opens the file and reads it
// whole with one reader, as the child reports it; KiB, or -1.
long childMaxRss(const std::string &exe, const std::string &kind, const std::string &path) {
    const std::map<std::string, double> v = childValues(exe, kind + " '" + path + "'");
    auto it = v.find("vmhwm_kib");
    return it == v.end() ? -1 : (long)it->second;
}

// ---------------------------------------------------------------------------
// The benchmark.

struct Throughput {
    bool ok = true;
    std::string error;
    uint64_t frames = 0, bytes = 0;
    uint64_t reads = 0, readBytes = 0;  // during the read phase
    uint64_t openReads = 0;
    IoCounts total;                     // open and read together
    std::vector<double> readSec, readCpu, readSys, openSec;
    double chargedSec = NAN;            // open + read through the charged source
};

// Fresh processes: open, open + first frame, open + first seek.
struct FirstFrame {
    std::vector<double> openSec, firstSec, seekSec;
};

struct Seeks {
    bool supported = true;
    int attempted = 0, succeeded = 0;
    double firstSec = NAN, totalSec = 0;
    std::vector<double> each;
    uint64_t reads = 0;
};

struct FileResult {
    std::string label, path;
    int64_t size = 0, durationUs = 0;
    std::map<Kind, Throughput> tp;
    std::map<Kind, FirstFrame> ff;
    std::map<Kind, Seeks> seeks;
    std::map<Kind, long> rssKiB;
    long baselineKiB = -1;
};

struct Config {
    std::string dir;
    int reps = 3, openReps = 10, seeks = 200;
    uint32_t charge = 20;  // microseconds per read of the charged source
    std::vector<Kind> kinds = allKinds();
    std::vector<std::string> only;
    bool memory = true;
    std::string json;
};

const struct {
    const char *label;
    const char *file;
} kFiles[] = {
    {"1080p H.264 20M + AAC", "hd1080.mkv"},
    {"Opus 11 min, 20 ms", "opus11m.mka"},
    {"H.264 + laced Vorbis", "vorbis_laced.mkv"},
    {"2 h, big Cues", "long2h_cues.mkv"},
    {"2 h, no Cues", "long2h_nocues.mkv"},
};

void measureThroughput(FileResult &fr, const Config &cfg, const std::vector<uint32_t> &maxInput) {
    // Round-robin over the readers, so that noise from other work on the
    // machine spreads over all of them.
    for (int rep = 0; rep < cfg.reps; ++rep) {
        for (Kind k : cfg.kinds) {
            Throughput &tp = fr.tp[k];
            if (!tp.ok) continue;
            std::unique_ptr<Reader> reader = makeReader(k, maxInput);
            Sink sink;
            std::string error;
            const double t0 = now();
            if (!reader->open(fr.path, &error)) {
                tp.ok = false;
                tp.error = error;
                continue;
            }
            const double t1 = now();
            const IoCounts before = reader->io();
            const double s1 = sysNow();
            const double c1 = cpuNow();
            const double t2 = now();
            const bool ok = reader->readAll(sink, &error);
            const double t3 = now();
            const double c3 = cpuNow();
            const double s3 = sysNow();
            if (!ok) {
                tp.ok = false;
                tp.error = error;
            }
            const IoCounts after = reader->io();
            tp.frames = sink.frames;
            tp.bytes = sink.bytes;
            tp.openReads = before.calls;
            tp.total = after;
            tp.reads = after.calls - before.calls;
            tp.readBytes = after.bytes - before.bytes;
            tp.openSec.push_back(t1 - t0);
            tp.readSec.push_back(t3 - t2);
            tp.readCpu.push_back(c3 - c1);
            tp.readSys.push_back(s3 - s1);
        }
    }
}

// Open + read of the whole file through a source that charges a fixed cost
// per read (a call into another process on a device): what the read counts
// mean in time.
void measureCharged(FileResult &fr, const Config &cfg, const std::vector<uint32_t> &maxInput) {
    setReadCharge(cfg.charge);
    for (Kind k : cfg.kinds) {
        if (isRawKind(k)) continue;
        Throughput &tp = fr.tp[k];
        if (!tp.ok) continue;
        std::unique_ptr<Reader> reader = makeReader(k, maxInput);
        Sink sink;
        std::string error;
        const double t0 = now();
        if (reader->open(fr.path, &error) && reader->readAll(sink, &error)) tp.chargedSec = now() - t0;
    }
    setReadCharge(0);
}

// The first seek goes to the first of the seek targets, on track 0.
void measureFirstFrame(FileResult &fr, const Config &cfg, const std::string &exe) {
    const int64_t target = seekTargets(1, fr.durationUs)[0];
    for (int rep = 0; rep < cfg.openReps; ++rep) {
        for (Kind k : cfg.kinds) {
            if (isRawKind(k) || k == Kind::kCoreDirect) continue;
            FirstFrame &ff = fr.ff[k];
            const std::string args = std::string(kindName(k)) + " '" + fr.path + "' --target " + std::to_string(target);
            std::map<std::string, double> first = childValues(exe, args + " --phase first");
            if (first.count("open_first_s") != 0) {
                ff.openSec.push_back(first["open_s"]);
                ff.firstSec.push_back(first["open_first_s"]);
            }
            std::map<std::string, double> seek = childValues(exe, args + " --phase seek");
            if (seek.count("open_seek_s") != 0) ff.seekSec.push_back(seek["open_seek_s"]);
        }
    }
}

void measureSeeks(FileResult &fr, const Config &cfg, const std::vector<uint32_t> &maxInput) {
    const std::vector<int64_t> targets = seekTargets(cfg.seeks, fr.durationUs);
    for (Kind k : cfg.kinds) {
        if (isRawKind(k) || k == Kind::kCoreDirect) continue;
        Seeks &sk = fr.seeks[k];
        std::unique_ptr<Reader> reader = makeReader(k, maxInput);
        std::string error;
        if (!reader->open(fr.path, &error)) {
            sk.supported = false;
            continue;
        }
        if (!reader->canSeek()) {
            sk.supported = false;
            continue;
        }
        const IoCounts before = reader->io();
        Sink sink;
        const double start = now();
        for (int t = 0; t < reader->trackCount(); ++t) {
            if (!reader->beginTrack(t)) continue;
            for (int64_t us : targets) {
                const double a = now();
                const bool ok = reader->seekRead(t, us, sink);
                const double b = now();
                sk.attempted++;
                if (ok) sk.succeeded++;
                if (std::isnan(sk.firstSec)) sk.firstSec = b - a;
                sk.each.push_back(b - a);
            }
            reader->endTrack(t);
        }
        sk.totalSec = now() - start;
        sk.reads = reader->io().calls - before.calls;
    }
}

void measureMemory(FileResult &fr, const Config &cfg, const std::string &exe) {
    fr.baselineKiB = childMaxRss(exe, "none", fr.path);
    for (Kind k : cfg.kinds) fr.rssKiB[k] = childMaxRss(exe, kindName(k), fr.path);
}

// ---------------------------------------------------------------------------
// Reporting.

double fps(const Throughput &tp) { return tp.frames / median(tp.readSec); }
double mbps(const Throughput &tp) { return tp.bytes / median(tp.readSec) / 1e6; }
// The same on process CPU time (user + system), which other work on a
// shared machine disturbs less than wall time.
double fpsCpu(const Throughput &tp) { return tp.frames / median(tp.readCpu); }
double mbpsCpu(const Throughput &tp) { return tp.bytes / median(tp.readCpu) / 1e6; }

std::string fmt(const char *f, double v) {
    if (std::isnan(v) || std::isinf(v)) return "n/a";
    char buf[64];
    snprintf(buf, sizeof(buf), f, v);
    return buf;
}

// Reads and bytes asked from open to the last frame, per frame and per
// payload byte.
double readsPerFrame(const Throughput &tp) { return (double)tp.total.calls / (double)std::max<uint64_t>(tp.frames, 1); }
double askedPerByte(const Throughput &tp) { return (double)tp.total.asked / (double)std::max<uint64_t>(tp.bytes, 1); }

void printFile(const FileResult &fr, const Config &cfg) {
    printf("\n### %s (`%s`, %.1f MB, %.1f s)\n\n", fr.label.c_str(), fr.path.substr(fr.path.rfind('/') + 1).c_str(),
           fr.size / 1e6, fr.durationUs / 1e6);
    printf("| reader | frames | payload MB | read ms (median) | cpu ms (sys) | kframes/s | MB/s | reads/frame | "
           "asked/payload byte | asked/file byte | open+read ms, %u us/read | open ms | open+1st frame ms | "
           "open+1st seek ms | seek: 1st ms | seek: median us | seek: mean us | seeks ok | reads/seek | "
           "peak RSS MB (+ over idle) |\n", cfg.charge);
    printf("|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n");
    for (Kind k : cfg.kinds) {
        auto it = fr.tp.find(k);
        if (it == fr.tp.end()) continue;
        const Throughput &tp = it->second;
        printf("| %s ", makeReader(k, {})->name());
        if (!tp.ok) {
            printf("| error: %s |||||||||||||||||||\n", tp.error.c_str());
            continue;
        }
        const bool raw = isRawKind(k);
        printf("| %s | %.1f | %.1f | %.1f (%.0f) | %s | %.0f | %s | %.3f | %.3f | %s ",
               raw ? "-" : std::to_string(tp.frames).c_str(), tp.bytes / 1e6, median(tp.readSec) * 1e3,
               median(tp.readCpu) * 1e3, median(tp.readSys) * 1e3, raw ? "-" : fmt("%.1f", fps(tp) / 1e3).c_str(),
               mbps(tp), raw ? "-" : fmt("%.3f", readsPerFrame(tp)).c_str(), askedPerByte(tp),
               (double)tp.total.asked / (double)std::max<int64_t>(fr.size, 1),
               raw ? "-" : fmt("%.1f", tp.chargedSec * 1e3).c_str());
        auto ff = fr.ff.find(k);
        if (ff != fr.ff.end()) {
            const FirstFrame &f = ff->second;
            printf("| %s | %s | %s ", fmt("%.3f", median(f.openSec) * 1e3).c_str(),
                   fmt("%.3f", median(f.firstSec) * 1e3).c_str(), fmt("%.3f", median(f.seekSec) * 1e3).c_str());
        } else {
            printf("| - | - | - ");
        }
        auto sk = fr.seeks.find(k);
        if (sk != fr.seeks.end() && sk->second.supported && sk->second.attempted > 0) {
            const Seeks &s = sk->second;
            printf("| %.2f | %.1f | %.1f | %d/%d | %.1f ", s.firstSec * 1e3, median(s.each) * 1e6,
                   s.totalSec / s.attempted * 1e6, s.succeeded, s.attempted, (double)s.reads / s.attempted);
        } else if (sk != fr.seeks.end()) {
            printf("| n/a | n/a | n/a | - | - ");
        } else {
            printf("| - | - | - | - | - ");
        }
        auto rss = fr.rssKiB.find(k);
        if (rss != fr.rssKiB.end() && rss->second > 0)
            printf("| %.1f (+%.1f) |\n", rss->second / 1024.0, (rss->second - fr.baselineKiB) / 1024.0);
        else
            printf("| - |\n");
    }
}

const Throughput *found(const FileResult &fr, Kind k) {
    auto it = fr.tp.find(k);
    return it != fr.tp.end() && it->second.ok ? &it->second : nullptr;
}

void printRatios(const std::vector<FileResult> &results, bool cpu) {
    printf("\n### Ratios on %s (same run; > 1: the peer is faster, or the limit lies that far above us)\n\n",
           cpu ? "process CPU time" : "wall time");
    printf("| file | pread MB/s / core MB/s | mapped copy MB/s / core MB/s | raw source MB/s / core MB/s | "
           "pread MB/s / plug-in MB/s | mapped copy MB/s / plug-in MB/s | lavf fps / core fps | "
           "lavf fps / plug-in fps | libwebm fps / core fps | mkvparser fps / core fps | "
           "mkvparser fps / plug-in fps | core-direct fps / core fps | plug-in fps / core fps |\n");
    printf("|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n");
    for (const FileResult &fr : results) {
        const Throughput *raw = found(fr, Kind::kRaw), *mapped = found(fr, Kind::kMapped),
                         *rawSource = found(fr, Kind::kRawSource), *core = found(fr, Kind::kCore),
                         *direct = found(fr, Kind::kCoreDirect), *plugin = found(fr, Kind::kPlugin),
                         *lavf = found(fr, Kind::kLavf), *webm = found(fr, Kind::kWebm),
                         *mkvp = found(fr, Kind::kMkvparser);
        auto ratio = [cpu](const Throughput *a, const Throughput *b, bool bytes) {
            if (a == nullptr || b == nullptr) return std::string("-");
            if (cpu) return fmt("%.2f", bytes ? mbpsCpu(*a) / mbpsCpu(*b) : fpsCpu(*a) / fpsCpu(*b));
            return fmt("%.2f", bytes ? mbps(*a) / mbps(*b) : fps(*a) / fps(*b));
        };
        printf("| %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s |\n", fr.label.c_str(),
               ratio(raw, core, true).c_str(), ratio(mapped, core, true).c_str(), ratio(rawSource, core, true).c_str(),
               ratio(raw, plugin, true).c_str(), ratio(mapped, plugin, true).c_str(), ratio(lavf, core, false).c_str(),
               ratio(lavf, plugin, false).c_str(), ratio(webm, core, false).c_str(), ratio(mkvp, core, false).c_str(),
               ratio(mkvp, plugin, false).c_str(), ratio(direct, core, false).c_str(),
               ratio(plugin, core, false).c_str());
    }
}

// Reads of the data source, the readers side by side: what a device pays.
void printReads(const std::vector<FileResult> &results, const Config &cfg) {
    printf("\n### Reads of the data source, open to the last frame (deterministic)\n\n");
    printf("| file | reads/frame: core | plug-in | libavformat | libwebm | mkvparser | mkvparser / core | "
           "asked/payload byte: core | plug-in | libavformat | libwebm | mkvparser | "
           "open+read ms at %u us/read: core | plug-in | libavformat | libwebm | mkvparser |\n", cfg.charge);
    printf("|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n");
    const Kind kinds[] = {Kind::kCore, Kind::kPlugin, Kind::kLavf, Kind::kWebm, Kind::kMkvparser};
    for (const FileResult &fr : results) {
        printf("| %s ", fr.label.c_str());
        for (Kind k : kinds) {
            const Throughput *tp = found(fr, k);
            printf("| %s ", tp != nullptr ? fmt("%.3f", readsPerFrame(*tp)).c_str() : "-");
        }
        const Throughput *core = found(fr, Kind::kCore), *mkvp = found(fr, Kind::kMkvparser);
        printf("| %s ", core != nullptr && mkvp != nullptr ? fmt("%.1f", readsPerFrame(*mkvp) / readsPerFrame(*core)).c_str()
                                                           : "-");
        for (Kind k : kinds) {
            const Throughput *tp = found(fr, k);
            printf("| %s ", tp != nullptr ? fmt("%.3f", askedPerByte(*tp)).c_str() : "-");
        }
        for (Kind k : kinds) {
            const Throughput *tp = found(fr, k);
            printf("| %s ", tp != nullptr ? fmt("%.1f", tp->chargedSec * 1e3).c_str() : "-");
        }
        printf("|\n");
    }
}

void writeJson(const std::vector<FileResult> &results, const Config &cfg) {
    FILE *f = fopen(cfg.json.c_str(), "w");
    if (f == nullptr) return;
    fprintf(f, "{\"files\": [\n");
    for (size_t i = 0; i < results.size(); ++i) {
        const FileResult &fr = results[i];
        fprintf(f, "  {\"file\": \"%s\", \"size\": %lld, \"duration_us\": %lld, \"readers\": {\n", fr.path.c_str(),
                (long long)fr.size, (long long)fr.durationUs);
        bool first = true;
        for (Kind k : cfg.kinds) {
            auto it = fr.tp.find(k);
            if (it == fr.tp.end()) continue;
            const Throughput &tp = it->second;
            fprintf(f, "%s    \"%s\": {\"ok\": %s, \"frames\": %llu, \"bytes\": %llu, \"reads\": %llu, "
                       "\"read_bytes\": %llu, \"open_reads\": %llu, \"total_reads\": %llu, \"total_asked\": %llu, "
                       "\"read_s\": %.6f, \"read_cpu_s\": %.6f, \"read_sys_s\": %.6f, \"charged_s\": %.6f",
                    first ? "" : ",\n", kindName(k), tp.ok ? "true" : "false", (unsigned long long)tp.frames,
                    (unsigned long long)tp.bytes, (unsigned long long)tp.reads, (unsigned long long)tp.readBytes,
                    (unsigned long long)tp.openReads, (unsigned long long)tp.total.calls,
                    (unsigned long long)tp.total.asked, tp.ok ? median(tp.readSec) : 0.0,
                    tp.ok ? median(tp.readCpu) : 0.0, tp.ok ? median(tp.readSys) : 0.0,
                    std::isnan(tp.chargedSec) ? 0.0 : tp.chargedSec);
            auto ff = fr.ff.find(k);
            if (ff != fr.ff.end() && !ff->second.firstSec.empty())
                fprintf(f, ", \"open_s\": %.7f, \"first_frame_s\": %.7f, \"first_seek_s\": %.7f",
                        median(ff->second.openSec), median(ff->second.firstSec),
                        ff->second.seekSec.empty() ? 0.0 : median(ff->second.seekSec));
            auto sk = fr.seeks.find(k);
            if (sk != fr.seeks.end() && sk->second.supported && sk->second.attempted > 0)
                fprintf(f, ", \"seeks\": %d, \"seeks_ok\": %d, \"seek_first_s\": %.6f, \"seek_median_s\": %.6f, "
                           "\"seek_mean_s\": %.6f, \"seek_reads\": %llu",
                        sk->second.attempted, sk->second.succeeded, sk->second.firstSec, median(sk->second.each),
                        sk->second.totalSec / sk->second.attempted, (unsigned long long)sk->second.reads);
            auto rss = fr.rssKiB.find(k);
            if (rss != fr.rssKiB.end()) fprintf(f, ", \"maxrss_kib\": %ld, \"idle_kib\": %ld", rss->second, fr.baselineKiB);
            fprintf(f, "}");
            first = false;
        }
        fprintf(f, "\n  }}%s\n", i + 1 < results.size() ? "," : "");
    }
    fprintf(f, "]}\n");
    fclose(f);
}

int usage() {
    fprintf(stderr,
            "usage: qmkv_bench [--files DIR] [--reps N] [--open-reps N] [--seeks N] [--charge US] [--readers a,b]\n"
            "                  [--only f1,f2] [--no-memory] [--json OUT]\n"
            "       qmkv_bench --child READER FILE [--phase open|read|first|seek] [--target US] [--charge US]\n"
            "readers: raw mapped raw-source core core-direct plugin lavf libwebm mkvparser\n");
    return 2;
}

}  // namespace

int main(int argc, char **argv) {
    Config cfg;
    std::string childKind, childFile, phase;
    int64_t targetUs = 0;
    bool charged = false;  // a child's reads cost nothing unless asked
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        auto value = [&](std::string *out) {
            if (i + 1 >= argc) return false;
            *out = argv[++i];
            return true;
        };
        std::string v;
        if (a == "--child") {
            if (i + 2 >= argc) return usage();
            childKind = argv[++i];
            childFile = argv[++i];
        } else if (a == "--target" && value(&v)) {
            targetUs = atoll(v.c_str());
        } else if (a == "--phase" && value(&v)) {
            phase = v;
        } else if (a == "--files" && value(&v)) {
            cfg.dir = v;
        } else if (a == "--reps" && value(&v)) {
            cfg.reps = std::max(1, atoi(v.c_str()));
        } else if (a == "--open-reps" && value(&v)) {
            cfg.openReps = std::max(1, atoi(v.c_str()));
        } else if (a == "--seeks" && value(&v)) {
            cfg.seeks = std::max(0, atoi(v.c_str()));
        } else if (a == "--charge" && value(&v)) {
            cfg.charge = (uint32_t)std::max(0, atoi(v.c_str()));
            charged = true;
        } else if (a == "--readers" && value(&v)) {
            cfg.kinds.clear();
            for (const std::string &name : split(v)) {
                Kind k;
                if (!kindFromName(name, &k)) return usage();
                cfg.kinds.push_back(k);
            }
        } else if (a == "--only" && value(&v)) {
            cfg.only = split(v);
        } else if (a == "--no-memory") {
            cfg.memory = false;
        } else if (a == "--json" && value(&v)) {
            cfg.json = v;
        } else {
            return usage();
        }
    }
    if (!childKind.empty()) {
        if (charged) setReadCharge(cfg.charge);
        return runChild(childKind, childFile, phase, targetUs);
    }
    if (cfg.dir.empty()) return usage();

    const std::string exe = selfExe();
    std::vector<FileResult> results;
    for (const auto &f : kFiles) {
        if (!cfg.only.empty() && std::find(cfg.only.begin(), cfg.only.end(), f.file) == cfg.only.end()) continue;
        FileResult fr;
        fr.label = f.label;
        fr.path = cfg.dir + "/" + f.file;
        std::vector<uint32_t> maxInput;
        if (!fileFacts(fr.path, &maxInput, &fr.durationUs)) {
            fprintf(stderr, "qmkv_bench: %s: missing or not openable; skipped\n", fr.path.c_str());
            continue;
        }
        {
            CountingSource s(fr.path);
            fr.size = s.size();
            // Warm the page cache: every reader then reads from memory.
            std::unique_ptr<Reader> raw = makeReader(Kind::kRaw, maxInput);
            Sink sink;
            std::string error;
            raw->open(fr.path, &error);
            raw->readAll(sink, &error);
        }
        fprintf(stderr, "qmkv_bench: %s: throughput\n", f.file);
        measureThroughput(fr, cfg, maxInput);
        fprintf(stderr, "qmkv_bench: %s: open, first frame, first seek (fresh processes)\n", f.file);
        measureFirstFrame(fr, cfg, exe);
        fprintf(stderr, "qmkv_bench: %s: %u us per read\n", f.file, cfg.charge);
        measureCharged(fr, cfg, maxInput);
        fprintf(stderr, "qmkv_bench: %s: seeks\n", f.file);
        measureSeeks(fr, cfg, maxInput);
        if (cfg.memory) {
            fprintf(stderr, "qmkv_bench: %s: peak memory\n", f.file);
            measureMemory(fr, cfg, exe);
        }
        results.push_back(fr);
    }
    printf("## qmkv_bench: %d throughput reps (median), %d open reps, %d seeks per track\n", cfg.reps, cfg.openReps,
           cfg.seeks);
    for (const FileResult &fr : results) printFile(fr, cfg);
    printReads(results, cfg);
    printRatios(results, false);
    printRatios(results, true);
    if (!cfg.json.empty()) writeJson(results, cfg);
    return 0;
}
