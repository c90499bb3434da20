// The file probe (kinds, sizes, completeness, counts beyond int), the wide PNM reader's exact
// scaling, and the count of values no field plausibly holds.
#include "testutil.h"

#include "image.h"
#include "probe.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace {

FlicFileProbe probeOf(const std::string& path) {
    FlicFileProbe probe;
    EXPECT_EQ(1, flicProbeFile(path.c_str(), probe)) << path;
    return probe;
}

TEST(Probe, ImagesTheirSizesAndMissingBytes) {
    testutil::TempDir dir;
    testutil::writeFile(dir.path("short.pgm"), "P5\n4000 4000\n255\nabcdef");
    FlicFileProbe p = probeOf(dir.path("short.pgm"));
    EXPECT_EQ(FLIC_FILE_PNM, p.kind);
    EXPECT_EQ(4000, p.width);
    EXPECT_EQ(1, p.channels);
    EXPECT_EQ(16000000, p.dataBytes);
    EXPECT_EQ(6, p.presentBytes);
    EXPECT_EQ(1, flicProbeShort(p));
    EXPECT_STREQ("", p.problem);

    // A complete RGB file with a comment line; two bytes a sample above maxval 255.
    testutil::writeFile(dir.path("rgb.ppm"), "P6\n# made here\n2 1\n255\n" + std::string(6, 'x'));
    p = probeOf(dir.path("rgb.ppm"));
    EXPECT_EQ(3, p.channels);
    EXPECT_EQ(6, p.dataBytes);
    EXPECT_EQ(0, flicProbeShort(p));
    testutil::writeFile(dir.path("wide.pgm"), "P5\n3 1\n65535\n" + std::string(5, '\0'));
    p = probeOf(dir.path("wide.pgm"));
    EXPECT_EQ(65535, p.maxValue);
    EXPECT_EQ(6, p.dataBytes);
    EXPECT_EQ(1, flicProbeShort(p));

    testutil::writeFile(dir.path("huge.pgm"), "P5\n99999999999 4\n255\nab");
    EXPECT_STREQ("size too large", probeOf(dir.path("huge.pgm")).problem);
    testutil::writeFile(dir.path("dims.pgm"), "P5 4 4 255\n");
    EXPECT_STREQ("couldn't read dimensions", probeOf(dir.path("dims.pgm")).problem);
    // Text data has no byte count to check.
    testutil::writeFile(dir.path("text.pgm"), "P2\n2 2\n9\n1 2\n");
    p = probeOf(dir.path("text.pgm"));
    EXPECT_EQ(0, p.binary);
    EXPECT_EQ(0, flicProbeShort(p));

    // PNG: size and bit depth from the IHDR chunk, even with the high bit set.
    std::string png = "\x89PNG\r\n\x1a\n";
    png += std::string("\0\0\0\x0dIHDR", 8) + std::string("\x80\0\0\x01\0\0\0\x02\x10\0", 10);
    testutil::writeFile(dir.path("a.png"), png + std::string(8, '\0'));
    p = probeOf(dir.path("a.png"));
    EXPECT_EQ(FLIC_FILE_PNG, p.kind);
    EXPECT_EQ(2147483649LL, p.width);
    EXPECT_EQ(2, p.height);
    EXPECT_EQ(16, p.maxValue);

    EXPECT_EQ(0, flicProbeFile(dir.path("none").c_str(), p));
    EXPECT_EQ(FLIC_FILE_MISSING, p.kind);
}

TEST(Probe, FieldsDrawingsMeshesNumpyAndColourMaps) {
    testutil::TempDir dir;
    // The header may stand anywhere in the first line, as the field readers accept it.
    testutil::writeFile(dir.path("v"), "my FLIC VECTOR BINARY\n4 4\n" + std::string(40, '\0'));
    FlicFileProbe p = probeOf(dir.path("v"));
    EXPECT_EQ(FLIC_FILE_VECTOR, p.kind);
    EXPECT_EQ(2, p.channels);
    EXPECT_EQ(128, p.dataBytes);
    EXPECT_EQ(40, p.presentBytes);
    EXPECT_EQ(1, flicProbeShort(p));
    testutil::writeFile(dir.path("s"), "FLIC SCALAR ASCII\n1 x\n");
    p = probeOf(dir.path("s"));
    EXPECT_EQ(FLIC_FILE_SCALAR, p.kind);
    EXPECT_STREQ("illegal scalar field dimensions", p.problem);

    testutil::writeFile(dir.path("g"), "FLIC GRAPHICS\nline 0 0 1 1\n");
    EXPECT_EQ(FLIC_FILE_GRAPHICS, probeOf(dir.path("g")).kind);

    // Counts beyond int are kept as written; the first vertex line's numbers are counted.
    testutil::writeFile(dir.path("m"), "nodes: 99999999999, cells: 7\nvertices\n0 0 1 2\n");
    p = probeOf(dir.path("m"));
    EXPECT_EQ(FLIC_FILE_UCD, p.kind);
    EXPECT_EQ(99999999999LL, p.vertices);
    EXPECT_EQ(7, p.triangles);
    EXPECT_EQ(4, p.columns);

    testutil::writeFile(dir.path("a.npy"), std::string("\x93NUMPY\x01\x00", 8) + "xx");
    EXPECT_EQ(FLIC_FILE_NPY, probeOf(dir.path("a.npy")).kind);
    testutil::writeFile(dir.path("a.npz"), std::string("PK\x03\x04", 4) + "rest");
    EXPECT_EQ(FLIC_FILE_ZIP, probeOf(dir.path("a.npz")).kind);

    // A colour map by its name, or by the sixteen numbers of its first line; a three-number
    // table without the name reads as a mesh's counts.
    testutil::writeFile(dir.path("c.icol"), "0 0 0\n");
    EXPECT_EQ(FLIC_FILE_COLORMAP, probeOf(dir.path("c.icol")).kind);
    testutil::writeFile(dir.path("c"), "0 1 2 3 64 1 2 3 128 1 2 3 192 1 2 3\n");
    EXPECT_EQ(FLIC_FILE_COLORMAP, probeOf(dir.path("c")).kind);
    testutil::writeFile(dir.path("t"), "0 0 0\n");
    EXPECT_EQ(FLIC_FILE_UCD, probeOf(dir.path("t")).kind);
    testutil::writeFile(dir.path("x"), "hello\n");
    EXPECT_EQ(FLIC_FILE_UNKNOWN, probeOf(dir.path("x")).kind);
}

