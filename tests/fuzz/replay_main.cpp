// Runs a fuzz target once on each file named on the command line, or on each
// file in a folder named there, so the seed corpus and the saved crash files
// run in every build, with or without libFuzzer.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

std::vector<std::string> files_named(int argc, char** argv) {
    namespace fs = std::filesystem;
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        std::error_code error;
        if (!fs::exists(argv[i], error)) {
            // A target may have no saved crash files yet.
            std::fprintf(stderr, "replay: %s does not exist, skipped\n", argv[i]);
            continue;
        }
        if (!fs::is_directory(argv[i], error)) {
            files.push_back(argv[i]);
            continue;
        }
        std::vector<std::string> found;
        for (const auto& entry : fs::directory_iterator(argv[i], error))
            if (entry.is_regular_file()) found.push_back(entry.path().string());
        std::sort(found.begin(), found.end());
        files.insert(files.end(), found.begin(), found.end());
    }
    return files;
}

}  // namespace

int main(int argc, char** argv) {
    if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);
    std::vector<std::string> files = files_named(argc, argv);
    if (files.empty()) {
        std::fprintf(stderr, "replay: no input files\n");
        return 1;
    }
    for (const auto& path : files) {
        std::ifstream in(path, std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "replay: cannot read %s\n", path.c_str());
            return 1;
        }
        std::vector<uint8_t> data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        std::fprintf(stderr, "replay: %s (%zu bytes)\n", path.c_str(), data.size());
        LLVMFuzzerTestOneInput(data.data(), data.size());
    }
    std::fprintf(stderr, "replay: %zu files, no failure\n", files.size());
    return 0;
}
