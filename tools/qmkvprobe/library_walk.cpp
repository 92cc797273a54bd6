#include "library_walk.h"

#include <dirent.h>
#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <set>
#include <utility>

namespace qmkvprobe {

namespace {

using FolderId = std::pair<dev_t, ino_t>;

struct Walker {
    LibraryWalk out;
    std::set<FolderId> seen;  // every folder entered: no folder is walked twice

    void skip(const std::string &path, const std::string &why) { out.skipped.push_back(path + ": " + why); }

    void folder(const std::string &path, const struct stat &st) {
        if (!seen.insert({st.st_dev, st.st_ino}).second) {
            skip(path, "folder already walked (a link loop or a second link to it)");
            return;
        }
        DIR *d = opendir(path.c_str());
        if (d == nullptr) {
            skip(path, std::string("folder cannot be read (") + strerror(errno) + ")");
            return;
        }
        std::vector<std::string> names;
        while (const struct dirent *e = readdir(d)) {
            if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) names.push_back(e->d_name);
        }
        closedir(d);
        std::sort(names.begin(), names.end());
        for (const std::string &name : names) entry(path + "/" + name);
    }

    void entry(const std::string &path) {
        struct stat st;
        if (stat(path.c_str(), &st) != 0) {
            skip(path, strerror(errno));  // a broken link, or a loop of links
        } else if (S_ISDIR(st.st_mode)) {
            folder(path, st);
        } else if (S_ISREG(st.st_mode)) {
            out.files.push_back(path);
        } else {
            skip(path, "not a regular file");
        }
    }
};

}  // namespace

LibraryWalk walkLibrary(const std::string &dir) {
    Walker w;
    std::string root = dir;
    while (root.size() > 1 && root.back() == '/') root.pop_back();
    w.entry(root);
    return w.out;
}

}  // namespace qmkvprobe
