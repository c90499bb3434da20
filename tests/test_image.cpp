// FlicImage container: ownership, resizing, sampling, noise, statistics, PNM and histogram.
#include "image.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>

using namespace testutil;
using Bytes = std::vector<int>;

TEST(ImageContainer, OwnershipWrappingAndResizing) {
    FlicImage empty, allocated(6, 2, 3, 100, nullptr);
    EXPECT_TRUE(!empty.buffer && !empty.data && !empty.width && !empty.nChannels);
    // A null data pointer allocates a compact image; the given row distance is ignored.
    EXPECT_TRUE(allocated.bytesPerLine == 18 && allocated.data == allocated.buffer);
    EXPECT_EQ(FlicImage(6, 2, 100, nullptr).bytesPerLine, 6);

    unsigned char memory[3 * 8];
    memset(memory, 0xEE, sizeof memory);
    {
        FlicImage wrapped(5, 3, 8, memory); // grey, rows 8 bytes apart: 3 gap bytes each
        EXPECT_TRUE(wrapped.buffer == nullptr && wrapped.data == memory);
        wrapped.clear(0x1FF); // the low byte, within the rows only
        for (int i = 0; i < 24; i++)
            EXPECT_EQ(memory[i], i % 8 < 5 ? 0xFF : 0xEE) << i;
        memory[0] = 0;
        float mean, sdev;
        wrapped.getStatistics(mean, sdev); // fourteen 255s and one 0: the gaps do not count
        EXPECT_FLOAT_EQ(mean, 238.0f);
        EXPECT_FLOAT_EQ(sdev, std::sqrt(4335.0f)); // sample deviation: divided by n - 1
        FlicImage copy(wrapped), assigned;
        assigned = wrapped;
        FlicImage& alias = assigned;
        assigned = alias;
        for (const FlicImage* image : {&copy, &assigned}) { // compact deep copies
            EXPECT_EQ(image->bytesPerLine, 5);
            EXPECT_EQ(pixelBytes(*image), pixelBytes(wrapped));
        }
    }
    EXPECT_EQ(memory[1] + memory[7], 0xFF + 0xEE); // the caller's memory is neither freed nor lost
    FlicImage detached(5, 3, 3, 16, memory);
    detached.setSize(5, 3, 1);
    EXPECT_TRUE(detached.data != memory && detached.data == detached.buffer);
    // swap exchanges owned and wrapped storage with the geometry; neither block is freed.
    FlicImage borrowed(5, 3, 3, 16, memory);
    unsigned char* owned = detached.data;
    detached.swap(borrowed);
    EXPECT_TRUE(detached.data == memory && !detached.buffer && detached.bytesPerLine == 16 &&
                detached.nChannels == 3 && borrowed.buffer == owned && borrowed.nChannels == 1);

    FlicImage image(4, 4);
    image.setSize(0, 0, 1);
    EXPECT_EQ(image.buffer, nullptr);
    image.setSize(-2, 3, 1); // a negative count is empty too; the geometry is recorded
    EXPECT_TRUE(image.buffer == nullptr && image.data == nullptr && image.width == -2);
    image.clear(3); // nothing to touch
    image.setSize(3, 2, 3);
    image.clear(9);
    // Too many bytes: in all; in a row of an image without pixels (bytesPerLine would not fit
    // an int); beyond even 64 bits.
    for (const char* size :
         {"50000 x 50000 x 1", "2147483644 x 0 x 3", "2111111111 x 2111111111 x 3"}) {
        int w, h, c;
        sscanf(size, "%d x %d x %d", &w, &h, &c);
        MessageCapture capture;
        EXPECT_EQ(image.setSize(w, h, c), 0);
        EXPECT_EQ(capture.onlyError(),
                  "FLIC error: image size " + std::string(size) + " exceeds the 32-bit byte count");
        EXPECT_TRUE(image.width == 3 && image.nChannels == 3 && image.data[17] == 9);
    }
    EXPECT_EQ(image.setSize(2147483644, 0, 1), 1);
    EXPECT_EQ(image.bytesPerLine, 2147483644);

    // Caller memory wrapped with any geometry: a row of 2^31 - 4 two-byte pixels counts
    // 2^32 - 8 bytes, beyond an int, in an image of no rows (0 bytes: no mean).
    unsigned char guard[4] = {1, 2, 3, 4};
    FlicImage wide(2147483644, 0, 2, 0, guard);
    float mean, sdev;
    wide.getStatistics(mean, sdev);
    EXPECT_TRUE(std::isnan(mean));
    wide.clear(9); // no rows to touch
    wide.createRandom(1, 1);
    EXPECT_EQ(guard[0], 1);
}

