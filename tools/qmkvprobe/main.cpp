// qmkvprobe: what the Android framework sees in a Matroska file through the
// plug-in, or, with --core, what the demuxer core sees.
#include <libgen.h>
#include <limits.h>
#include <stdio.h>
#include <unistd.h>

#include <string>

#include <media/MediaExtractorPluginHelper.h>
#include <media/stagefright/FileSource.h>

#include "core_mode.h"
#include "counted_source.h"
#include "map.h"
#include "options.h"
#include "plugin_mode.h"

namespace {

const char kUsage[] =
    "usage: qmkvprobe [--core] [--json] [--packets] [--seek US[:MODE]] [--count] [--seek-count N] "
    "[--plugin PATH] [--map OUT.svg|OUT.png] FILE\n";

// The plug-in built beside this tool.
std::string defaultPlugin() {
    char exe[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", exe, sizeof(exe) - 1);
    if (n <= 0) return "libqmkvextractor.so";
    exe[n] = '\0';
    return std::string(dirname(exe)) + "/libqmkvextractor.so";
}

int probe(const qmkvprobe::Options &opts) {
    if (!opts.core) return qmkvprobe::runPlugin(opts, opts.plugin.empty() ? defaultPlugin() : opts.plugin);

    android::FileSource file(opts.file.c_str());
    if (file.initCheck() != android::OK) {
        fprintf(stderr, "qmkvprobe: cannot open %s\n", opts.file.c_str());
        return 1;
    }
    qmkvprobe::CountedSource counted(file.wrap());
    android::DataSourceHelper source(counted.source());
    return qmkvprobe::runCore(opts, &source, counted);
}

}  // namespace

int main(int argc, char **argv) {
    qmkvprobe::Options opts;
    std::string error;
    if (!qmkvprobe::parseOptions(argc, argv, &opts, &error)) {
        fprintf(stderr, "qmkvprobe: %s\n%s", error.c_str(), kUsage);
        return 2;
    }
    const int status = probe(opts);
    if (opts.map.empty()) return status;
    const int mapStatus = qmkvprobe::writeMap(opts.file, opts.map);
    return status != 0 ? status : mapStatus;
}
