// Replays every input under fuzz/regressions/<target>/ through the same
// entry code the libFuzzer target runs, so that a failure the fuzzers found
// stays fixed in the ordinary (and the sanitized) test runs.
#include <gtest/gtest.h>

#include <ctype.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/fuzz_entries.h"
#include "tests/support/log_capture.h"

namespace fs = std::filesystem;

namespace {

struct Regression {
    std::string target;  // the fuzz binary's name, which is the folder's
    std::string path;
};

std::vector<Regression> regressions() {
    std::vector<Regression> all;
    std::error_code ec;
    for (const fs::directory_entry &dir : fs::directory_iterator(QMKV_FUZZ_REGRESSIONS_DIR, ec)) {
        if (!dir.is_directory()) continue;
        for (const fs::directory_entry &file : fs::directory_iterator(dir.path(), ec))
            if (file.is_regular_file()) all.push_back({dir.path().filename().string(), file.path().string()});
    }
    std::sort(all.begin(), all.end(), [](const Regression &a, const Regression &b) { return a.path < b.path; });
    return all;
}

std::string testName(const testing::TestParamInfo<Regression> &info) {
    std::string name = info.param.target + "_" + fs::path(info.param.path).filename().string();
    for (char &c : name)
        if (!isalnum((unsigned char)c)) c = '_';
    return name;
}

class FuzzRegression : public testing::TestWithParam<Regression> {};

TEST_P(FuzzRegression, RunsClean) {
    const Regression &r = GetParam();
    qmkv_fuzz::Entry entry = qmkv_fuzz::entryByName(r.target.c_str());
    ASSERT_NE(nullptr, entry) << "no fuzz target named " << r.target;
    std::ifstream in(r.path, std::ios::binary);
    ASSERT_TRUE(in.good()) << r.path;
    const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    // The inputs are broken on purpose; what they log is of no interest.
    qmkv_test::LogCapture quiet;
    qmkv_fuzz::seekEverywhere(true);
    // Exact size, as libFuzzer hands it over, so that an overread shows.
    std::unique_ptr<uint8_t[]> data(new uint8_t[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), data.get());
    EXPECT_EQ(0, entry(data.get(), bytes.size()));
}

INSTANTIATE_TEST_SUITE_P(Inputs, FuzzRegression, testing::ValuesIn(regressions()), testName);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(FuzzRegression);

TEST(FuzzRegressions, EveryFolderNamesATarget) {
    std::error_code ec;
    for (const fs::directory_entry &dir : fs::directory_iterator(QMKV_FUZZ_REGRESSIONS_DIR, ec)) {
        if (dir.is_directory()) {
            EXPECT_NE(nullptr, qmkv_fuzz::entryByName(dir.path().filename().c_str())) << dir.path();
        }
    }
    EXPECT_FALSE(ec) << ec.message();
}

}  // namespace