TEST(ImageContainer, AllocationFailureLeavesTheImageAsItWas) {
    FlicImage image(3, 2, 1);
    image.clear(4);
    AddressSpaceLimit limit(256LL << 20);
    if (!limit.active()) GTEST_SKIP() << "address space cannot be limited in this build";
    MessageCapture capture;
    EXPECT_EQ(image.setSize(40000, 40000, 1), 0); // 1.6 GB
    EXPECT_EQ(capture.onlyError(), "FLIC error: no memory for an image of 40000 x 40000 x 1 bytes");
    EXPECT_EQ(pixelBytes(image), Bytes(6, 4));
    FlicImage fresh;
    EXPECT_EQ(fresh.setSize(30000, 30000, 2), 0);
    EXPECT_TRUE(fresh.data == nullptr && fresh.width == 0);
}

TEST(ImageSampling, WrappingDegenerateImagesAndOddCoordinates) {
    // 5 x 2 ramp: the period along x is 4, so x = -0.5 samples at 3.5, x = 4 at 0.
    FlicImage image = greyImage(5, 2, {0, 10, 20, 30, 40, 100, 110, 120, 130, 140});
    EXPECT_EQ(image.interp(-0.5f, 0.0f), 35);
    EXPECT_EQ(image.interp(4.0f, 0.0f), 0);
    EXPECT_EQ(image.interp(1.25f, 0.5f), 62); // 12.5 + 50 = 62.5, truncated
    EXPECT_EQ(image.interpConst(3.9f, 0.9f), 30);
    EXPECT_EQ(image.interpConst(-1.0f, 1.0f), 30); // x = -1 wraps to 3, y = 1 to 0 (period 1)
    // A non-planar cell: 67 + 28 - 48.93.
    EXPECT_EQ(greyImage(3, 3, {10, 200, 0, 50, 7, 0, 0, 0, 0}).interp(0.3f, 0.7f), 46);

    // A single row or column is sampled at position 0 along it.
    EXPECT_EQ(greyImage(4, 1, {5, 6, 7, 8}).interp(2.5f, 10.0f), 7);
    EXPECT_EQ(greyImage(1, 3, {5, 6, 7}).interp(9.0f, 1.0f), 6);
    EXPECT_EQ(FlicImage().interp(1, 1), 0);
    FlicImage nine = greyImage(3, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9});
    EXPECT_EQ(nine.interp(INFINITY, -INFINITY), 1);
    EXPECT_EQ(nine.interpConst(NAN, 0.0f), 1);
    EXPECT_EQ(nine.interp(NAN, 0.0f) + nine.interp(0.5f, NAN), 0); // a NaN mix gives 0
    EXPECT_EQ(nine.interp(1.0e30f, 0.0f), nine.interp(std::fmod(1.0e30f, 2.0f), 0.0f));
}

TEST(ImageNoise, CreateRandomDrawsOneValuePerByte) {
    FlicImage uniform(3, 2, 3), binary(16, 8, 3);
    uniform.createRandom(0, 11);
    binary.createRandom(1, 0); // seed 0 continues the sequence
    srand48(11);
    for (int v : pixelBytes(uniform))
        EXPECT_EQ(v, static_cast<int>(drand48() * 255.9999));
    for (int v : pixelBytes(binary))
        EXPECT_EQ(v, drand48() >= 0.5 ? 255 : 0);
}

