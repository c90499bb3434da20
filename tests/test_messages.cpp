// Message formatting, handlers, verbosity, and the package entry's build description.
#include "messages.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <sys/stat.h>

using testutil::MessageCapture;

TEST(Messages, ErrorAndInfoReachHandlersWithPrefixAndWithoutNewline) {
    MessageCapture capture(1);
    EXPECT_EQ(flic_error("bad %s %d", "thing", 7), 0);
    EXPECT_EQ(flic_info("%d lines", 12), 0);
    ASSERT_EQ(capture.errors().size(), 1u);
    EXPECT_EQ(capture.errors()[0], "FLIC error: bad thing 7");
    ASSERT_EQ(capture.infos().size(), 1u);
    EXPECT_EQ(capture.infos()[0], "FLIC info: 12 lines");
}

TEST(Messages, InfoIsGatedByVerbosityWithoutFormatting) {
    {
        MessageCapture capture(0);
        // With verbosity 0 the format is not evaluated: the bogus pointer is never read.
        EXPECT_EQ(flic_info("%s", reinterpret_cast<const char*>(1)), 0);
        EXPECT_TRUE(capture.infos().empty());
    }
    {
        MessageCapture capture(-3);
        flic_info("negative verbosity %d", -3);
        ASSERT_EQ(capture.infos().size(), 1u);
        EXPECT_EQ(capture.infos()[0], "FLIC info: negative verbosity -3");
    }
}

TEST(Messages, NullHandlersDropMessagesSilently) {
    MessageCapture capture(1);
    flic_error_handler = nullptr;
    flic_info_handler = nullptr;
    testing::internal::CaptureStderr();
    EXPECT_EQ(flic_error("dropped"), 0);
    EXPECT_EQ(flic_info("dropped"), 0);
    EXPECT_EQ(flic_ioerror("file", "reason"), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Messages, DefaultHandlerPrintsLineToStandardError) {
    int savedVerbosity = flic_verbosity;
    flic_verbosity = 1;
    testing::internal::CaptureStderr();
    flic_error("one %d", 1);
    flic_info("two");
    std::string printed = testing::internal::GetCapturedStderr();
    flic_verbosity = savedVerbosity;
    EXPECT_EQ(printed, "FLIC error: one 1\nFLIC info: two\n");
}

TEST(Messages, IoerrorUsesSystemTextWhenNoReasonIsGiven) {
    MessageCapture capture;
    FILE* file = fopen("/nonexistent-dir/field.dat", "rb");
    ASSERT_EQ(file, nullptr);
    EXPECT_EQ(flic_ioerror("/nonexistent-dir/field.dat", nullptr), 0);
    EXPECT_EQ(capture.onlyError(),
              "FLIC error: can't open /nonexistent-dir/field.dat (No such file or directory)");
    flic_ioerror("field.dat", "illegal vector field dimensions");
    EXPECT_EQ(capture.errors()[1],
              "FLIC error: can't open field.dat (illegal vector field dimensions)");
}

TEST(Messages, OverlongMessagesAreCutToTheBuffer) {
    MessageCapture capture;
    std::string longText(10000, 'x');
    flic_error("%s", longText.c_str());
    ASSERT_EQ(capture.errors().size(), 1u);
    EXPECT_EQ(capture.errors()[0].size(), 4095u);
    EXPECT_EQ(capture.errors()[0].substr(0, 13), "FLIC error: x");
}

TEST(PackageEntry, DescriptionListsTheSixteenKeysInOrder) {
    std::string text = orlapackage_flic();
    ASSERT_EQ(text.rfind("|vendor|", 0), 0u) << text;
    const char* keys[] = {"vendor",        "product",     "version_major", "version_minor",
                          "version_patch", "version_tag", "comment",       "compiler",
                          "target_os",     "build_cfg",   "build_user",    "build_ip",
                          "build_time",    "filename",    "path",          "size"};
    // Split "|key|value|key|value..." and check the keys, each once, in this order.
    std::vector<std::string> fields;
    size_t start = 1;
    while (start <= text.size()) {
        size_t bar = text.find('|', start);
        if (bar == std::string::npos) bar = text.size();
        fields.push_back(text.substr(start, bar - start));
        start = bar + 1;
    }
    ASSERT_EQ(fields.size(), 32u) << text;
    for (int i = 0; i < 16; i++)
        EXPECT_EQ(fields[2 * i], keys[i]);
    EXPECT_EQ(fields[3], "muskeip");
    // The file fields describe the library actually loaded.
    EXPECT_EQ(fields[27].rfind("libmuskeip.so", 0), 0u) << fields[27];
    struct stat st;
    std::string full = fields[29] + "/" + fields[27];
    ASSERT_EQ(stat(full.c_str(), &st), 0) << full;
    EXPECT_EQ(fields[31], std::to_string(st.st_size));
    EXPECT_EQ(orlapackage_flic(), orlapackage_flic()); // one static text
}
