#include "tests/support/probe_run.h"

#include <stdlib.h>
#include <sys/wait.h>

#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

namespace qmkv_test {

std::string slurp(const std::string &path) {
    std::ostringstream s;
    s << std::ifstream(path).rdbuf();
    return s.str();
}

void writeText(const std::string &path, const std::string &text) { std::ofstream(path, std::ios::binary) << text; }

ProbeOutput runProbe(const std::string &args, const std::string &dir) {
    const int r = std::system((std::string(QMKV_PROBE) + " " + args + " >" + dir + "/out 2>" + dir + "/err").c_str());
    ProbeOutput o;
    o.status = WIFEXITED(r) ? WEXITSTATUS(r) : -1;
    o.out = slurp(dir + "/out");
    o.err = slurp(dir + "/err");
    return o;
}

void expectRuns(const std::vector<ProbeRun> &runs, const std::string &dir) {
    for (const ProbeRun &c : runs) {
        const ProbeOutput o = runProbe(c.args, dir);
        EXPECT_EQ(c.status, o.status) << c.args;
        for (const std::string &s : c.out) EXPECT_NE(std::string::npos, o.out.find(s)) << c.args << ": " << s;
        for (const std::string &s : c.err) EXPECT_NE(std::string::npos, o.err.find(s)) << c.args << ": " << s;
        if (::testing::Test::HasFailure()) FAIL() << "stdout:\n" << o.out << "stderr:\n" << o.err;
    }
}

}  // namespace qmkv_test