TEST(ImageFiles, HistogramFileAndMeanOnStandardOutput) {
    TempDir dir;
    FlicImage image = greyImage(2, 2, {0, 3, 3, 255});
    testing::internal::CaptureStdout();
    EXPECT_EQ(image.writeHistogram(dir.path("h.txt").c_str()), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Mean = 65.25\n");
    std::string expected;
    for (int v = 0; v < 256; v++)
        expected += std::to_string(v) + (v == 3 ? " 2\n" : v == 0 || v == 255 ? " 1\n" : " 0\n");
    EXPECT_EQ(readFile(dir.path("h.txt")), expected);
    // An RGB image counts its first width * height bytes, channels mixed.
    testing::internal::CaptureStdout();
    makeImage(2, 1, 3, {1, 2, 3, 4, 5, 6}).writeHistogram(dir.path("rgb.txt").c_str());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Mean = 1.5\n");
    // The sum of 9 million bytes of 255 does not fit an int; the mean stays right.
    FlicImage bright(3000, 3000);
    bright.clear(255);
    testing::internal::CaptureStdout();
    bright.writeHistogram(dir.path("bright.txt").c_str());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Mean = 255\n");
    testing::internal::CaptureStdout();
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(image.writeHistogram("/nonexistent-dir/h.txt"), 0); }),
              "FlicImage: Can't write histogram /nonexistent-dir/h.txt\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(ImageFiles, PnmWritersAreByteExact) {
    TempDir dir;
    std::string path = dir.path("out.pnm");
    auto written = [&](const FlicImage& image, int ascii) {
        EXPECT_EQ(ascii < 0 ? image.writePNM(path.c_str()) : image.writePNM(path.c_str(), ascii),
                  1);
        return readFile(path);
    };
    // Top row first; every grey value has its own blank and then a separator, the last one too.
    EXPECT_EQ(written(greyImage(3, 2, {1, 2, 3, 40, 50, 255}), 1),
              "P2\n3 2\n255\n040  050  255  001  002  003  ");
    // The separator after every 16th pixel is a newline.
    std::string greys = "P2\n16 1\n255\n", triples = "P3\n17 1\n255\n001 009 003 ";
    for (int p = 0; p < 16; p++) {
        greys += p == 15 ? "007 \n" : "007  ";
        triples += p == 14 ? "009 009 009\n" : "009 009 009 "; // pixel p + 1
    }
    EXPECT_EQ(written(greyImage(16, 1, Bytes(16, 7)), 1), greys);
    FlicImage colour(17, 1, 3);
    colour.clear(9);
    memcpy(colour.data, "\1\11\3", 3);
    EXPECT_EQ(written(colour, 1), triples);

    unsigned char memory[] = {1, 2, 9, 9, 3, 4, 9, 9}; // 2 x 2 grey with row gaps
    EXPECT_EQ(written(FlicImage(2, 2, 4, memory), 0), std::string("P5\n2 2\n255\n\3\4\1\2", 15));
    EXPECT_EQ(written(makeImage(1, 2, 3, {'a', 'b', 'c', 'd', 'e', 'f'}), -1),
              "P6\n1 2\n255\ndefabc");
    // Two channels: written as grey from the first width bytes of each row.
    EXPECT_EQ(written(makeImage(2, 1, 2, {'w', 'x', 'y', 'z'}), 0), "P5\n2 1\n255\nwx");
    EXPECT_EQ(stderrOf([] { EXPECT_EQ(FlicImage(1, 1).writePNM("/nonexistent-dir/x.ppm"), 0); }),
              "FlicImage: Can't open file /nonexistent-dir/x.ppm\n");
}

TEST(ImageFiles, ReaderRoundTripsAcceptsCommentsShortFilesAndOddSamples) {
    TempDir dir;
    std::string path = dir.path("r.pnm");
    for (int channels : {1, 3})
        for (int ascii : {0, 1}) {
            FlicImage image(7, 5, channels), read(2, 2);
            image.createRandom(0, 3 + channels);
            ASSERT_EQ(image.writePNM(path.c_str(), ascii), 1);
            ASSERT_EQ(read.readPNM(path.c_str()), 1);
            EXPECT_EQ(read.nChannels, channels);
            EXPECT_EQ(pixelBytes(read), pixelBytes(image)) << channels << ascii;
        }

    FlicImage image(3, 2);
    image.clear(9);
    auto read = [&](const std::string& contents) {
        writeFile(path, contents);
        EXPECT_EQ(image.readPNM(path.c_str()), 1) << contents;
        return pixelBytes(image);
    };
    // A short binary file: the top row complete, the bottom row keeps the resized buffer.
    EXPECT_EQ(read("P5\n3 2\n255\nxyzA"), (Bytes{'A', 9, 9, 'x', 'y', 'z'}));
    EXPECT_EQ(read("P5 trailing words\n# one\n#two\n2 1\n# max follows\n65535\nAB"),
              (Bytes{'A', 'B'}));
    // ASCII samples keep their low byte; a sample that cannot be parsed repeats the last one.
    EXPECT_EQ(read("P2\n4 1\n255\n300 -1 12 x"), (Bytes{44, 255, 12, 12}));
    EXPECT_EQ(read("P3\n2 1\n255\n1 2 3\n4 5"), (Bytes{1, 2, 3, 4, 5, 3}));
}

