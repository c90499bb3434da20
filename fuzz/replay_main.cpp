// Replays kept inputs through a fuzz target without libFuzzer: every file named on the command
// line, and every file in every directory named (in name order), is passed to
// LLVMFuzzerTestOneInput once. A target reports a finding by aborting (a failed check, or a
// sanitizer in a sanitizer build), so reaching the end means every input passed.
#include "fuzz_target.h"

#include <algorithm>
#include <cstdio>
#include <dirent.h>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace {

bool isDirectory(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// The regular files of a directory, sorted by name; hidden files are skipped.
std::vector<std::string> filesIn(const std::string& dir) {
    std::vector<std::string> files;
    DIR* listing = opendir(dir.c_str());
    if (!listing) return files;
    while (dirent* entry = readdir(listing)) {
        std::string name = entry->d_name;
        if (name.empty() || name[0] == '.') continue;
        std::string path = dir + "/" + name;
        if (!isDirectory(path)) files.push_back(path);
    }
    closedir(listing);
    std::sort(files.begin(), files.end());
    return files;
}

bool readBytes(const std::string& path, std::vector<uint8_t>& bytes) {
    FILE* file = fopen(path.c_str(), "rb");
    if (!file) return false;
    bytes.clear();
    uint8_t chunk[65536];
    size_t got;
    while ((got = fread(chunk, 1, sizeof chunk, file)) > 0)
        bytes.insert(bytes.end(), chunk, chunk + got);
    fclose(file);
    return true;
}

} // namespace

int main(int argc, char** argv) {
    std::vector<std::string> inputs;
    for (int i = 1; i < argc; i++) {
        if (isDirectory(argv[i])) {
            std::vector<std::string> files = filesIn(argv[i]);
            inputs.insert(inputs.end(), files.begin(), files.end());
        } else {
            inputs.push_back(argv[i]);
        }
    }
    std::vector<uint8_t> bytes;
    for (const std::string& path : inputs) {
        if (!readBytes(path, bytes)) {
            fprintf(stderr, "cannot read %s\n", path.c_str());
            return 1;
        }
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    printf("%zu inputs replayed\n", inputs.size());
    return 0;
}
