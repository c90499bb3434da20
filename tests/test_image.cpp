// FlicImage container: ownership, resizing, sampling, noise, statistics, PNM and histogram.
#include "image.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

using testutil::MessageCapture;
using testutil::readFile;
using testutil::TempDir;
using testutil::writeFile;

namespace {

// A compact grey image whose pixel (x, y) holds values[y * width + x].
FlicImage greyImage(int width, int height, const std::vector<int>& values) {
    FlicImage image(width, height);
    for (int i = 0; i < width * height; i++)
        image.data[i] = static_cast<unsigned char>(values[i]);
    return image;
}

std::string pixels(const FlicImage& image) {
    std::string out;
    for (int y = 0; y < image.height; y++)
        out.append(reinterpret_cast<const char*>(image.data + y * image.bytesPerLine),
                   image.nChannels * image.width);
    return out;
}

} // namespace

TEST(ImageContainer, ConstructorsSetGeometryAndOwnership) {
    FlicImage empty;
    EXPECT_EQ(empty.buffer, nullptr);
    EXPECT_EQ(empty.data, nullptr);
    EXPECT_EQ(empty.width + empty.height + empty.nChannels + empty.bytesPerLine, 0);

    FlicImage grey(5, 4);
    EXPECT_EQ(grey.nChannels, 1);
    EXPECT_EQ(grey.bytesPerLine, 5);
    EXPECT_NE(grey.buffer, nullptr);
    EXPECT_EQ(grey.data, grey.buffer);

    FlicImage rgb(5, 4, 3);
    EXPECT_EQ(rgb.bytesPerLine, 15);

    // A null data pointer allocates a compact image and ignores the given row distance.
    FlicImage allocated(6, 2, 3, 100, nullptr);
    EXPECT_EQ(allocated.bytesPerLine, 18);
    EXPECT_EQ(allocated.data, allocated.buffer);
    FlicImage allocatedGrey(6, 2, 100, nullptr);
    EXPECT_EQ(allocatedGrey.bytesPerLine, 6);
}

TEST(ImageContainer, WrappedMemoryWithRowGapsIsTouchedOnlyWithinRows) {
    unsigned char memory[3 * 8];
    memset(memory, 0xEE, sizeof memory);
    {
        FlicImage wrapped(5, 3, 8, memory); // grey, rows 8 bytes apart, 3 gap bytes each
        EXPECT_EQ(wrapped.buffer, nullptr);
        EXPECT_EQ(wrapped.data, memory);
        wrapped.clear(0x1FF); // low byte 0xFF
        for (int y = 0; y < 3; y++)
            for (int x = 0; x < 8; x++)
                EXPECT_EQ(memory[y * 8 + x], x < 5 ? 0xFF : 0xEE);

        memory[0] = 0;
        float mean, sdev;
        wrapped.getStatistics(mean, sdev); // 14 bytes of 255 and one 0: the gaps do not count
        EXPECT_FLOAT_EQ(mean, 255.0f * 14 / 15);

        FlicImage copy(wrapped);
        EXPECT_EQ(copy.bytesPerLine, 5); // compact
        EXPECT_NE(copy.data, memory);
        EXPECT_EQ(pixels(copy), pixels(wrapped));

        FlicImage assigned;
        assigned = wrapped;
        EXPECT_EQ(pixels(assigned), pixels(wrapped));
        EXPECT_EQ(assigned.bytesPerLine, 5);
    }
    // Destroying the wrapping image leaves the caller's memory untouched.
    EXPECT_EQ(memory[1], 0xFF);
    EXPECT_EQ(memory[7], 0xEE);

    FlicImage wrapped(5, 3, 3, 16, memory);
    EXPECT_EQ(wrapped.nChannels, 3);
    wrapped.setSize(5, 3, 1); // detaches from the caller's memory
    EXPECT_NE(wrapped.data, memory);
    EXPECT_EQ(wrapped.data, wrapped.buffer);
    wrapped.clear(7);
    EXPECT_EQ(memory[1], 0xFF);
}