TEST(ImageFiles, RejectedHeadersReportAndLeaveTheImageUnchanged) {
    TempDir dir;
    std::string path = dir.path("100%s%n.pnm"); // reported literally
    FlicImage image = greyImage(2, 1, {5, 6});
    std::string dims = "FLIC error: can't open " + path + " (couldn't read dimensions)";
    const std::pair<std::string, std::string> cases[] = {
        {"P5 2 1 255\nAB", dims},         // everything on the magic line
        {"P5\n2 1 255\nAB", dims},        // maximum on the dimension line
        {"P5\n2\n1\n255\nAB", dims},      // width and height on separate lines
        {"P5\n0 1\n255\n", dims},         // no pixels
        {"P5\n-4 1\n255\n", dims},        // negative width
        {"P6\n40000 30000\n255\n", dims}, // byte count beyond 32 bits
        {"P5\n# comment\n#", dims},       // file ends inside the comment lines
        {"", dims},
        {"P4\n2 1\n255\nAB", "FLIC error: " + path}, // unknown magic: the file name alone
    };
    for (const auto& c : cases) {
        writeFile(path, c.first);
        MessageCapture capture;
        EXPECT_EQ(image.readPNM(path.c_str()), 0) << c.first;
        EXPECT_EQ(capture.onlyError(), c.second) << c.first;
        EXPECT_EQ(pixelBytes(image), (Bytes{5, 6}));
    }
    MessageCapture capture;
    EXPECT_EQ(image.readPNM("/nonexistent-dir/x.pgm"), 0);
    EXPECT_EQ(capture.onlyError(),
              "FLIC error: can't open /nonexistent-dir/x.pgm (No such file or directory)");
}

// Up to 16 MiB of pixels a short file is read as far as it goes; beyond that the file must hold
// the data its header announces (a byte per sample, or a digit and a separator in ASCII).
TEST(ImageFiles, LargeHeadersNeedTheirDataInTheFile) {
    TempDir dir;
    std::string path = dir.path("big.pnm");
    FlicImage image = greyImage(2, 1, {5, 6});
    std::string tooShort =
        "FLIC error: can't open " + path + " (file too short for its dimensions)";
    auto read = [&](const std::string& contents) {
        writeFile(path, contents);
        MessageCapture capture;
        int result = image.readPNM(path.c_str());
        return result ? std::string("read") : capture.onlyError();
    };
    EXPECT_EQ(read("P5\n4097 4096\n255\nAB"), tooShort);
    EXPECT_EQ(read("P6\n2400 2400\n255\n" + std::string(17279999, 'x')), tooShort);
    EXPECT_EQ(read("P2\n4097 4096\n255\n1 2 3"), tooShort);
    EXPECT_EQ(read("P3\n1500 4000\n255\n1 2 3"), tooShort);
    EXPECT_EQ(pixelBytes(image), (Bytes{5, 6})); // unchanged by every refusal
    // An unknown magic keeps its own report, whatever the dimensions.
    EXPECT_EQ(read("P4\n4097 4096\n255\nAB"), "FLIC error: " + path);

    // Exactly 16 MiB may still be short; a complete larger file is read.
    EXPECT_EQ(read("P5\n4096 4096\n255\nAB"), "read");
    EXPECT_EQ(image.data[4095 * 4096], 'A');
    std::string rows(4097 * 4096, '\7');
    rows[0] = 'T';
    EXPECT_EQ(read("P5\n4097 4096\n255\n" + rows), "read");
    EXPECT_EQ(image.width, 4097);
    EXPECT_EQ(image.data[4095 * 4097], 'T'); // the file's first row is the top row
    EXPECT_EQ(read("P6\n2400 2400\n255\n" + std::string(17280000, 'x')), "read");
}
