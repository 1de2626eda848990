#include "fault/scratch_dir.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

namespace faulttest {

namespace fs = std::filesystem;

namespace {

// Gives every folder below `root` its owner's write permission back, so
// that removal cannot be stopped by a test's read-only folder.
void make_writable(const fs::path& root) {
    std::error_code ignored;
    fs::permissions(root, fs::perms::owner_all, fs::perm_options::add, ignored);
    for (auto it = fs::recursive_directory_iterator(root, ignored); it != fs::recursive_directory_iterator();
         it.increment(ignored)) {
        if (it->is_directory(ignored)) fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
    }
}

}  // namespace

scratch_dir::scratch_dir(const std::string& prefix) {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/" + prefix + "-XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    if (!mkdtemp(name.data())) return;
    std::error_code ignored;
    path_ = fs::absolute(name.data(), ignored).string();
}

scratch_dir::~scratch_dir() {
    if (path_.empty()) return;
    make_writable(path_);
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::vector<std::string> scratch_dir::names(const std::string& sub) const {
    std::vector<std::string> found;
    std::error_code ignored;
    fs::path where = sub.empty() ? fs::path(path_) : fs::path(path_) / sub;
    for (auto it = fs::directory_iterator(where, ignored); it != fs::directory_iterator(); it.increment(ignored))
        found.push_back(it->path().filename().string());
    std::sort(found.begin(), found.end());
    return found;
}

void scratch_dir::empty() const {
    make_writable(path_);
    std::error_code ignored;
    for (const auto& name : names()) fs::remove_all(fs::path(path_) / name, ignored);
}

bool exists(const std::string& path) {
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0;
}

}  // namespace faulttest