TEST(ImageContainer, SetSizeFreesOnEmptyAndRejectsOverflow) {
    FlicImage image(4, 4);
    image.setSize(0, 0, 1);
    EXPECT_EQ(image.buffer, nullptr);
    EXPECT_EQ(image.data, nullptr);
    image.setSize(-2, 3, 1); // a negative count is empty too; geometry recorded
    EXPECT_EQ(image.width, -2);
    EXPECT_EQ(image.data, nullptr);
    image.clear(3); // nothing to touch

    image.setSize(3, 2, 3);
    image.clear(9);
    MessageCapture capture;
    EXPECT_EQ(image.setSize(50000, 50000, 1), 0);
    EXPECT_EQ(capture.onlyError(),
              "FLIC error: image size 50000 x 50000 x 1 exceeds the 32-bit byte count");
    EXPECT_EQ(image.width, 3);
    EXPECT_EQ(image.nChannels, 3);
    EXPECT_EQ(image.data[17], 9);
    // No pixels, but a row whose byte count (bytesPerLine) would not fit an int either.
    capture.errors().clear();
    EXPECT_EQ(image.setSize(2147483644, 0, 3), 0);
    EXPECT_EQ(capture.onlyError(),
              "FLIC error: image size 2147483644 x 0 x 3 exceeds the 32-bit byte count");
    EXPECT_EQ(image.width, 3);
    EXPECT_EQ(image.setSize(2147483644, 0, 1), 1);
    EXPECT_EQ(image.bytesPerLine, 2147483644);
    // Sizes whose byte count does not even fit 64 bits.
    capture.errors().clear();
    EXPECT_EQ(image.setSize(2111111111, 2111111111, 3), 0);
    EXPECT_EQ(capture.onlyError(),
              "FLIC error: image size 2111111111 x 2111111111 x 3 exceeds the 32-bit byte count");
}

TEST(ImageContainer, SelfAssignmentKeepsPixels) {
    FlicImage image = greyImage(2, 2, {1, 2, 3, 4});
    FlicImage& alias = image;
    image = alias;
    EXPECT_EQ(pixels(image), std::string("\1\2\3\4", 4));
}

TEST(ImageSampling, InterpWrapsWithPeriodSizeMinusOne) {
    // 5 x 2 ramp: period along x is 4, so x = -0.5 samples at 3.5, x = 4 at 0.
    FlicImage image = greyImage(5, 2, {0, 10, 20, 30, 40, 100, 110, 120, 130, 140});
    EXPECT_EQ(image.interp(-0.5f, 0.0f), 35);
    EXPECT_EQ(image.interp(4.0f, 0.0f), 0);
    EXPECT_EQ(image.interp(1.25f, 0.5f), 62); // 12.5 + 50 = 62.5, truncated
    EXPECT_EQ(image.interpConst(3.9f, 0.9f), 30);
    EXPECT_EQ(image.interpConst(-0.5f, 1.0f), 30); // y = 1 wraps to 0 (period 1)
    EXPECT_EQ(image.interpConst(-1.0f, 0.0f), 30); // x = -1 wraps to 3

    // The bilinear formula in its written order of terms, on a non-planar cell.
    FlicImage cell = greyImage(3, 3, {10, 200, 0, 50, 7, 0, 0, 0, 0});
    float fx = 0.3f, fy = 0.7f;
    float a = 10, b = 200, c = 50, d = 7;
    float v = ((b - a) * fx + a) + (c - a) * fy + (fx * fy) * (a - c - b + d);
    EXPECT_EQ(cell.interp(fx, fy), static_cast<int>(v));
}

TEST(ImageSampling, DegenerateImagesAndCoordinatesDoNotHang) {
    FlicImage line = greyImage(4, 1, {5, 6, 7, 8});
    EXPECT_EQ(line.interp(2.5f, 10.0f), 7); // the single row is sampled at y = 0
    EXPECT_EQ(line.interpConst(1.5f, -3.0f), 6);
    FlicImage column = greyImage(1, 3, {5, 6, 7});
    EXPECT_EQ(column.interp(9.0f, 1.0f), 6);
    FlicImage empty;
    EXPECT_EQ(empty.interp(1, 1), 0);

    FlicImage image = greyImage(3, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9});
    float inf = std::numeric_limits<float>::infinity();
    float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(image.interp(inf, -inf), 1);
    EXPECT_EQ(image.interpConst(nan, 0.0f), 1);
    EXPECT_EQ(image.interp(nan, 0.0f), 0); // the mix is NaN, which gives 0
    EXPECT_EQ(image.interp(0.5f, nan), 0);
    EXPECT_EQ(image.interp(1.0e30f, 0.0f), image.interp(std::fmod(1.0e30f, 2.0f), 0.0f));
}

