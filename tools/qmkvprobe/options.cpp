#include "options.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include "map.h"

namespace qmkvprobe {

namespace {

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
    if (opts->file.empty() && !opts->help) {
        *error = "no file given";
        return false;
    }
    return true;
}

}  // namespace qmkvprobe
