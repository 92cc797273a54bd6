// qmkvprobe run as a person runs it: the built tool with its output kept.
#ifndef QMKV_TEST_PROBE_RUN_H_
#define QMKV_TEST_PROBE_RUN_H_

#include <string>
#include <vector>

namespace qmkv_test {

std::string slurp(const std::string &path);
void writeText(const std::string &path, const std::string &text);

struct ProbeOutput {
    int status = -1;  // the exit status; -1 when the tool did not exit normally
    std::string out, err;
};

// Runs the built tool with `args` (a shell word list), its output kept in
// files under `dir`.
ProbeOutput runProbe(const std::string &args, const std::string &dir);

struct ProbeRun {
    std::string args;
    int status;
    std::vector<std::string> out, err;  // texts stdout and stderr must hold
};

// Runs each and checks its exit status and texts.
void expectRuns(const std::vector<ProbeRun> &runs, const std::string &dir);

}  // namespace qmkv_test

#endif  // QMKV_TEST_PROBE_RUN_H_
