// End-to-end tests of the `muskeip` program: they run the real binary and read back what it
// wrote.
#include "image_files.h"
#include "testutil.h"

#include "image.h"

#include <gtest/gtest.h>

#include <string>
#include <sys/wait.h>

namespace {

struct Outcome {
    int status;
    std::string out, err;
};

std::string quoted(const std::string& text) {
    std::string result = "'";
    for (char c : text)
        result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
}

Outcome muskeip(const std::string& arguments) {
    testutil::TempDir scratch;
    std::string command = std::string(MUSKEIP_BINARY) + " " + arguments + " >" +
                          quoted(scratch.path("out")) + " 2>" + quoted(scratch.path("err")) +
                          " </dev/null";
    int raw = system(command.c_str());
    Outcome run;
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    run.out = testutil::readFile(scratch.path("out"));
    run.err = testutil::readFile(scratch.path("err"));
    return run;
}

} // namespace

TEST(Cli, Version) {
    Outcome run = muskeip("--version");
    EXPECT_EQ(0, run.status);
    EXPECT_NE(std::string::npos, run.out.find("muskeip"));
}
