// Helpers shared by the test programs: message capture, scratch files, byte comparisons.
#ifndef MUSKEIP_TESTUTIL_H
#define MUSKEIP_TESTUTIL_H

#include "messages.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>
#include <sys/resource.h>
#include <unistd.h>

namespace testutil {

// Collects the texts passed to the message handlers while it lives, and restores the previous
// handlers and verbosity afterwards.
class MessageCapture {
  public:
    explicit MessageCapture(int verbosity = 1)
        : savedError(flic_error_handler), savedInfo(flic_info_handler),
          savedVerbosity(flic_verbosity) {
        errors().clear();
        infos().clear();
        flic_error_handler = &captureError;
        flic_info_handler = &captureInfo;
        flic_verbosity = verbosity;
    }
    ~MessageCapture() {
        flic_error_handler = savedError;
        flic_info_handler = savedInfo;
        flic_verbosity = savedVerbosity;
    }
    static std::vector<std::string>& errors() {
        static std::vector<std::string> list;
        return list;
    }
    static std::vector<std::string>& infos() {
        static std::vector<std::string> list;
        return list;
    }
    // The single error reported, or a description of how many there were.
    static std::string onlyError() {
        if (errors().size() == 1) return errors()[0];
        return "<" + std::to_string(errors().size()) + " errors>";
    }

  private:
    static int captureError(const char* text) {
        errors().push_back(text);
        return 0;
    }
    static int captureInfo(const char* text) {
        infos().push_back(text);
        return 0;
    }
    FlicMessageHandler savedError, savedInfo;
    int savedVerbosity;
};

// A scratch directory removed with its files at the end of the test.
class TempDir {
  public:
    TempDir() {
        char pattern[] = "/tmp/muskeip-test-XXXXXX";
        const char* made = mkdtemp(pattern);
        dir = made ? made : "/tmp";
    }
    ~TempDir() {
        std::string command = "rm -rf '" + dir + "'";
        if (dir != "/tmp") (void)!system(command.c_str());
    }
    std::string path(const std::string& name) const { return dir + "/" + name; }

  private:
    std::string dir;
};

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

inline void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary);
    out << bytes;
}

// Peak resident memory of this process so far, in kilobytes.
inline long peakResidentKilobytes() {
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// While it lives, limits the address space to what the process maps now plus `headroom` bytes,
// so that larger allocations fail. AddressSanitizer needs address space of its own and ignores
// such limits: active() is false in sanitizer builds and when the limit cannot be set.
class AddressSpaceLimit {
  public:
    explicit AddressSpaceLimit(long long headroom) {
#if !defined(__SANITIZE_ADDRESS__)
        long pages = 0;
        std::ifstream statm("/proc/self/statm");
        if (!(statm >> pages) || getrlimit(RLIMIT_AS, &saved) != 0) return;
        struct rlimit limited = saved;
        limited.rlim_cur = static_cast<rlim_t>(pages) * sysconf(_SC_PAGESIZE) + headroom;
        set = setrlimit(RLIMIT_AS, &limited) == 0;
#else
        (void)headroom;
#endif
    }
    ~AddressSpaceLimit() {
        if (set) setrlimit(RLIMIT_AS, &saved);
    }
    AddressSpaceLimit(const AddressSpaceLimit&) = delete;
    AddressSpaceLimit& operator=(const AddressSpaceLimit&) = delete;
    bool active() const {
        return set;
    }

  private:
    struct rlimit saved {};
    bool set = false;
};

} // namespace testutil

#endif
