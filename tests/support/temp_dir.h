// A fresh directory under /tmp, removed with everything in it.
#ifndef QMKV_TEST_TEMP_DIR_H_
#define QMKV_TEST_TEMP_DIR_H_

#include <stdlib.h>

#include <filesystem>
#include <string>

namespace qmkv_test {

struct TempDir {
    const std::string path = [] {
        char tmpl[] = "/tmp/qmkv_test.XXXXXX";
        return std::string(mkdtemp(tmpl) ? tmpl : "");
    }();
    ~TempDir() {
        std::error_code ec;
        if (!path.empty()) std::filesystem::remove_all(path, ec);
    }
};

}  // namespace qmkv_test

#endif  // QMKV_TEST_TEMP_DIR_H_
