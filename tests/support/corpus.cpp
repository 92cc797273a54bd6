#include "tests/support/corpus.h"

#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <ctype.h>

#include <fstream>
#include <iterator>

namespace qmkv_test {

std::string corpusDir() {
    const char *dir = getenv("QMKV_CORPUS_DIR");
    return dir != nullptr ? dir : "";
}

std::string corpusFile(const std::string &name) {
    const std::string dir = corpusDir();
    if (dir.empty()) {
        ADD_FAILURE() << "QMKV_CORPUS_DIR is not set; start the test with QMKV_REQUIRE_CORPUS()";
        return name;
    }
    const std::string path = dir + "/" + name;
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_size == 0)
        ADD_FAILURE() << "corpus file missing or empty: " << path;
    return path;
}

std::vector<CorpusEntry> corpusFiles() {
    std::vector<CorpusEntry> entries;
    const std::string dir = corpusDir();
    if (dir.empty()) {
        ADD_FAILURE() << "QMKV_CORPUS_DIR is not set; start the test with QMKV_REQUIRE_CORPUS()";
        return entries;
    }
    std::ifstream in(dir + "/manifest.txt");
    if (!in) {
        ADD_FAILURE() << "cannot read " << dir << "/manifest.txt";
        return entries;
    }
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty()) continue;
        const size_t space = line.find(' ');
        CorpusEntry e;
        e.name = line.substr(0, space);
        if (space != std::string::npos) e.description = line.substr(space + 1);
        entries.push_back(std::move(e));
    }
    if (entries.empty()) ADD_FAILURE() << dir << "/manifest.txt lists no file";
    return entries;
}

std::vector<uint8_t> readBytes(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeBytes(const std::string &path, const std::vector<uint8_t> &bytes) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char *>(bytes.data()), (long)bytes.size());
}

std::vector<uint8_t> commandOutput(const std::string &command) {
    std::vector<uint8_t> out;
    FILE *p = popen(command.c_str(), "r");
    uint8_t buf[65536];
    for (size_t n; p != nullptr && (n = fread(buf, 1, sizeof buf, p)) > 0;) out.insert(out.end(), buf, buf + n);
    if (p != nullptr) pclose(p);
    return out;
}

std::string testName(const ::testing::TestParamInfo<std::string> &info) {
    std::string n = info.param;
    for (char &c : n)
        if (!isalnum((unsigned char)c)) c = '_';
    return n;
}

}  // namespace qmkv_test
