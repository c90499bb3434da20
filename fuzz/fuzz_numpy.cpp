// The command line's numpy reader (.npy arrays and .npz zip archives) on arbitrary bytes: it
// either gives a field of at least 2 x 2 nodes or says what is wrong; the zip reader alone is
// run too, with a small member limit, and the library's file probe on the same bytes.
#include "fuzz_target.h"
#include "numpy_files.h"
#include "probe.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzz::ScratchFile input("numpy");
    fuzz::quietMessages();

    FlicVectorField field;
    std::string problem = numpyField(data, size, field);
    if (problem.empty()) {
        FUZZ_CHECK(field.width >= 2 && field.height >= 2);
        FUZZ_CHECK(field.data != nullptr);
    } else {
        FUZZ_CHECK(problem.size() < 4096);
    }
    std::vector<ZipMember> members;
    if (unzipMembers(data, size, 1 << 20, members).empty())
        for (const ZipMember& member : members)
            FUZZ_CHECK(member.second.size() <= (1u << 20));

    FlicFileProbe probe;
    FUZZ_CHECK(flicProbeFile(input.write(data, size), probe) == 1);
    FUZZ_CHECK(probe.kind != FLIC_FILE_MISSING);
    FUZZ_CHECK(probe.problem[sizeof probe.problem - 1] == '\0');
    return 0;
}
