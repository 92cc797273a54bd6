// Command line of qmkvprobe.
#ifndef QMKVPROBE_OPTIONS_H_
#define QMKVPROBE_OPTIONS_H_

#include <stdint.h>

#include <string>

namespace qmkvprobe {

struct Options {
    bool help = false;
    bool core = false;
    bool json = false;
    bool packets = false;
    bool count = false;
    bool seek = false;
    int64_t seekUs = 0;
    std::string seekMode = "prev";
    int64_t seekCount = -1;
    std::string plugin;
    std::string device;  // the device's codec list; empty for the built-in default
    std::string map;  // --map: where to draw the picture of the file
    bool log = false;  // copy the plug-in's log lines to stderr
    std::string library;  // --library: the folder to check instead of one file
    int64_t jobs = 0;     // files opened at once with --library; 0: one per core
    std::string file;
};

// Parses argv into `opts`; on bad usage returns false with `error` set.
// With --help no file is needed; with --library no file is taken.
bool parseOptions(int argc, char **argv, Options *opts, std::string *error);

}  // namespace qmkvprobe

#endif  // QMKVPROBE_OPTIONS_H_
