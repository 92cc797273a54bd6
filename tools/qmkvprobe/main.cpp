// qmkvprobe: what the Android framework sees in a Matroska file through the
// plug-in, or, with --core, what the demuxer core sees.
#include <libgen.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include <media/MediaExtractorPluginHelper.h>
#include <qmkvhost/FileSource.h>

#include "core_mode.h"
#include "counted_source.h"
#include "library.h"
#include "map.h"
#include "options.h"
#include "plugin_log.h"
#include "plugin_mode.h"
#include "probe_util.h"

namespace {

const char kUsage[] =
    "usage: qmkvprobe [--core] [--json] [--packets] [--seek US[:MODE]] [--count] [--seek-count N] [--plugin PATH]\n"
    "                 [--device LIST] [--map OUT.svg|OUT.png] [--log] FILE\n"
    "       qmkvprobe --library DIR [--device LIST] [--json] [--jobs N] [--plugin PATH] [--log]\n"
    "       qmkvprobe --help\n";

// The plug-in built beside this tool.
std::string defaultPlugin() {
    char exe[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", exe, sizeof(exe) - 1);
    if (n <= 0) return "libqmkvextractor.so";
    exe[n] = '\0';
    return std::string(dirname(exe)) + "/libqmkvextractor.so";
}

int probe(const qmkvprobe::Options &opts, const std::string &plugin) {
    if (!opts.core) return qmkvprobe::runPlugin(opts, plugin);

    qmkvhost::FileSource file(opts.file.c_str());
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
    if (opts.help) {
        fputs(kUsage, stdout);
        return 0;
    }
    qmkvprobe::showPluginLog(opts.log);
    const std::string plugin = opts.plugin.empty() ? defaultPlugin() : opts.plugin;
    if ((opts.library.empty() && !qmkvprobe::checkInput(opts.file, &error)) ||
        (!opts.device.empty() && !qmkvprobe::checkInput(opts.device, &error))) {
        fprintf(stderr, "qmkvprobe: %s\n", error.c_str());
        return 1;
    }
    // The plug-in reads the device's codec list from here at every judgement.
    if (!opts.device.empty()) setenv("QMKV_CODEC_LIST", opts.device.c_str(), 1);
    if (!opts.library.empty()) return qmkvprobe::runLibrary(opts, plugin);
    const int status = probe(opts, plugin);
    if (opts.map.empty()) return status;
    const int mapStatus = qmkvprobe::writeMap(opts.file, opts.map);
    return status != 0 ? status : mapStatus;
}