TEST(Probe, WidePNMScaledToBytesExactly) {
    testutil::TempDir dir;
    // v * 255 / maxval rounded: 65535 -> 255, 32768 -> 128, 257 * 100 -> 100, 128 -> 0.
    const unsigned char samples[] = {0x00, 0x00, 0xff, 0xff, 0x80, 0x00, 0x64, 0x64, 0x00, 0x80};
    testutil::writeFile(dir.path("w.pgm"),
                        "P5\n5 1\n65535\n" +
                            std::string(reinterpret_cast<const char*>(samples), sizeof samples));
    FlicImage image;
    ASSERT_EQ(1, flicReadWidePNM(dir.path("w.pgm").c_str(), image));
    EXPECT_EQ((std::vector<int>{0, 255, 128, 100, 0}), testutil::pixelBytes(image));
    // Text data with maxval 1000: 500 -> 127.5 rounds to 128, 1 -> 0, 1000 -> 255.
    testutil::writeFile(dir.path("t.pgm"), "P2\n3 1\n1000\n500 1 1000\n");
    ASSERT_EQ(1, flicReadWidePNM(dir.path("t.pgm").c_str(), image));
    EXPECT_EQ((std::vector<int>{128, 0, 255}), testutil::pixelBytes(image));
    // An 8-bit file reads as the PNM reader reads it.
    testutil::writeFile(dir.path("b.pgm"), "P5\n2 1\n255\n\x07\x09");
    ASSERT_EQ(1, flicReadWidePNM(dir.path("b.pgm").c_str(), image));
    EXPECT_EQ((std::vector<int>{7, 9}), testutil::pixelBytes(image));
}

TEST(Probe, ImplausibleValuesAreThoseOfSwappedBytes) {
    const float inf = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float values[] = {0.0f, 1.0f, -3e30f, 2e-31f, inf, nan, 1e30f, -1e-30f};
    // -3e30, 2e-31 and inf count; 0, 1, NaN and the two limits do not.
    EXPECT_EQ(3, flicImplausibleValues(values, 8));
    EXPECT_EQ(0, flicImplausibleValues(nullptr, 9));
}

} // namespace

namespace {

TEST(Probe, CompletenessCheckNamesTheFileAndTheCounts) {
    testutil::TempDir dir;
    testutil::MessageCapture capture;
    testutil::writeFile(dir.path("short.pgm"), "P5\n4 2\n255\nabc");
    EXPECT_EQ(0, flicCheckComplete(dir.path("short.pgm").c_str()));
    EXPECT_EQ("FLIC error: can't open " + dir.path("short.pgm") +
                  " (the pixel data ends after 3 of 8 bytes (4 x 2 pixels announced))",
              capture.onlyError());
    capture.errors().clear();
    testutil::writeFile(dir.path("short.sca"), "FLIC SCALAR BINARY\n3 2\n" + std::string(21, 'x'));
    EXPECT_EQ(0, flicCheckComplete(dir.path("short.sca").c_str()));
    EXPECT_EQ("FLIC error: " + dir.path("short.sca") + ": the binary data ends after 5 of 6 values",
              capture.onlyError());
    // Complete binary data, text data and other files pass.
    capture.errors().clear();
    testutil::writeFile(dir.path("full.sca"), "FLIC SCALAR BINARY\n3 2\n" + std::string(24, 'x'));
    testutil::writeFile(dir.path("text.vec"), "FLIC VECTOR ASCII\n2 2\n1 2\n");
    testutil::writeFile(dir.path("g"), "FLIC GRAPHICS\n");
    for (const char* name : {"full.sca", "text.vec", "g"})
        EXPECT_EQ(1, flicCheckComplete(dir.path(name).c_str())) << name;
    EXPECT_TRUE(capture.errors().empty());
    EXPECT_EQ(0, flicCheckComplete(dir.path("none").c_str()));
    EXPECT_EQ(1u, capture.errors().size());
}

} // namespace