TEST(ImageNoise, CreateRandomIsSeededPerByteAndBinaryOrUniform) {
    FlicImage first(16, 8, 3), second(16, 8, 3);
    first.createRandom(1, 7);
    second.createRandom(1, 7);
    EXPECT_EQ(pixels(first), pixels(second));
    for (unsigned char v : pixels(first))
        EXPECT_TRUE(v == 0 || v == 255);

    // Seed 0 continues the generator: the next picture differs.
    second.createRandom(1, 0);
    EXPECT_NE(pixels(first), pixels(second));

    // Uniform noise: one drand48 value per byte, rows bottom to top, channels interleaved.
    FlicImage uniform(3, 2, 3);
    uniform.createRandom(0, 11);
    srand48(11);
    std::string bytes = pixels(uniform);
    for (int i = 0; i < 18; i++)
        EXPECT_EQ(static_cast<unsigned char>(bytes[i]), static_cast<int>(drand48() * 255.9999));
}

TEST(ImageStatistics, MeanAndSampleDeviation) {
    FlicImage image = greyImage(2, 1, {0, 255});
    float mean, sdev;
    image.getStatistics(mean, sdev);
    EXPECT_FLOAT_EQ(mean, 127.5f);
    EXPECT_NEAR(sdev, 180.3122f, 1e-3);

    // Caller memory wrapped with any geometry: a row of 2^31 - 4 two-byte pixels counts
    // 2^32 - 8 bytes, beyond an int, in an image of no rows (0 bytes: no mean).
    unsigned char memory[4] = {1, 2, 3, 4};
    FlicImage wide(2147483644, 0, 2, 0, memory);
    wide.getStatistics(mean, sdev);
    EXPECT_TRUE(std::isnan(mean));
    wide.clear(9); // no rows to touch
    wide.createRandom(1, 1);
    EXPECT_EQ(memory[0], 1);
}

