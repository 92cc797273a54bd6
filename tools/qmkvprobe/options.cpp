#include "options.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include "map.h"

namespace qmkvprobe {

namespace {

// More worker processes than this only add forks.
const int64_t kMaxJobs = 256;

bool parseInt(const char *text, int64_t *value) {
    char *end = nullptr;
    errno = 0;
    const long long v = strtoll(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0') return false;
    *value = v;
    return true;
}

bool parseSeek(const std::string &arg, Options *opts) {
    const size_t colon = arg.find(':');
    if (colon != std::string::npos) {
        opts->seekMode = arg.substr(colon + 1);
        if (opts->seekMode != "prev" && opts->seekMode != "next" && opts->seekMode != "closest_sync" &&
            opts->seekMode != "closest")
            return false;
    }
    return parseInt(arg.substr(0, colon).c_str(), &opts->seekUs) && opts->seekUs >= 0;
}

// A library run opens files, reads no frame and draws nothing.
bool checkLibraryOptions(const Options &opts, std::string *error) {
    if (!opts.file.empty()) {
        *error = "--library takes a folder, not a file as well";
        return false;
    }
    if (opts.core || opts.packets || opts.count || opts.seek || opts.seekCount >= 0 || !opts.map.empty()) {
        *error = "--library goes only with --device, --json, --jobs, --plugin and --log";
        return false;
    }
    return true;
}

}  // namespace

bool parseOptions(int argc, char **argv, Options *opts, std::string *error) {
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        const bool hasValue = i + 1 < argc;
        if (a == "--help") {
            opts->help = true;
        } else if (a == "--core") {
            opts->core = true;
        } else if (a == "--json") {
            opts->json = true;
        } else if (a == "--packets") {
            opts->packets = true;
        } else if (a == "--count") {
            opts->count = true;
        } else if (a == "--seek" && hasValue) {
            opts->seek = true;
            if (!parseSeek(argv[++i], opts)) {
                *error = "bad --seek value: " + std::string(argv[i]);
                return false;
            }
        } else if (a == "--seek-count" && hasValue) {
            if (!parseInt(argv[++i], &opts->seekCount) || opts->seekCount < 0) {
                *error = "bad --seek-count value: " + std::string(argv[i]);
                return false;
            }
        } else if (a == "--plugin" && hasValue) {
            opts->plugin = argv[++i];
        } else if (a == "--device" && hasValue) {
            opts->device = argv[++i];
        } else if (a == "--map" && hasValue) {
            opts->map = argv[++i];
            if (!isMapPath(opts->map)) {
                *error = "--map writes .svg or .png: " + opts->map;
                return false;
            }
        } else if (a == "--log") {
            opts->log = true;
        } else if (a == "--library" && hasValue) {
            opts->library = argv[++i];
        } else if (a == "--jobs" && hasValue) {
            if (!parseInt(argv[++i], &opts->jobs) || opts->jobs < 1 || opts->jobs > kMaxJobs) {
                *error = "bad --jobs value: " + std::string(argv[i]);
                return false;
            }
        } else if (a.size() > 1 && a[0] == '-') {
            *error = "unknown or incomplete option: " + a;
            return false;
        } else if (opts->file.empty()) {
            opts->file = a;
        } else {
            *error = "more than one file given";
            return false;
        }
    }
    if (opts->help) return true;
    if (!opts->library.empty()) return checkLibraryOptions(*opts, error);
    if (opts->jobs != 0) {
        *error = "--jobs goes with --library";
        return false;
    }
    if (opts->file.empty()) {
        *error = "no file given";
        return false;
    }
    return true;
}

}  // namespace qmkvprobe
