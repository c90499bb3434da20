// Helpers shared by the fuzz targets: a scratch file for the readers (which take file names),
// quiet message handlers that still check every message, deterministic parameter choices, and
// a check that aborts (so the fuzzer records the input) when an invariant does not hold.
//
// Every target defines LLVMFuzzerTestOneInput. The same sources are linked with libFuzzer for
// fuzzing and with replay_main.cpp for replaying kept inputs in the test suite.
#ifndef MUSKEIP_FUZZ_TARGET_H
#define MUSKEIP_FUZZ_TARGET_H

#include "messages.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fuzz {

// Aborts with a message when `condition` is false: a broken invariant is a finding.
#define FUZZ_CHECK(condition)                                                                      \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            fprintf(stderr, "fuzz check failed at %s:%d: %s\n", __FILE__, __LINE__, #condition);   \
            abort();                                                                               \
        }                                                                                          \
    } while (0)

// A message must be a terminated text of sensible length with the library's prefix.
inline int checkMessage(const char* text) {
    FUZZ_CHECK(text != nullptr);
    size_t length = strnlen(text, 4096);
    FUZZ_CHECK(length < 4096);
    FUZZ_CHECK(strncmp(text, "FLIC ", 5) == 0);
    return 0;
}

// checkMessage, then the text on standard error.
inline int printMessage(const char* text) {
    checkMessage(text);
    fprintf(stderr, "%s\n", text);
    return 0;
}

// Routes the library's messages into checkMessage instead of standard error (into printMessage
// when MUSKEIP_FUZZ_VERBOSE is set, to see what an input does), and turns the informational
// messages on, so that their formatting is exercised too.
inline void quietMessages() {
    static const FlicMessageHandler handler =
        getenv("MUSKEIP_FUZZ_VERBOSE") ? printMessage : checkMessage;
    flic_error_handler = handler;
    flic_info_handler = handler;
    flic_verbosity = 1;
}

// A file that holds the current input for the readers: in /dev/shm when it exists (memory, no
// disk traffic), else in /tmp. One per process and name, removed at exit.
class ScratchFile {
  public:
    explicit ScratchFile(const char* name) {
        const char* dir = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        path = std::string(dir) + "/muskeip-fuzz-" + std::to_string(getpid()) + "-" + name;
    }
    ~ScratchFile() { unlink(path.c_str()); }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    // Replaces the file's contents with the bytes; returns its name.
    const char* write(const uint8_t* data, size_t size) {
        FILE* file = fopen(path.c_str(), "wb");
        FUZZ_CHECK(file != nullptr);
        if (size > 0) FUZZ_CHECK(fwrite(data, 1, size, file) == size);
        FUZZ_CHECK(fclose(file) == 0);
        return path.c_str();
    }
    const char* name() const { return path.c_str(); }

  private:
    std::string path;
};

// Deterministic choices drawn from a seed (splitmix64): the readers' inputs are whole files,
// so their extra parameters (grid sizes, image shapes, boxes) come from a hash of the bytes.
class Choices {
  public:
    explicit Choices(uint64_t seed) : state(seed) {}

    uint64_t next() {
        uint64_t z = (state += 0x9e3779b97f4a7c15ULL);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
        return z ^ (z >> 31);
    }
    // An index below n.
    int below(int n) { return static_cast<int>(next() % static_cast<uint64_t>(n)); }
    template <typename T, size_t N>
    T from(const T (&table)[N]) {
        return table[below(static_cast<int>(N))];
    }

  private:
    uint64_t state;
};

// FNV-1a hash of the input, the seed of the readers' parameter choices.
inline uint64_t hashBytes(const uint8_t* data, size_t size) {
    uint64_t h = 0xcbf29ce484222325ULL;
    for (size_t i = 0; i < size; i++) {
        h ^= data[i];
        h *= 0x100000001b3ULL;
    }
    return h;
}

// Reads parameters from the input bytes in order; an exhausted input gives zeros.
class ByteReader {
  public:
    ByteReader(const uint8_t* data, size_t size) : data(data), size(size) {}

    uint8_t byte() { return position < size ? data[position++] : 0; }
    uint32_t word() {
        uint32_t w = 0;
        for (int i = 0; i < 4; i++)
            w |= static_cast<uint32_t>(byte()) << (8 * i);
        return w;
    }
    // Any 32-bit pattern as a float: NaNs, infinities, subnormals and huge values included.
    float rawFloat() {
        uint32_t bits = word();
        float value;
        memcpy(&value, &bits, sizeof value);
        return value;
    }
    int below(int n) { return byte() % n; }
    template <typename T, size_t N>
    T from(const T (&table)[N]) {
        return table[below(static_cast<int>(N))];
    }
    bool exhausted() const { return position >= size; }

  private:
    const uint8_t* data;
    size_t size;
    size_t position = 0;
};

} // namespace fuzz

#endif
