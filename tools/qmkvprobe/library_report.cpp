#include "library_report.h"

#include <stdio.h>

#include <algorithm>
#include <set>
#include <utility>
#include <vector>

#include "format_json.h"

using nlohmann::ordered_json;

namespace qmkvprobe {

namespace {

const char *const kVerdicts[] = {"plays", "partly", "none", "refused"};
// The summary names the reasons met most often, not every one.
const size_t kTopReasons = 10;

struct Fault {
    std::string text;    // as the file's line shows it
    std::string reason;  // as the summary counts it
};

// What keeps a file from playing whole.
std::vector<Fault> faults(const ordered_json &file) {
    std::vector<Fault> out;
    if (file.at("verdict") == "refused") out.push_back({file.at("reason"), file.at("reason")});
    for (const ordered_json &t : file.at("tracks")) {
        if (t.at("error-type") == 0) continue;
        const std::string status = t.at("status");
        out.push_back({"tracks[" + std::to_string(t.at("track").get<size_t>()) + "] " +
                           t.at("mime").get<std::string>() + ": " + status,
                       status});
    }
    for (const ordered_json &d : file.at("dropped")) {
        const std::string reason = "dropped: " + d.at("reason").get<std::string>();
        out.push_back({"track " + std::to_string(d.at("track_number").get<uint32_t>()) + " " +
                           d.at("codec_id").get<std::string>() + " " + reason,
                       reason});
    }
    return out;
}

}  // namespace

void LibraryReport::add(const ordered_json &file) {
    mFiles++;
    mVerdicts[file.at("verdict").get<std::string>()]++;
    const std::vector<Fault> found = faults(file);
    std::set<std::string> reasons;
    for (const Fault &f : found) reasons.insert(f.reason);
    for (const std::string &r : reasons) mReasons[r]++;
    if (mJson) {
        printf("%s\n", jsonLine(file).c_str());
        return;
    }
    std::string line = file.at("verdict").get<std::string>();
    line.resize(8, ' ');
    line += file.at("path").get<std::string>();
    for (const Fault &f : found) line += " | " + f.text;
    printf("%s\n", line.c_str());
}

void LibraryReport::printSummary(size_t skipped, double seconds) const {
    std::vector<std::pair<std::string, size_t>> top(mReasons.begin(), mReasons.end());
    std::stable_sort(top.begin(), top.end(), [](const auto &a, const auto &b) { return a.second > b.second; });
    if (top.size() > kTopReasons) top.resize(kTopReasons);
    auto count = [this](const char *verdict) {
        const auto v = mVerdicts.find(verdict);
        return v != mVerdicts.end() ? v->second : 0;
    };
    if (mJson) {
        ordered_json s = {{"files", mFiles}};
        for (const char *v : kVerdicts) s[v] = count(v);
        s["skipped"] = skipped;
        s["seconds"] = seconds;
        ordered_json reasons = ordered_json::array();
        for (const auto &[why, files] : top) reasons.push_back({{"reason", why}, {"files", files}});
        s["reasons"] = reasons;
        printf("%s\n", jsonLine({{"summary", s}}).c_str());
        return;
    }
    printf("summary: %zu files", mFiles);
    for (const char *v : kVerdicts) printf(", %zu %s", count(v), v);
    printf("; %zu skipped; %.1f s\n", skipped, seconds);
    for (const auto &[why, files] : top) printf("  %s: %zu file%s\n", why.c_str(), files, files == 1 ? "" : "s");
}

}  // namespace qmkvprobe
