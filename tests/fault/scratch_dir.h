// A fresh folder for one test's files, removed with everything in it.
#pragma once

#include <string>
#include <vector>

namespace faulttest {

// A mkdtemp folder under TMPDIR (or /tmp) that is removed when it goes.
class scratch_dir {
public:
    // Makes the folder; its name starts with `prefix`.
    explicit scratch_dir(const std::string& prefix = "tarvex-test");
    scratch_dir(const scratch_dir&) = delete;
    scratch_dir& operator=(const scratch_dir&) = delete;
    // Removes the folder and its contents, read-only folders included.
    ~scratch_dir();

    // The folder's absolute path; empty when it could not be made.
    const std::string& path() const { return path_; }
    // The path of `name` inside the folder.
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }
    // The names in the folder (or in its sub-folder `sub`), sorted, without "." and "..".
    std::vector<std::string> names(const std::string& sub = "") const;
    // Removes everything inside the folder, keeping the folder.
    void empty() const;

private:
    std::string path_;
};

// True when `path` exists (as anything).
bool exists(const std::string& path);

}  // namespace faulttest