TEST(ImageFiles, HistogramFileAndMeanOnStandardOutput) {
    TempDir dir;
    FlicImage image = greyImage(2, 2, {0, 3, 3, 255});
    testing::internal::CaptureStdout();
    EXPECT_EQ(image.writeHistogram(dir.path("h.txt").c_str()), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Mean = 65.25\n");
    std::string expected;
    for (int v = 0; v < 256; v++)
        expected += std::to_string(v) + " " +
                    std::to_string(v == 0 || v == 255 ? 1
                                   : v == 3           ? 2
                                                      : 0) +
                    "\n";
    EXPECT_EQ(readFile(dir.path("h.txt")), expected);

    // An RGB image counts its first width * height bytes, channels mixed.
    FlicImage rgb(2, 1, 3);
    memcpy(rgb.data, "\1\2\3\4\5\6", 6);
    testing::internal::CaptureStdout();
    rgb.writeHistogram(dir.path("rgb.txt").c_str());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Mean = 1.5\n");

    // The sum of 9 million bytes of 255 does not fit an int; the mean stays right.
    FlicImage bright(3000, 3000);
    bright.clear(255);
    testing::internal::CaptureStdout();
    bright.writeHistogram(dir.path("bright.txt").c_str());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Mean = 255\n");

    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    EXPECT_EQ(image.writeHistogram("/nonexistent-dir/h.txt"), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "FlicImage: Can't write histogram /nonexistent-dir/h.txt\n");
}

TEST(ImageFiles, AsciiPnmLayoutIsByteExact) {
    TempDir dir;
    FlicImage grey = greyImage(3, 2, {1, 2, 3, 40, 50, 255});
    ASSERT_EQ(grey.writePNM(dir.path("a.pgm").c_str(), 1), 1);
    // Top row first; every grey value is followed by its own blank and a separator blank,
    // the last one too; no newline before the 16th pixel.
    EXPECT_EQ(readFile(dir.path("a.pgm")), "P2\n3 2\n255\n040  050  255  001  002  003  ");

    FlicImage sixteen(16, 1);
    sixteen.clear(7);
    sixteen.writePNM(dir.path("b.pgm").c_str(), 1);
    std::string line;
    for (int i = 0; i < 15; i++)
        line += "007  ";
    EXPECT_EQ(readFile(dir.path("b.pgm")), "P2\n16 1\n255\n" + line + "007 \n");

    FlicImage colour(17, 1, 3);
    for (int i = 0; i < 51; i++)
        colour.data[i] = static_cast<unsigned char>(i);
    colour.writePNM(dir.path("c.ppm").c_str(), 1);
    std::string expected = "P3\n17 1\n255\n";
    for (int p = 0; p < 17; p++) {
        char triple[16];
        snprintf(triple, sizeof triple, "%03d %03d %03d", 3 * p, 3 * p + 1, 3 * p + 2);
        expected += triple;
        expected += (p + 1) % 16 == 0 ? "\n" : " ";
    }
    EXPECT_EQ(readFile(dir.path("c.ppm")), expected);
}

TEST(ImageFiles, BinaryPnmWritesRowsTopFirst) {
    TempDir dir;
    unsigned char memory[] = {1, 2, 9, 9, 3, 4, 9, 9}; // 2 x 2 grey with row gaps
    FlicImage grey(2, 2, 4, memory);
    grey.writePNM(dir.path("g.pgm").c_str(), 0);
    EXPECT_EQ(readFile(dir.path("g.pgm")), std::string("P5\n2 2\n255\n\3\4\1\2", 15));

    FlicImage rgb(1, 2, 3);
    memcpy(rgb.data, "abcdef", 6);
    rgb.writePNM(dir.path("c.ppm").c_str());
    EXPECT_EQ(readFile(dir.path("c.ppm")), "P6\n1 2\n255\ndefabc");

    // Two channels: written as grey from the first width bytes of each row.
    FlicImage two(2, 1, 2);
    memcpy(two.data, "wxyz", 4);
    two.writePNM(dir.path("two.pgm").c_str());
    EXPECT_EQ(readFile(dir.path("two.pgm")), "P5\n2 1\n255\nwx");

    testing::internal::CaptureStderr();
    EXPECT_EQ(rgb.writePNM("/nonexistent-dir/x.ppm"), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "FlicImage: Can't open file /nonexistent-dir/x.ppm\n");
}

TEST(ImageFiles, AllFourFormatsRoundTrip) {
    TempDir dir;
    FlicImage grey(7, 5), rgb(7, 5, 3);
    grey.createRandom(0, 3);
    rgb.createRandom(0, 4);
    for (int ascii = 0; ascii < 2; ascii++) {
        std::string g = dir.path("g" + std::to_string(ascii)),
                    c = dir.path("c" + std::to_string(ascii));
        ASSERT_EQ(grey.writePNM(g.c_str(), ascii), 1);
        ASSERT_EQ(rgb.writePNM(c.c_str(), ascii), 1);
        FlicImage readGrey, readRgb(2, 2);
        ASSERT_EQ(readGrey.readPNM(g.c_str()), 1);
        ASSERT_EQ(readRgb.readPNM(c.c_str()), 1);
        EXPECT_EQ(readGrey.nChannels, 1);
        EXPECT_EQ(readRgb.nChannels, 3);
        EXPECT_EQ(pixels(readGrey), pixels(grey));
        EXPECT_EQ(pixels(readRgb), pixels(rgb));
    }
}

TEST(ImageFiles, ReaderAcceptsCommentsAndIgnoresMaximum) {
    TempDir dir;
    std::string path = dir.path("c.pgm");
    writeFile(path, "P5 trailing words\n# one\n#two\n2 1\n# max follows\n65535\nAB");
    FlicImage image;
    ASSERT_EQ(image.readPNM(path.c_str()), 1);
    EXPECT_EQ(pixels(image), "AB");

    // ASCII samples keep their low byte; a sample that cannot be parsed repeats the last one.
    writeFile(path, "P2\n4 1\n255\n300 -1 12 x");
    ASSERT_EQ(image.readPNM(path.c_str()), 1);
    EXPECT_EQ(pixels(image), std::string("\x2c\xff\x0c\x0c", 4));

    writeFile(path, "P3\n2 1\n255\n1 2 3\n4 5");
    ASSERT_EQ(image.readPNM(path.c_str()), 1);
    EXPECT_EQ(pixels(image), std::string("\1\2\3\4\5\3", 6));
}

TEST(ImageFiles, ShortBinaryFileKeepsTheResizedBuffer) {
    TempDir dir;
    std::string path = dir.path("s.pgm");
    FlicImage image(3, 2);
    image.clear(9);
    writeFile(path, "P5\n3 2\n255\nxyzA"); // top row complete, bottom row short
    ASSERT_EQ(image.readPNM(path.c_str()), 1);
    EXPECT_EQ(pixels(image), std::string("A\x09\x09xyz", 6));
}

TEST(ImageFiles, RejectedHeadersReportAndLeaveTheImageUnchanged) {
    TempDir dir;
    std::string path = dir.path("r.pnm");
    FlicImage image = greyImage(2, 1, {5, 6});
    auto expectRejected = [&](const std::string& contents, const std::string& message) {
        writeFile(path, contents);
        MessageCapture capture;
        EXPECT_EQ(image.readPNM(path.c_str()), 0) << contents;
        EXPECT_EQ(capture.onlyError(), message) << contents;
        EXPECT_EQ(image.width, 2);
        EXPECT_EQ(pixels(image), "\5\6");
    };
    std::string dims = "FLIC error: can't open " + path + " (couldn't read dimensions)";
    expectRejected("P5 2 1 255\nAB", dims);         // everything on the magic line
    expectRejected("P5\n2 1 255\nAB", dims);        // maximum on the dimension line
    expectRejected("P5\n2\n1\n255\nAB", dims);      // width and height on separate lines
    expectRejected("P5\n0 1\n255\n", dims);         // no pixels
    expectRejected("P5\n-4 1\n255\n", dims);        // negative width
    expectRejected("P6\n40000 30000\n255\n", dims); // byte count beyond 32 bits
    expectRejected("P5\n# comment\n#", dims);       // file ends inside the comment lines
    expectRejected("", dims);
    // An unknown magic: the message is the file name alone.
    expectRejected("P4\n2 1\n255\nAB", "FLIC error: " + path);

    MessageCapture capture;
    EXPECT_EQ(image.readPNM("/nonexistent-dir/x.pgm"), 0);
    EXPECT_EQ(capture.onlyError(),
              "FLIC error: can't open /nonexistent-dir/x.pgm (No such file or directory)");
}

TEST(ImageFiles, FileNamesWithPercentSignsAreReportedLiterally) {
    TempDir dir;
    std::string path = dir.path("100%s%n.pgm");
    writeFile(path, "P7\n1 1\n255\nA");
    MessageCapture capture;
    FlicImage image;
    EXPECT_EQ(image.readPNM(path.c_str()), 0);
    EXPECT_EQ(capture.onlyError(), "FLIC error: " + path);
}

TEST(ImageContainer, AllocationFailureLeavesTheImageAsItWas) {
    FlicImage image(3, 2, 1);
    image.clear(4);
    testutil::AddressSpaceLimit limit(256LL << 20);
    if (!limit.active()) GTEST_SKIP() << "address space cannot be limited in this build";
    MessageCapture capture;
    EXPECT_EQ(image.setSize(40000, 40000, 1), 0); // 1.6 GB
    EXPECT_EQ(capture.onlyError(), "FLIC error: no memory for an image of 40000 x 40000 x 1 bytes");
    EXPECT_EQ(image.width, 3);
    EXPECT_EQ(pixels(image), std::string(6, '\4'));
    FlicImage fresh;
    EXPECT_EQ(fresh.setSize(30000, 30000, 2), 0);
    EXPECT_EQ(fresh.data, nullptr);
    EXPECT_EQ(fresh.width, 0);
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
    EXPECT_EQ(image.width, 2); // unchanged by every refusal
    EXPECT_EQ(pixels(image), "\5\6");
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
