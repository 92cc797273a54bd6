#include "library.h"

#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <vector>

#include <qmkvhost/ExtractorHost.h>

#include "format_json.h"
#include "library_check.h"
#include "library_report.h"
#include "library_walk.h"
#include "probe_util.h"
#include "worker_pool.h"

using nlohmann::ordered_json;

namespace qmkvprobe {

namespace {

// Longest a worker may take over one file: a normal open takes milliseconds.
const int kFileSeconds = 10;
// How often the progress line is redrawn.
const double kProgressSeconds = 0.25;

// "N/M files, R files/s" on a terminal's stderr, redrawn in place.
class Progress {
public:
    explicit Progress(size_t total) : mTotal(total), mOn(isatty(STDERR_FILENO) != 0), mStart(now()) {}
    void update(size_t done) {
        const double t = now();
        if (!mOn || (t - mLast < kProgressSeconds && done < mTotal)) return;
        mLast = t;
        fprintf(stderr, "\r%zu/%zu files, %.0f files/s ", done, mTotal, done / (t - mStart > 0 ? t - mStart : 1e-9));
        fflush(stderr);
    }
    void clear() const {
        if (mOn) fputs("\r\033[K", stderr);
    }

private:
    size_t mTotal;
    bool mOn;
    double mStart;
    double mLast = 0;
};

}  // namespace

int runLibrary(const Options &opts, const std::string &pluginPath) {
    struct stat st;
    if (stat(opts.library.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        fprintf(stderr, "qmkvprobe: %s: not a folder\n", opts.library.c_str());
        return 1;
    }
    std::string error;
    // Loaded once here; every worker starts with it.
    std::unique_ptr<qmkvhost::Plugin> plugin = qmkvhost::Plugin::load(pluginPath, &error);
    if (plugin == nullptr) {
        fprintf(stderr, "qmkvprobe: cannot load the plug-in %s: %s\n", pluginPath.c_str(), error.c_str());
        return 1;
    }
    const double start = now();
    const LibraryWalk walk = walkLibrary(opts.library);
    for (const std::string &s : walk.skipped) fprintf(stderr, "qmkvprobe: skipped %s\n", s.c_str());

    const size_t n = walk.files.size();
    std::vector<std::optional<ordered_json>> results(n);
    size_t printed = 0, finished = 0;
    LibraryReport report(opts.json);
    Progress progress(n);
    WorkerPool pool;
    pool.jobs = opts.jobs > 0 ? (int)opts.jobs : (int)std::max(1L, sysconf(_SC_NPROCESSORS_ONLN));
    pool.timeoutSeconds = kFileSeconds;
    pool.work = [&](size_t i) { return jsonLine(checkLibraryFile(*plugin, walk.files[i])); };
    pool.done = [&](size_t i, const std::string &answer, const std::string &failure) {
        ordered_json file = failure.empty() ? ordered_json::parse(answer, nullptr, false) : ordered_json();
        if (!failure.empty() || file.is_discarded()) file = refusedFile(walk.files[i], failure.empty() ? "the worker's answer is unreadable" : failure);
        results[i] = std::move(file);
        // Lines come out in walk order, whatever order the workers end in.
        for (; printed < n && results[printed].has_value(); ++printed) {
            report.add(*results[printed]);
            results[printed].reset();
        }
        progress.update(++finished);
    };
    runWorkers(pool, n);
    progress.clear();
    report.printSummary(walk.skipped.size(), now() - start);
    return 0;
}

}  // namespace qmkvprobe
