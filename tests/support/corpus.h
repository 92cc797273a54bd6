// Access to the real-media corpus that tests/corpus/make_corpus.sh builds
// (the CTest fixture "corpus" runs it and sets QMKV_CORPUS_DIR).
//
// A test that needs the corpus starts with QMKV_REQUIRE_CORPUS(): it is
// skipped when QMKV_CORPUS_DIR is unset (the binary was run by hand), but a
// file missing from a configured corpus is a failure, never a skip.
#ifndef QMKV_TEST_CORPUS_H_
#define QMKV_TEST_CORPUS_H_

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace qmkv_test {

// The corpus directory from QMKV_CORPUS_DIR, or "" when it is unset.
std::string corpusDir();

// The path of corpus file `name`; records a test failure when it is missing.
std::string corpusFile(const std::string &name);

// The file names manifest.txt lists, in its order; records a test failure
// when the manifest cannot be read or is empty.
std::vector<std::string> corpusFiles();

// Every file of the corpus in manifest order, with the streams libavformat
// reads in it. Fixed here so that a test's name never depends on the
// environment; corpus_test checks that the manifest lists the same files.
struct KnownFile {
    const char *name;
    const char *codecs;  // the oracle's codec names, '+'-joined in stream order
    const char *kinds;   // v(ideo) a(udio) s(ubtitle) t (attachment), in stream order
};
extern const std::vector<KnownFile> kKnownFiles;

// The names of the known files that start with none of `except`.
std::vector<std::string> knownNamesBut(std::initializer_list<std::string> except);

// The whole file at `path` (empty when it cannot be read).
std::vector<uint8_t> readBytes(const std::string &path);
// Writes `bytes` as the whole file at `path`.
void writeBytes(const std::string &path, const std::vector<uint8_t> &bytes);
// What the shell command `command` writes to its standard output.
std::vector<uint8_t> commandOutput(const std::string &command);

// A parameterised test's name for a file name: "h264_aac.mkv" -> "h264_aac_mkv".
std::string testName(const ::testing::TestParamInfo<std::string> &info);

}  // namespace qmkv_test

// Skips the current test when no corpus is configured. A macro because
// GTEST_SKIP has to return from the test body itself.
#define QMKV_REQUIRE_CORPUS()                                                  \
    do {                                                                       \
        if (::qmkv_test::corpusDir().empty())                                  \
            GTEST_SKIP() << "QMKV_CORPUS_DIR is not set (run through ctest)";  \
    } while (0)

#endif  // QMKV_TEST_CORPUS_H_
