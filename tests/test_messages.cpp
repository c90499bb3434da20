// Message formatting, handlers, verbosity, and the package entry's build description.
#include "messages.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <sstream>
#include <string>
#include <sys/stat.h>

using testutil::MessageCapture;
using testutil::stderrOf;

TEST(Messages, PrefixesVerbosityIoerrorAndOverlongTexts) {
    MessageCapture capture(1);
    EXPECT_EQ(flic_error("bad %s %d", "thing", 7) + flic_info("%d lines", 12), 0);
    flic_verbosity = 0; // the format is not even evaluated: the bogus pointer is never read
    EXPECT_EQ(flic_info("%s", reinterpret_cast<const char*>(1)), 0);
    flic_verbosity = -3;
    flic_info("negative verbosity %d", -3);
    errno = ENOENT; // no reason given: the system's text
    EXPECT_EQ(flic_ioerror("/nonexistent-dir/field.dat", nullptr), 0);
    flic_ioerror("field.dat", "illegal vector field dimensions");
    flic_error("%s", std::string(10000, 'x').c_str()); // cut to the 4096-byte buffer
    EXPECT_EQ(capture.infos(), (std::vector<std::string>{"FLIC info: 12 lines",
                                                         "FLIC info: negative verbosity -3"}));
    EXPECT_EQ(capture.errors(),
              (std::vector<std::string>{
                  "FLIC error: bad thing 7",
                  "FLIC error: can't open /nonexistent-dir/field.dat (No such file or directory)",
                  "FLIC error: can't open field.dat (illegal vector field dimensions)",
                  "FLIC error: " + std::string(4095 - 12, 'x')}));
}

TEST(Messages, DefaultHandlersPrintLinesAndNullHandlersDrop) {
    int savedVerbosity = flic_verbosity;
    flic_verbosity = 1;
    EXPECT_EQ(stderrOf([] {
                  flic_error("one %d", 1);
                  flic_info("two");
              }),
              "FLIC error: one 1\nFLIC info: two\n");
    flic_verbosity = savedVerbosity;
    MessageCapture capture(1); // restores the default handlers afterwards
    flic_error_handler = nullptr;
    flic_info_handler = nullptr;
    EXPECT_EQ(stderrOf([] {
                  flic_error("dropped");
                  flic_info("dropped");
                  flic_ioerror("file", "reason");
              }),
              "");
}

TEST(PackageEntry, DescriptionListsTheSixteenKeysInOrder) {
    std::string text = orlapackage_flic();
    ASSERT_EQ(text.substr(0, 8), "|vendor|");
    std::vector<std::string> fields;
    std::istringstream in(text.substr(1));
    std::string keys;
    for (std::string field; std::getline(in, field, '|');)
        fields.push_back(field);
    for (size_t i = 0; i < fields.size(); i += 2)
        keys += fields[i] + " ";
    EXPECT_EQ(keys, "vendor product version_major version_minor version_patch version_tag comment "
                    "compiler target_os build_cfg build_user build_ip build_time filename path "
                    "size ");
    ASSERT_EQ(fields.size(), 32u) << text;
    EXPECT_EQ(fields[3], "muskeip");
    // The file fields describe the library actually loaded.
    EXPECT_EQ(fields[27].rfind("libmuskeip.so", 0), 0u) << fields[27];
    struct stat st;
    ASSERT_EQ(stat((fields[29] + "/" + fields[27]).c_str(), &st), 0);
    EXPECT_EQ(fields[31], std::to_string(st.st_size));
    EXPECT_EQ(orlapackage_flic(), orlapackage_flic()); // one static text
}
