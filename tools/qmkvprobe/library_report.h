// The lines of a library run: one per file, then the summary.
#ifndef QMKVPROBE_LIBRARY_REPORT_H_
#define QMKVPROBE_LIBRARY_REPORT_H_

#include <stddef.h>

#include <map>
#include <string>

#include <nlohmann/json.hpp>

namespace qmkvprobe {

class LibraryReport {
public:
    explicit LibraryReport(bool json) : mJson(json) {}
    // Prints a file's line (an entry of checkLibraryFile) and counts it.
    void add(const nlohmann::ordered_json &file);
    // Prints the files per verdict and the most common reasons.
    void printSummary(size_t skipped, double seconds) const;

private:
    bool mJson;
    size_t mFiles = 0;
    std::map<std::string, size_t> mVerdicts;
    std::map<std::string, size_t> mReasons;  // files per reason
};

}  // namespace qmkvprobe

#endif  // QMKVPROBE_LIBRARY_REPORT_H_
