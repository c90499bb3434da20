// End-to-end tests of the `muskeip` program: they run the real binary on files made here and
// read back what it wrote (PNG through libpng, PNM and FLIC files through the library).
#include "image_files.h"
#include "testutil.h"

#include "muskeip.h"

#include <gif_lib.h>
#include <png.h>
#include <zlib.h>
#include <gtest/gtest.h>
#include <webp/demux.h>

#include <cmath>
#include <cstring>
#include <string>
#include <sys/wait.h>
#include <vector>

namespace {

struct Outcome {
    int status;
    std::string out, err;
};

std::string shellQuoted(const std::string& text) {
    std::string result = "'";
    for (char c : text)
        result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
}

// Runs the program with the given (shell-quoted where needed) arguments.
Outcome muskeip(const std::string& arguments) {
    testutil::TempDir scratch;
    std::string command = std::string(MUSKEIP_BINARY) + " " + arguments + " >" +
                          shellQuoted(scratch.path("out")) + " 2>" +
                          shellQuoted(scratch.path("err")) + " </dev/null";
    int raw = system(command.c_str());
    Outcome run;
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    run.out = testutil::readFile(scratch.path("out"));
    run.err = testutil::readFile(scratch.path("err"));
    return run;
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// Whether a file begins with the PNG signature (its geometry and colour type are read back
// through libpng by expectPicture).
bool isPNG(const std::string& path) {
    return testutil::readFile(path).compare(0, 8, "\x89PNG\r\n\x1a\n", 8) == 0;
}

// A picture read back: its size and channels as expected, and more than flat content.
void expectPicture(const std::string& path, int width, int height, int channels) {
    FlicImage image;
    ASSERT_EQ(1, readImage(path, image)) << path;
    EXPECT_EQ(width, image.width) << path;
    EXPECT_EQ(height, image.height) << path;
    EXPECT_EQ(channels, image.nChannels) << path;
    float mean, sdev;
    image.getStatistics(mean, sdev);
    EXPECT_GT(sdev, 20.0f) << path;
    EXPECT_GT(mean, 30.0f) << path;
}

// A square mesh of n x n cells, two triangles each, over [0, 2] x [0, 1], with the circle
// field (or its squared radius) at the vertices.
std::string ucdMesh(int n, bool vector) {
    std::string text =
        std::to_string((n + 1) * (n + 1)) + " " + std::to_string(2 * n * n) + " 0 0 0\nvertices\n";
    char line[128];
    for (int j = 0; j <= n; j++)
        for (int i = 0; i <= n; i++) {
            float x = 2.0f * i / n, y = 1.0f * j / n, u = x - 1.0f, v = y - 0.5f;
            if (vector)
                snprintf(line, sizeof line, "%g %g %g %g\n", x, y, -v, u);
            else
                snprintf(line, sizeof line, "%g %g %g\n", x, y, u * u + v * v);
            text += line;
        }
    text += "triangles\n";
    for (int j = 0; j < n; j++)
        for (int i = 0; i < n; i++) {
            int a = j * (n + 1) + i + 1, b = a + 1, c = a + n + 1, d = c + 1;
            snprintf(line, sizeof line, "%d %d %d\n%d %d %d\n", a, b, d, a, d, c);
            text += line;
        }
    return text;
}

// Fixtures written once per test into a scratch folder.
class CliFiles : public ::testing::Test {
  protected:
    testutil::TempDir dir;
    std::string path(const std::string& name) const { return dir.path(name); }
    std::string q(const std::string& name) const { return shellQuoted(path(name)); }

    // An ASCII FLIC VECTOR file of the counter-clockwise circle field.
    std::string circleFile(int width, int height) {
        FlicVectorField field(width, height);
        field.setCircle(0.0f);
        EXPECT_EQ(1, field.write(path("circle.vec").c_str(), 1));
        return path("circle.vec");
    }
    // A grey picture with a bright disc: its iso-lines are circles.
    FlicImage discImage(int width, int height) {
        FlicImage image(width, height, 1);
        for (int y = 0; y < height; y++)
            for (int x = 0; x < width; x++) {
                float u = x - width / 2.0f, v = y - height / 2.0f;
                image.data[y * width + x] =
                    static_cast<unsigned char>(255.0f * expf(-(u * u + v * v) / 200.0f));
            }
        return image;
    }
};

} // namespace

TEST(Cli, HelpAndVersion) {
    Outcome version = muskeip("--version");
    EXPECT_EQ(0, version.status);
    EXPECT_EQ("muskeip 0.1.0\n", version.out);

    Outcome help = muskeip("--help");
    EXPECT_EQ(0, help.status);
    for (const char* word : {"lic", "field", "info", "--verbose", "--quiet"})
        EXPECT_TRUE(contains(help.out, word)) << word;

    // Every subcommand has help with the defaults shown.
    Outcome lic = muskeip("lic --help");
    EXPECT_EQ(0, lic.status);
    for (const char* shown :
         {"--length FLOAT=20", "=triangle", "=rk43", "=pattern", "=bilinear", "=binary",
          "--adjust MEAN,SDEV=128,40", "=multiply", "cividis", "--extension FLOAT=80"})
        EXPECT_TRUE(contains(lic.out, shown)) << shown;
    EXPECT_TRUE(contains(lic.out, "--enhance, --adjust, --equalize, --blur, --median,"));
    EXPECT_EQ(0, muskeip("field --help").status);
    EXPECT_EQ(0, muskeip("info --help").status);
}

TEST(Cli, UsageErrorsExitWithTwoAndSayWhatIsWrong) {
    struct Case {
        const char* arguments;
        const char* message;
    } cases[] = {
        {"", "A subcommand is required"},
        {"paint circle -o x.png", "unknown subcommand 'paint'"},
        {"lic circle", "--output is required"},
        {"lic -o x.png", "FIELD is required"},
        {"lic circle -o x.jpg", "cannot tell the image format of 'x.jpg'"},
        {"lic circle -o x.png --size 300", "--size expects WxH"},
        {"lic circle -o x.png --size 1x300", "--size needs at least 2 x 2"},
        {"lic circle -o x.png --kernel gauss", "--kernel: gauss not in"},
        {"lic circle -o x.png --subpixels 0", "--subpixels"},
        {"lic circle -o x.png --blur 10", "--blur"},
        {"lic circle -o x.png --length -1", "--length expects"},
        {"lic circle -o x.png --length nan", "--length"},
        {"lic circle -o x.png --step 0", "--step expects"},
        {"lic circle -o x.png --texture t.pgm --size 9x9", "excludes"},
        {"lic circle -o x.png --mask m.pgm", "give --seedmap FILE as well"},
        {"lic circle -o x.png --seedmap s.bmp", "cannot tell the image format of 's.bmp'"},
        {"lic circle -o x.png --ascii", "--ascii applies to PNM files"},
        {"lic circle -o x.png --emboss=north", "--emboss expects AZIMUTH,ELEVATION"},
        {"lic circle -o x.png --adjust 128", "--adjust expects MEAN,SDEV"},
        {"lic circle -o x.png --colour magnitude --range 3,1", "--range expects MIN,MAX"},
        {"lic circle -o x.png --range 1,3", "--range needs --colour or --colour-by"},
        {"lic circle -o x.png --colormap viridis", "--colormap needs --colour or --colour-by"},
        {"lic circle -o x.png --colour direction --colour-by a.sca", "cannot go with --colour"},
        {"lic circle -o x.png --equalize adaptive,1", "--equalize expects global or adaptive"},
        {"lic circle -o x.png --equalize sometimes", "--equalize expects global or adaptive"},
        {"animate circle -o x.webp --enhance", "--enhance applies to still pictures"},
        {"lic circle -o x.png --blend screen", "--blend"},
        {"lic circle -o x.png --line-colour purple", "--line-colour expects"},
        {"lic circle -o x.png --zoom 0x10", "--zoom expects WxH"},
        {"lic circle -o x.png --integrator midpoint --rk43 4,0.5,15,0.001", "--rk43"},
        {"lic circle -o x.png --rk43 4,0.5", "--rk43 expects"},
        {"lic circle -o x.png --matrix 1,2,3", "--matrix expects a,b,c,d"},
        {"lic circle -o x.png --grid 1x5", "--grid expects WxH with 2 to 10000"},
        {"lic circle -o x.png --ucd 20x20", "names a built-in field"},
        {"lic circle -o x.png -v -q", "excludes"},
        {"field circle", "--output is required"},
        {"info", "FILE is required"},
    };
    for (const Case& c : cases) {
        Outcome run = muskeip(c.arguments);
        EXPECT_EQ(2, run.status) << c.arguments;
        EXPECT_TRUE(contains(run.err, c.message)) << c.arguments << "\n" << run.err;
        EXPECT_TRUE(contains(run.err, "--help")) << c.arguments;
    }
}

TEST_F(CliFiles, MissingAndMalformedFilesFailWithOneAndNameTheFile) {
    std::string vec = circleFile(9, 9);
    testutil::writeFile(path("size.vec"), "FLIC VECTOR ASCII\n1 5\n0 0\n");
    testutil::writeFile(path("short.vec"), "FLIC VECTOR BINARY\n4 4\n" + std::string(40, '\0'));
    testutil::writeFile(path("values.sca"), "FLIC SCALAR ASCII\n2 2\n1 2 x\n");
    testutil::writeFile(path("dims.pgm"), "P5 4 4 255\n");
    testutil::writeFile(path("mesh.inp"), "3 1\nvertices\n0 0 1 1\n1 0 1\n0 1 1 1\n");
    testutil::writeFile(path("bad.gfx"), "FLIC GRAPHICS\ncolor 1 0\n");
    testutil::writeFile(path("plain.gfx"), "FLIC GRAPHICS\nline 0 0 1 1\n");
    testutil::writeFile(path("text.txt"), "hello world\n");
    testutil::writeFile(path("bad.icol"), "1 2\n");
    FlicImage mask(5, 5, 1);
    mask.clear(9);
    mask.writePNM(path("mask.pgm").c_str());
    std::string out = " -o " + q("out.png");
    struct Case {
        std::string arguments, file, message;
    } cases[] = {
        {"lic " + q("none.vec") + out, "none.vec", "No such file"},
        {"lic vortex" + out, "vortex",
         "no such file, and no built-in field of that name (circle, saddle, linear, "
         "brusselator, dipole)"},
        {"field vortex" + out, "vortex", "no built-in field of that name"},
        {"lic " + q("size.vec") + out, "size.vec", "illegal vector field dimensions"},
        {"lic " + q("short.vec") + out, "short.vec", "ends after 10 of 32 values"},
        {"lic " + q("values.sca") + out, "values.sca", "illegal or missing scalar values"},
        {"lic " + q("dims.pgm") + out, "dims.pgm", "couldn't read dimensions"},
        {"lic " + q("mesh.inp") + out, "mesh.inp", "expected to read 4 floats, got 3"},
        {"lic " + q("text.txt") + out, "text.txt", "not a FLIC VECTOR"},
        {"lic " + q("plain.gfx") + out, "plain.gfx", "is a drawing, not a field"},
        {"lic " + shellQuoted(vec) + out + " --texture " + q("none.pgm"), "none.pgm", "No such"},
        {"lic " + shellQuoted(vec) + out + " --overlay " + q("bad.gfx"), "bad.gfx",
         "expecting 'color r g b'"},
        {"lic " + shellQuoted(vec) + out + " --mesh " + q("none.inp"), "none.inp", "No such"},
        {"lic " + shellQuoted(vec) + out + " --colour magnitude --colormap " + q("bad.icol"),
         "bad.icol", "bad.icol:1: the first line holds neither 16 numbers"},
        {"lic " + shellQuoted(vec) + out + " --colour magnitude --colormap jet", "jet",
         "neither a preset (grey, hot-iron, blue-white-red, hue, viridis, magma, inferno"},
        {"lic " + shellQuoted(vec) + out + " --colour-by " + q("values.sca"), "values.sca",
         "illegal or missing scalar values"},
        {"lic " + shellQuoted(vec) + out + " --seedmap " + q("s.png") + " --mask " + q("none.pgm"),
         "none.pgm", "No such"},
        {"lic " + shellQuoted(vec) + out + " --seedmap " + q("s.png") + " --mask " + q("mask.pgm"),
         "mask.pgm", "the mask has 5 x 5 pixels, but the field has 9 x 9 nodes"},
        {"lic circle -o " + q("no/such/folder.png"), "no/such/folder.png", "No such"},
        {"field circle -o " + q("no/such/folder.vec"), "no/such/folder.vec", "No such"},
        {"info " + q("none.vec"), "none.vec", "No such file"},
        {"info " + q("short.vec"), "short.vec", "ends after 10 of 32 values"},
        {"info " + q("mesh.inp"), "mesh.inp", "expected to read 4 floats, got 3"},
        {"info " + q("text.txt"), "text.txt", "not a PNM, PNG"},
    };
    for (const Case& c : cases) {
        Outcome run = muskeip(c.arguments);
        EXPECT_EQ(1, run.status) << c.arguments;
        EXPECT_TRUE(contains(run.err, c.file)) << c.arguments << "\n" << run.err;
        EXPECT_TRUE(contains(run.err, c.message)) << c.arguments << "\n" << run.err;
    }
}

TEST_F(CliFiles, EveryInputKindGivesAPicture) {
    // Files of every kind the lic command reads.
    circleFile(33, 17);
    ASSERT_EQ(0, muskeip("field dipole --size 64x64 -o " + q("dipole.sca")).status);
    FlicImage disc = discImage(80, 60);
    disc.writePNM(path("disc.pgm").c_str());
    ASSERT_EQ(1, writePNG(path("disc.png"), disc));
    testutil::writeFile(path("vector.inp"), ucdMesh(8, true));
    testutil::writeFile(path("scalar.inp"), ucdMesh(8, false));
    struct Case {
        std::string source, options;
        int width, height;
    } cases[] = {
        {q("circle.vec"), "", 512, 264}, // at least 512 on the longer side, aspect kept
        {q("dipole.sca"), "", 512, 512},
        {q("disc.pgm"), "", 512, 384},
        {q("disc.png"), "--angle 90", 512, 384},
        {q("vector.inp"), "--size 120x60", 120, 60},
        {q("scalar.inp"), "--ucd 50x30", 512, 307},
        {"circle", "", 512, 512},
        {"saddle", "--size 64x48", 64, 48},
        {"linear", "--matrix 1,0,0,-1 --offset 0.5,0 --size 64x64", 64, 64},
        {"brusselator", "--brusselator 3,4,1,2.5 --size 64x64", 64, 64},
        {"dipole", "--extent 6 --phase 0.25 --size 96x64 --grid 48x32", 96, 64},
    };
    for (const Case& c : cases) {
        Outcome run = muskeip("lic " + c.source + " -o " + q("out.png") + " " + c.options);
        ASSERT_EQ(0, run.status) << c.source << " " << c.options << "\n" << run.err;
        EXPECT_EQ("", run.err) << c.source;
        EXPECT_TRUE(isPNG(path("out.png"))) << c.source;
        expectPicture(path("out.png"), c.width, c.height, 1);
    }
}

TEST_F(CliFiles, PictureIsExactlyTheLibrarysComputation) {
    std::string vec = circleFile(21, 21);
    Outcome run = muskeip("lic " + shellQuoted(vec) + " -o " + q("lic.pgm") +
                          " --size 96x80 --kernel box --length 10 --seeding sobol --subpixels 2"
                          " --integrator midpoint --interpolation constant --normalization 0.5"
                          " --noise uniform --seed 7 --extension 30 --step 1.5 --adjust 100,30");
    ASSERT_EQ(0, run.status) << run.err;

    FlicVectorField field;
    ASSERT_EQ(1, field.read(vec.c_str()));
    FlicImage noise(96, 80, 1);
    noise.createRandom(0, 7);
    FlicCompute engine;
    engine.setFilterKernel(FlicCompute::BOX);
    engine.setFilterLength(10.0f);
    engine.seedingMethod = 2;
    engine.setNumSubPixels(2);
    engine.setNormalization(0.5f);
    engine.useEuler();
    engine.setInterpolationMethod(FlicCompute::CONSTANT);
    engine.extensionLength = 30.0f;
    engine.stepLength = 1.5f;
    FlicImage expected;
    ASSERT_EQ(1, engine.compute(&field, &noise, &expected));
    flicAdjustContrast(expected, 100.0f, 30.0f);

    FlicImage written;
    ASSERT_EQ(1, written.readPNM(path("lic.pgm").c_str()));
    EXPECT_EQ(testutil::pixelBytes(expected), testutil::pixelBytes(written));
}

TEST_F(CliFiles, TiledEngineByDefaultSerialWithTileZero) {
    std::string vec = circleFile(21, 21);
    std::string base = "-v lic " + shellQuoted(vec) + " --size 90x70 --adjust none --noise uniform";
    Outcome tiled = muskeip(base + " --tile 32 --threads 3 -o " + q("t.pgm"));
    ASSERT_EQ(0, tiled.status) << tiled.err;
    EXPECT_TRUE(contains(tiled.err, "tiled engine: 3 x 3 tiles of 32 pixels on 3 threads"))
        << tiled.err;
    Outcome serial = muskeip(base + " --tile 0 -o " + q("s.pgm"));
    ASSERT_EQ(0, serial.status) << serial.err;
    EXPECT_TRUE(contains(serial.err, "serial engine (one thread)")) << serial.err;
    EXPECT_EQ(2, muskeip(base + " --tile 4 -o " + q("x.pgm")).status);
    // The scalar tracer gives the lanes' bytes; -v says which traced the tiles.
    Outcome scalar = muskeip(base + " --tile 32 --threads 3 --simd-lanes 1 -o " + q("l.pgm"));
    ASSERT_EQ(0, scalar.status) << scalar.err;
    EXPECT_TRUE(contains(scalar.err, "the scalar tracer (1 lane asked for)")) << scalar.err;
    EXPECT_TRUE(contains(tiled.err, "SIMD lanes (")) << tiled.err;
    EXPECT_EQ(testutil::readFile(path("t.pgm")), testutil::readFile(path("l.pgm")));
    EXPECT_EQ(2, muskeip(base + " --simd-lanes -1 -o " + q("x.pgm")).status);

    FlicVectorField field;
    ASSERT_EQ(1, field.read(vec.c_str()));
    FlicImage noise(90, 70, 1);
    noise.createRandom(0, 1);
    for (int tile : {32, 0}) {
        FlicCompute engine;
        engine.setTileSize(tile);
        engine.setNumThreads(1);
        FlicImage expected, written;
        ASSERT_EQ(1, engine.compute(&field, &noise, &expected));
        ASSERT_EQ(1, written.readPNM(path(tile ? "t.pgm" : "s.pgm").c_str()));
        EXPECT_EQ(testutil::pixelBytes(expected), testutil::pixelBytes(written)) << tile;
    }
}

TEST_F(CliFiles, RealDataModes) {
    // A circle field with a block of NaN nodes: pixels no line reaches are transparent in PNG,
    // painted with --nodata-colour in PNM.
    FlicVectorField field(33, 33);
    field.setCircle(0.0f);
    for (int y = 20; y < 26; y++)
        for (int x = 20; x < 26; x++)
            field.vectors()[y * 33 + x] = Vec2f{NAN, NAN};
    ASSERT_EQ(1, field.write(path("holes.vec").c_str(), 1));
    std::string base = "lic " + q("holes.vec") + " --size 64x64 --tile 0";
    Outcome png = muskeip(base + " -o " + q("h.png"));
    ASSERT_EQ(0, png.status) << png.err;
    EXPECT_EQ(4, testutil::readFile(path("h.png"))[25]); // colour type: grey and alpha
    Outcome ppm = muskeip(base + " --nodata-colour 255,0,0 -o " + q("h.ppm"));
    ASSERT_EQ(0, ppm.status) << ppm.err;
    FlicImage painted;
    ASSERT_EQ(1, painted.readPNM(path("h.ppm").c_str()));
    const unsigned char* hole = painted.data + 45 * painted.bytesPerLine + 45 * 3;
    EXPECT_EQ(std::vector<int>({255, 0, 0}), std::vector<int>(hole, hole + 3));

    // Borders, orientation and passes reach the engine as the library's settings.
    std::string vec = circleFile(21, 21);
    Outcome modes = muskeip("lic " + shellQuoted(vec) + " --size 70x60 --adjust none --tile 32" +
                            " --border closed,periodic --orientation --passes 2 -o " + q("m.pgm"));
    ASSERT_EQ(0, modes.status) << modes.err;
    FlicVectorField circle;
    ASSERT_EQ(1, circle.read(vec.c_str()));
    FlicImage noise(70, 60, 1), expected, written;
    noise.createRandom(1, 1);
    FlicCompute engine;
    engine.setTileSize(32);
    engine.setBorders(FlicCompute::CLOSED, FlicCompute::PERIODIC);
    engine.setOrientation(1);
    engine.setPasses(2);
    ASSERT_EQ(1, engine.compute(&circle, &noise, &expected));
    ASSERT_EQ(1, written.readPNM(path("m.pgm").c_str()));
    EXPECT_EQ(testutil::pixelBytes(expected), testutil::pixelBytes(written));
    EXPECT_EQ(2, muskeip("lic " + shellQuoted(vec) + " --border sideways -o " + q("x.png")).status);
    EXPECT_EQ(2, muskeip("lic " + shellQuoted(vec) + " --passes 17 -o " + q("x.png")).status);
}

TEST_F(CliFiles, AnimateWritesWebPGifAndNumberedFrames) {
    std::string vec = circleFile(17, 17);
    std::string base = "animate " + shellQuoted(vec) + " --size 48x40 --frames 6 --tile 0";
    Outcome webp = muskeip(base + " -o " + q("a.webp"));
    ASSERT_EQ(0, webp.status) << webp.err;
    std::string bytes = testutil::readFile(path("a.webp"));
    WebPData data = {reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()};
    WebPAnimDecoder* decoder = WebPAnimDecoderNew(&data, nullptr);
    ASSERT_NE(nullptr, decoder);
    WebPAnimInfo info;
    ASSERT_TRUE(WebPAnimDecoderGetInfo(decoder, &info));
    EXPECT_EQ(std::vector<unsigned>({48, 40, 6}),
              std::vector<unsigned>({info.canvas_width, info.canvas_height, info.frame_count}));
    WebPAnimDecoderDelete(decoder);

    Outcome gif = muskeip(base + " --colour direction -o " + q("a.gif"));
    ASSERT_EQ(0, gif.status) << gif.err;
    int error = 0;
    GifFileType* file = DGifOpenFileName(path("a.gif").c_str(), &error);
    ASSERT_NE(nullptr, file);
    ASSERT_EQ(GIF_OK, DGifSlurp(file));
    EXPECT_EQ(std::vector<int>({48, 40, 6}),
              std::vector<int>({file->SWidth, file->SHeight, file->ImageCount}));
    DGifCloseFile(file, &error);

    // Numbered frames are the library's frames with the default contrast step.
    Outcome frames = muskeip(base + " --noise uniform -o " + q("f%02d.pgm"));
    ASSERT_EQ(0, frames.status) << frames.err;
    FlicVectorField field;
    ASSERT_EQ(1, field.read(vec.c_str()));
    FlicImage noise(48, 40, 1);
    noise.createRandom(0, 1);
    FlicCompute engine;
    std::vector<FlicImage> expected(6);
    ASSERT_EQ(1, engine.computeFrames(&field, &noise, 6, expected.data()));
    for (int f = 0; f < 6; f++) {
        flicAdjustContrast(expected[f], 128.0f, 40.0f);
        char name[16];
        snprintf(name, sizeof name, "f%02d.pgm", f);
        FlicImage written;
        ASSERT_EQ(1, written.readPNM(path(name).c_str())) << name;
        EXPECT_EQ(testutil::pixelBytes(expected[f]), testutil::pixelBytes(written)) << name;
    }
    EXPECT_EQ(2, muskeip(base + " -o " + q("a.bmp")).status);
    EXPECT_EQ(2, muskeip(base + " --passes 2 -o " + q("b.gif")).status);
}

TEST_F(CliFiles, PostProcessingRunsInItsDocumentedOrder) {
    std::string vec = circleFile(17, 17);
    Outcome run = muskeip("lic " + shellQuoted(vec) + " -o " + q("post.ppm") +
                          " --size 64x48 --blur 2 --median --colour direction --emboss"
                          " --zoom 80x60");
    ASSERT_EQ(0, run.status) << run.err;

    FlicVectorField field;
    ASSERT_EQ(1, field.read(vec.c_str()));
    FlicImage picture, noise(64, 48, 1);
    noise.createRandom(1, 1);
    FlicCompute engine;
    ASSERT_EQ(1, engine.compute(&field, &noise, &picture));
    flicAdjustContrast(picture, 128.0f, 40.0f);
    picture.gaussBlur(2);
    picture.medianFilter();
    // Direction colours: the angle through twilight over -pi .. pi, multiplied onto the LIC.
    FlicScalarField angles(64, 48);
    field.direction(angles, 0);
    FlicColormap twilight;
    ASSERT_EQ(1, twilight.createPreset("twilight"));
    twilight.setMinMax(-3.14159265f, 3.14159265f);
    FlicImage colours(64, 48, 3), mixed;
    angles.pseudoColor(twilight, colours, 0);
    ASSERT_EQ(1, flicBlend(picture, colours, FlicPicture::MULTIPLY, 0.9f, 0.2f, &mixed));
    mixed.emboss(field);
    mixed.zoom(80, 60);

    FlicImage written;
    ASSERT_EQ(1, written.readPNM(path("post.ppm").c_str()));
    EXPECT_EQ(3, written.nChannels);
    EXPECT_EQ(testutil::pixelBytes(mixed), testutil::pixelBytes(written));
}

TEST_F(CliFiles, OutputFormatsFollowTheExtension) {
    std::string vec = circleFile(9, 9);
    std::string base = "lic " + shellQuoted(vec) + " --size 40x30 ";
    ASSERT_EQ(0, muskeip(base + "-o " + q("a.pgm")).status);
    ASSERT_EQ(0, muskeip(base + "-o " + q("a.ppm")).status);
    ASSERT_EQ(0, muskeip(base + "-o " + q("a.pnm") + " --ascii").status);
    ASSERT_EQ(0, muskeip(base + "-o " + q("a.PNG")).status);
    ASSERT_EQ(0, muskeip(base + "-o " + q("c.pgm") + " --colour magnitude").status);
    ASSERT_EQ(0, muskeip(base + "-o " + q("c.png") + " --colour magnitude").status);
    EXPECT_EQ("P5\n40 30\n255\n", testutil::readFile(path("a.pgm")).substr(0, 13));
    EXPECT_EQ("P6\n40 30\n255\n", testutil::readFile(path("a.ppm")).substr(0, 13));
    EXPECT_EQ("P2\n40 30\n255\n", testutil::readFile(path("a.pnm")).substr(0, 13));
    EXPECT_EQ("P5\n", testutil::readFile(path("c.pgm")).substr(0, 3)); // colours greyed
    EXPECT_TRUE(isPNG(path("c.png")) && isPNG(path("a.PNG")));

    // The same picture in every form: grey repeated in the PPM, text in the ASCII PNM.
    FlicImage pgm, ppm, pnm, png;
    ASSERT_EQ(1, pgm.readPNM(path("a.pgm").c_str()));
    ASSERT_EQ(1, ppm.readPNM(path("a.ppm").c_str()));
    ASSERT_EQ(1, pnm.readPNM(path("a.pnm").c_str()));
    ASSERT_EQ(1, readImage(path("a.PNG"), png));
    expectPicture(path("a.pgm"), 40, 30, 1);
    EXPECT_EQ(testutil::pixelBytes(pgm), testutil::pixelBytes(pnm));
    EXPECT_EQ(testutil::pixelBytes(pgm), testutil::pixelBytes(png));
    FlicImage red;
    ppm.oneband(0, &red);
    EXPECT_EQ(testutil::pixelBytes(pgm), testutil::pixelBytes(red));
    expectPicture(path("c.png"), 40, 30, 3);
}

TEST_F(CliFiles, SeedMapMaskAndLinesDrawn) {
    std::string vec = circleFile(9, 9);
    FlicImage mask(9, 9, 1);
    mask.clear(77);
    mask.writePNM(path("mask.pgm").c_str());
    Outcome run = muskeip("lic " + shellQuoted(vec) + " --size 40x30 -o " + q("a.png") +
                          " --seedmap " + q("seeds.pgm") + " --mask " + q("mask.pgm"));
    ASSERT_EQ(0, run.status) << run.err;
    FlicImage seeds;
    ASSERT_EQ(1, seeds.readPNM(path("seeds.pgm").c_str()));
    ASSERT_EQ(40 * 30, seeds.width * seeds.height);
    int seeded = 0, unseeded = 0;
    for (int v : testutil::pixelBytes(seeds)) {
        seeded += v == 77;
        unseeded += v == 1;
    }
    EXPECT_GT(seeded, 0);
    EXPECT_GT(unseeded, 0);
    EXPECT_EQ(40 * 30, seeded + unseeded);

    // A red line along the bottom row from a command file, and a mesh drawn in blue.
    testutil::writeFile(path("line.gfx"), "FLIC GRAPHICS\nline 0 0 39 0\n");
    testutil::writeFile(path("mesh.inp"), ucdMesh(2, true));
    run = muskeip("lic " + shellQuoted(vec) + " --size 40x30 -o " + q("lines.ppm") + " --overlay " +
                  q("line.gfx") + " --line-colour red --line-width 1");
    ASSERT_EQ(0, run.status) << run.err;
    FlicImage lines;
    ASSERT_EQ(1, lines.readPNM(path("lines.ppm").c_str()));
    for (int x = 0; x < 40; x++)
        EXPECT_EQ(0, memcmp(lines.data + 3 * x, "\xff\x00\x00", 3)) << x;
    run = muskeip("lic " + q("mesh.inp") + " --size 40x20 -o " + q("mesh.ppm") + " --mesh " +
                  q("mesh.inp") + " --line-colour 0,0,255");
    ASSERT_EQ(0, run.status) << run.err;
    FlicImage mesh;
    ASSERT_EQ(1, mesh.readPNM(path("mesh.ppm").c_str()));
    int blue = 0;
    for (int p = 0; p < 40 * 20; p++)
        blue += memcmp(mesh.data + 3 * p, "\x00\x00\xff", 3) == 0;
    EXPECT_GT(blue, 80); // the outline alone has 116 pixels, less the clipped top and right
}

TEST_F(CliFiles, ProgressBarLeavesTheBytesUnchanged) {
    std::string vec = circleFile(17, 17);
    std::string base = "lic " + shellQuoted(vec) + " --size 300x200 --seeding raster -o ";
    Outcome plain = muskeip(base + q("plain.pgm"));
    Outcome shown = muskeip(base + q("shown.pgm") + " --progress");
    ASSERT_EQ(0, plain.status);
    ASSERT_EQ(0, shown.status);
    EXPECT_EQ("", plain.err); // not a terminal, below 2 Mpixel: no bar
    EXPECT_TRUE(contains(shown.err, "[########################################] 100%"))
        << shown.err;
    EXPECT_EQ(testutil::readFile(path("plain.pgm")), testutil::readFile(path("shown.pgm")));
    Outcome quiet = muskeip(base + q("quiet.pgm") + " --progress -q");
    EXPECT_EQ("", quiet.err);
}

TEST_F(CliFiles, VerboseAndQuiet) {
    std::string vec = circleFile(9, 9);
    Outcome verbose = muskeip("-v lic " + shellQuoted(vec) + " --size 40x30 -o " + q("a.png"));
    ASSERT_EQ(0, verbose.status);
    EXPECT_TRUE(
        contains(verbose.err, "FLIC info: computing LIC image (L=20, filter=triangle, mask=1x1)\n"))
        << verbose.err;

    // A zero field warns (the picture is black); -q keeps the warning back but not errors.
    FlicVectorField zero(4, 4);
    memset(zero.data, 0, 4 * 4 * sizeof(Vec2f));
    zero.write(path("zero.vec").c_str(), 1);
    std::string lic = "lic " + q("zero.vec") + " --size 20x20 -o " + q("z.png");
    Outcome loud = muskeip(lic);
    EXPECT_EQ(0, loud.status);
    EXPECT_TRUE(contains(loud.err, "warning: ")) << loud.err;
    EXPECT_TRUE(contains(loud.err, "zero.vec")) << loud.err;
    Outcome quiet = muskeip(lic + " -q");
    EXPECT_EQ(0, quiet.status);
    EXPECT_EQ("", quiet.err);
    // A value-less --emboss before FIELD leaves FIELD to be the field.
    EXPECT_EQ(0, muskeip("lic --emboss saddle --size 20x20 -o " + q("e.png")).status);
    Outcome angle = muskeip("lic saddle --angle 30 --size 20x20 -o " + q("s.png"));
    EXPECT_EQ(0, angle.status);
    EXPECT_TRUE(contains(angle.err, "warning: --angle")) << angle.err;
    Outcome failed = muskeip("-q lic " + q("none.vec") + " -o " + q("z.png"));
    EXPECT_EQ(1, failed.status);
    EXPECT_TRUE(contains(failed.err, "none.vec"));
}

TEST_F(CliFiles, FieldGeneratesAndConverts) {
    // Binary vector files are written big-endian, so the library's reader gets the values back.
    ASSERT_EQ(0, muskeip("field circle --size 9x7 -o " + q("c.vec")).status);
    std::string bytes = testutil::readFile(path("c.vec"));
    ASSERT_EQ("FLIC VECTOR BINARY\n9 7\n", bytes.substr(0, 23));
    EXPECT_EQ(23u + 9 * 7 * 8, bytes.size());
    FlicVectorField read, expected(9, 7);
    expected.setCircle(0.0f);
    ASSERT_EQ(1, read.read(path("c.vec").c_str()));
    ASSERT_EQ(9, read.width);
    EXPECT_EQ(0, memcmp(expected.data, read.data, 9 * 7 * sizeof(Vec2f)));

    // Binary to ASCII and back keeps the values (to "%g" precision).
    ASSERT_EQ(0, muskeip("field " + q("c.vec") + " --ascii -o " + q("a.vec")).status);
    EXPECT_EQ("FLIC VECTOR ASCII\n9 7\n", testutil::readFile(path("a.vec")).substr(0, 22));
    ASSERT_EQ(0, muskeip("field " + q("a.vec") + " -o " + q("b.vec")).status);
    FlicVectorField back;
    ASSERT_EQ(1, back.read(path("b.vec").c_str()));
    for (int i = 0; i < 2 * 9 * 7; i++)
        EXPECT_NEAR(expected.data[i], back.data[i], 1e-6f) << i;

    // Scalar sources stay scalar unless --angle turns them into their gradient.
    ASSERT_EQ(0, muskeip("field dipole --size 16x12 --extent 5 -o " + q("d.sca")).status);
    FlicScalarField dipole, expectedDipole(16, 12);
    expectedDipole.createDipole(5.0f, 0.0f);
    ASSERT_EQ(1, dipole.read(path("d.sca").c_str()));
    EXPECT_EQ(0, memcmp(expectedDipole.data, dipole.data, 16 * 12 * sizeof(float)));
    ASSERT_EQ(0, muskeip("field " + q("d.sca") + " --angle 90 -o " + q("g.vec")).status);
    FlicVectorField gradient, expectedGradient;
    expectedGradient.fromScalarField(expectedDipole, static_cast<float>(M_PI / 2));
    ASSERT_EQ(1, gradient.read(path("g.vec").c_str()));
    EXPECT_EQ(0, memcmp(expectedGradient.data, gradient.data, 16 * 12 * sizeof(Vec2f)));

    // Meshes are rasterised onto the grid of --size, as the library imports them.
    testutil::writeFile(path("m.inp"), ucdMesh(4, true));
    testutil::writeFile(path("s.inp"), ucdMesh(4, false));
    ASSERT_EQ(0, muskeip("field " + q("m.inp") + " --size 20x10 -o " + q("m.vec")).status);
    ASSERT_EQ(0, muskeip("field " + q("s.inp") + " --size 20x10 -o " + q("s.sca")).status);
    FlicVectorField mesh, expectedMesh;
    ASSERT_EQ(1, expectedMesh.readUCD(path("m.inp").c_str(), 20, 10));
    ASSERT_EQ(1, mesh.read(path("m.vec").c_str()));
    EXPECT_EQ(0, memcmp(expectedMesh.data, mesh.data, 20 * 10 * sizeof(Vec2f)));
    EXPECT_EQ("FLIC SCALAR BINARY\n20 10\n", testutil::readFile(path("s.sca")).substr(0, 25));

    // --size is a grid for built-in fields and meshes only.
    Outcome resize = muskeip("field " + q("c.vec") + " --size 5x5 -o " + q("x.vec"));
    EXPECT_EQ(2, resize.status);
    EXPECT_TRUE(contains(resize.err, "c.vec"));
}

TEST_F(CliFiles, InfoDescribesEveryKind) {
    ASSERT_EQ(0, muskeip("field circle --size 5x5 -o " + q("c.vec")).status);
    ASSERT_EQ(0, muskeip("field dipole --size 8x8 --ascii -o " + q("d.sca")).status);
    FlicImage disc = discImage(30, 20);
    disc.writePNM(path("disc.pgm").c_str());
    testutil::writeFile(path("m.inp"), ucdMesh(3, true));
    testutil::writeFile(path("g.gfx"), "FLIC GRAPHICS\ncolor 1 0 0\nline 0 0 1 1\n");
    struct Case {
        std::string file;
        std::vector<std::string> lines;
    } cases[] = {
        {"c.vec",
         {"FLIC VECTOR field, binary", "size: 5 x 5 nodes", "u (x component) range: -0.5 .. 0.5",
          "max vector length: 0.707107", "zero vectors: 1"}},
        {"d.sca", {"FLIC SCALAR field, ASCII", "size: 8 x 8 nodes", "value range: "}},
        {"disc.pgm", {"PNM image", "size: 30 x 20 pixels", "channels: 1 (grey)", "value range"}},
        {"m.inp",
         {"UCD mesh", "vertices: 16, triangles: 18", "values per vertex: 2 (a vector field)",
          "x range: 0 .. 2", "vx range: -0.5 .. 0.5"}},
        {"g.gfx", {"FLIC GRAPHICS command file", "lines: 3"}},
    };
    for (const Case& c : cases) {
        Outcome run = muskeip("info " + q(c.file));
        ASSERT_EQ(0, run.status) << c.file << "\n" << run.err;
        EXPECT_TRUE(contains(run.out, path(c.file) + ": ")) << run.out;
        for (const std::string& line : c.lines)
            EXPECT_TRUE(contains(run.out, line)) << c.file << ": " << line << "\n" << run.out;
    }
}

// --- Broken and unusual input, refused before any work -----------------------------------------

namespace {

// numpy's .npy bytes: the header padded to a multiple of 64 bytes, then the values as float32
// or float64 in the byte order of `type` ("<f4", ">f8", ...).
std::string npyBytes(const std::string& type, bool fortran, const std::string& shape,
                     const std::vector<double>& values) {
    std::string header = "{'descr': '" + type +
                         "', 'fortran_order': " + (fortran ? "True" : "False") +
                         ", 'shape': " + shape + ", }";
    while ((10 + header.size() + 1) % 64 != 0)
        header += ' ';
    header += '\n';
    std::string bytes = std::string("\x93NUMPY\x01\x00", 8);
    bytes += static_cast<char>(header.size() & 0xff);
    bytes += static_cast<char>(header.size() >> 8);
    bytes += header;
    bool big = type[0] == '>', wide = type[2] == '8';
    for (double value : values) {
        char raw[8];
        float single = static_cast<float>(value);
        memcpy(raw, wide ? static_cast<const void*>(&value) : &single, wide ? 8 : 4);
        std::string word(raw, wide ? 8 : 4);
        if (big) word.assign(word.rbegin(), word.rend());
        bytes += word;
    }
    return bytes;
}

void putLittle(std::string& out, unsigned value, int bytes) {
    for (int i = 0; i < bytes; i++)
        out += static_cast<char>((value >> (8 * i)) & 0xff);
}

// A zip archive of the members, stored or deflated (raw deflate, as zip has it).
std::string zipBytes(const std::vector<std::pair<std::string, std::string>>& members,
                     bool packMembers) {
    std::string archive, directory;
    for (const auto& member : members) {
        std::string data = member.second;
        if (packMembers) {
            z_stream stream;
            memset(&stream, 0, sizeof stream);
            deflateInit2(&stream, 6, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY);
            std::string packed(deflateBound(&stream, member.second.size()), '\0');
            stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(member.second.data()));
            stream.avail_in = member.second.size();
            stream.next_out = reinterpret_cast<Bytef*>(&packed[0]);
            stream.avail_out = packed.size();
            deflate(&stream, Z_FINISH);
            packed.resize(stream.total_out);
            deflateEnd(&stream);
            data = packed;
        }
        unsigned crc =
            crc32(0, reinterpret_cast<const Bytef*>(member.second.data()), member.second.size());
        unsigned offset = archive.size();
        std::string common;
        putLittle(common, 20, 2);                  // version needed
        putLittle(common, 0, 2);                   // flags
        putLittle(common, packMembers ? 8 : 0, 2); // method
        putLittle(common, 0, 4);                   // time and date
        putLittle(common, crc, 4);
        putLittle(common, data.size(), 4);
        putLittle(common, member.second.size(), 4);
        putLittle(common, member.first.size(), 2);
        putLittle(common, 0, 2); // extra field
        putLittle(archive, 0x04034b50, 4);
        archive += common + member.first + data;
        putLittle(directory, 0x02014b50, 4);
        putLittle(directory, 20, 2); // version made by
        directory += common;
        putLittle(directory, 0, 2); // comment
        putLittle(directory, 0, 4); // disk, internal attributes
        putLittle(directory, 0, 4); // external attributes
        putLittle(directory, offset, 4);
        directory += member.first;
    }
    unsigned start = archive.size();
    archive += directory;
    putLittle(archive, 0x06054b50, 4);
    putLittle(archive, 0, 4);
    putLittle(archive, members.size(), 2);
    putLittle(archive, members.size(), 2);
    putLittle(archive, directory.size(), 4);
    putLittle(archive, start, 4);
    putLittle(archive, 0, 2);
    return archive;
}

// A 16-bit grey (or grey + alpha) PNG through libpng's full interface: samples big-endian,
// rows from the top.
void write16BitPNG(const std::string& path, int width, int height, bool alpha,
                   const std::vector<unsigned>& samples) {
    FILE* file = fopen(path.c_str(), "wb");
    ASSERT_NE(nullptr, file);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, file);
    png_set_IHDR(png, info, width, height, 16,
                 alpha ? PNG_COLOR_TYPE_GRAY_ALPHA : PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    int perRow = width * (alpha ? 2 : 1);
    for (int y = 0; y < height; y++) {
        std::vector<unsigned char> row;
        for (int k = 0; k < perRow; k++) {
            row.push_back(samples[y * perRow + k] >> 8);
            row.push_back(samples[y * perRow + k] & 0xff);
        }
        png_write_row(png, row.data());
    }
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    fclose(file);
}

} // namespace

TEST_F(CliFiles, ImagesShortOversizedAndSixteenBit) {
    testutil::writeFile(path("short.pgm"), "P5\n4000 4000\n255\nabcdef");
    testutil::writeFile(path("huge.pgm"), "P5\n99999999999 4\n255\nab");
    for (const std::string& command :
         {"lic circle -o " + q("o.png") + " --texture " + q("short.pgm"),
          "info " + q("short.pgm")}) {
        Outcome run = muskeip(command);
        EXPECT_EQ(1, run.status) << command;
        EXPECT_TRUE(contains(run.err, "short.pgm (the pixel data ends after 6 of 16000000 bytes "
                                      "(4000 x 4000 pixels announced))"))
            << run.err;
    }
    EXPECT_EQ("", testutil::readFile(path("o.png"))); // nothing written
    Outcome huge = muskeip("info " + q("huge.pgm"));
    EXPECT_EQ(1, huge.status);
    EXPECT_TRUE(contains(huge.err, "huge.pgm (size too large)")) << huge.err;
    // PNG files cut short, 8-bit and 16-bit: their last 40 bytes (pixel data and end) missing.
    FlicImage picture(40, 30, 3);
    picture.clear(77);
    ASSERT_EQ(1, writePNG(path("whole8.png"), picture));
    write16BitPNG(path("whole16.png"), 40, 30, false, std::vector<unsigned>(40 * 30, 5000));
    for (const char* name : {"8", "16"}) {
        std::string whole = testutil::readFile(path("whole" + std::string(name) + ".png"));
        std::string cut = "cut" + std::string(name) + ".png";
        testutil::writeFile(path(cut), whole.substr(0, whole.size() - 40));
        Outcome run = muskeip("lic " + q(cut) + " -o " + q("o.png"));
        EXPECT_EQ(1, run.status) << cut;
        EXPECT_TRUE(contains(run.err, cut + " (the PNG data is cut short or unreadable)"))
            << run.err;
    }

    // 16-bit samples scaled exactly: 257 k -> k; 32768 -> 128; alpha composes onto black.
    std::string wide = "P5\n4 1\n65535\n";
    for (unsigned v : {0u, 65535u, 32768u, 257u * 100})
        wide += std::string{static_cast<char>(v >> 8), static_cast<char>(v & 0xff)};
    testutil::writeFile(path("w.pgm"), wide);
    write16BitPNG(path("w.png"), 4, 1, false, {0, 65535, 32768, 257 * 100});
    write16BitPNG(path("a.png"), 2, 1, true, {65535, 32768, 257 * 200, 0});
    FlicImage image;
    for (const char* name : {"w.pgm", "w.png"}) {
        ASSERT_EQ(1, readImage(path(name), image)) << name;
        EXPECT_EQ((std::vector<int>{0, 255, 128, 100}), testutil::pixelBytes(image)) << name;
    }
    ASSERT_EQ(1, readImage(path("a.png"), image));
    EXPECT_EQ((std::vector<int>{128, 0}), testutil::pixelBytes(image));
    Outcome info = muskeip("info " + q("w.png"));
    EXPECT_EQ(0, info.status);
    EXPECT_TRUE(contains(info.out, "value range: 0 .. 255")) << info.out;

    // A 16-bit texture gives the picture of its 8-bit scaling (files hold the top row first).
    FlicImage noise(64, 64, 1);
    std::string texture = "P5\n64 64\n65535\n";
    for (int k = 0; k < 64 * 64; k++) {
        unsigned v = (k * 7919u) % 65536u;
        noise.data[(63 - k / 64) * 64 + k % 64] =
            static_cast<unsigned char>((v * 255 + 32767) / 65535);
        texture += std::string{static_cast<char>(v >> 8), static_cast<char>(v & 0xff)};
    }
    testutil::writeFile(path("t16.pgm"), texture);
    noise.writePNM(path("t8.pgm").c_str());
    ASSERT_EQ(0, muskeip("lic circle -o " + q("p16.pgm") + " --texture " + q("t16.pgm")).status);
    ASSERT_EQ(0, muskeip("lic circle -o " + q("p8.pgm") + " --texture " + q("t8.pgm")).status);
    EXPECT_TRUE(testutil::readFile(path("p8.pgm")) == testutil::readFile(path("p16.pgm")));
}

TEST_F(CliFiles, NumpyFieldsAndByteSwappedFiles) {
    // A 9 x 7 field of whole numbers (exact in every format): u = i - 4, v = 3 - j.
    const int width = 9, height = 7;
    FlicVectorField field(width, height);
    std::vector<double> pairs, fortranPairs(2 * width * height), u, v;
    for (int j = 0; j < height; j++)
        for (int i = 0; i < width; i++) {
            field.vectors()[j * width + i] = {static_cast<float>(i - 4), static_cast<float>(3 - j)};
            pairs.push_back(i - 4);
            pairs.push_back(3 - j);
            u.push_back(i - 4);
            v.push_back(3 - j);
            fortranPairs[j + height * i] = i - 4;
            fortranPairs[j + height * i + width * height] = 3 - j;
        }
    ASSERT_EQ(1, field.write(path("f.vec").c_str(), 1));
    testutil::writeFile(path("c.npy"), npyBytes("<f4", false, "(7, 9, 2)", pairs));
    testutil::writeFile(path("f.npy"), npyBytes(">f8", true, "(7, 9, 2)", fortranPairs));
    testutil::writeFile(path("uv.npz"), zipBytes({{"u.npy", npyBytes("<f8", false, "(7, 9)", u)},
                                                  {"v.npy", npyBytes(">f4", false, "(7, 9)", v)}},
                                                 false));
    testutil::writeFile(
        path("one.npz"),
        zipBytes({{"arr_0.npy", npyBytes(">f4", false, "(7, 9, 2)", pairs)}}, true));
    ASSERT_EQ(0, muskeip("lic " + q("f.vec") + " --size 48x40 -o " + q("vec.pgm")).status);
    std::string expected = testutil::readFile(path("vec.pgm"));
    for (const char* name : {"c.npy", "f.npy", "uv.npz", "one.npz"}) {
        Outcome run = muskeip("lic " + q(name) + " --size 48x40 -o " + q("n.pgm"));
        ASSERT_EQ(0, run.status) << name << "\n" << run.err;
        EXPECT_TRUE(expected == testutil::readFile(path("n.pgm"))) << name;
        Outcome info = muskeip("info " + q(name));
        EXPECT_TRUE(contains(info.out, "size: 9 x 7 nodes")) << info.out;
        EXPECT_TRUE(contains(info.out, "u (x component) range: -4 .. 4")) << info.out;
    }
    ASSERT_EQ(0, muskeip("field " + q("uv.npz") + " -o " + q("back.vec")).status);
    FlicVectorField back;
    ASSERT_EQ(1, back.read(path("back.vec").c_str()));
    EXPECT_EQ(0, memcmp(field.data, back.data, width * height * sizeof(Vec2f)));

    // What numpy's tofile writes on little-endian machines: refused as byte-swapped.
    std::string swapped = "FLIC VECTOR BINARY\n9 7\n";
    for (double value : pairs) {
        float single = static_cast<float>(value);
        swapped += std::string(reinterpret_cast<const char*>(&single), 4);
    }
    testutil::writeFile(path("le.vec"), swapped);
    testutil::writeFile(path("int.npy"), npyBytes("<i4", false, "(7, 9, 2)", pairs));
    testutil::writeFile(path("flat.npy"), npyBytes("<f4", false, "(7, 9)", u));
    std::string cut = npyBytes("<f4", false, "(7, 9, 2)", pairs);
    testutil::writeFile(path("cut.npy"), cut.substr(0, cut.size() - 8));
    testutil::writeFile(path("ab.npz"), zipBytes({{"a.npy", npyBytes("<f4", false, "(7, 9)", u)},
                                                  {"b.npy", npyBytes("<f4", false, "(7, 9)", v)}},
                                                 true));
    struct Case {
        std::string file, message;
    } cases[] = {
        {"le.vec", "of 126 values are beyond 1e30 or below 1e-30 in size: the file looks "
                   "byte-swapped"},
        {"int.npy", "numpy type '<i4' is not read: give float32 or float64 values"},
        {"flat.npy", "an array of shape (7, 9) is not a field: give (H, W, 2)"},
        {"cut.npy", "the array data ends after 496 of 504 bytes"},
        {"ab.npz", "the archive holds a.npy, b.npy: a field needs arrays named u and v"},
    };
    for (const Case& c : cases)
        for (const std::string& command :
             {"lic " + q(c.file) + " -o " + q("x.png"), "info " + q(c.file)}) {
            Outcome run = muskeip(command);
            EXPECT_EQ(1, run.status) << command;
            EXPECT_TRUE(contains(run.err, "muskeip: error: " + path(c.file) + ": ")) << run.err;
            EXPECT_TRUE(contains(run.err, c.message)) << run.err;
        }
}

TEST_F(CliFiles, DrawingsColourMapsAndSizesCheckedBeforeTheLIC) {
    testutil::writeFile(path("b.gfx"), "FLIC GRAPHICS\nline 1 2 x 3\nfoo 1 2\nwidth 1000000000\n"
                                       "line nan 1 2 3\n");
    testutil::writeFile(path("w.gfx"), "FLIC GRAPHICS\nline 0 0 5 5\nfoo\n");
    std::string table;
    for (int i = 0; i < 256; i++)
        table += i == 1 ? "1 2 300\n" : "1 2 3\n";
    testutil::writeFile(path("big.icol"), table);
    const std::string out = " -o " + q("o.png");
    struct Case {
        std::string arguments;
        std::vector<std::string> messages;
    } cases[] = {
        {"lic circle" + out + " --overlay " + q("b.gfx"),
         {path("b.gfx") + ":2: not a number ('x')",
          "FLIC warning: " + path("b.gfx") + ":3: unknown command 'foo' skipped",
          path("b.gfx") + ":4: a width outside 0 .. 1000",
          path("b.gfx") + ":5: a NaN coordinate: the point is skipped",
          "muskeip: error: " + path("b.gfx") + ": 2 errors in the drawing commands"}},
        {"info " + q("b.gfx"),
         {"muskeip: error: " + path("b.gfx") + ": 2 commands cannot be drawn"}},
        {"lic circle" + out + " --colour magnitude --colormap " + q("big.icol"),
         {path("big.icol") + ":2: a number outside 0 .. 255 (300)"}},
        {"info " + q("big.icol"), {path("big.icol") + ":2: a number outside 0 .. 255 (300)"}},
        {"lic circle" + out + " --colour magnitude --colormap jet",
         {"colour map 'jet' is neither a preset (grey, hot-iron, blue-white-red, hue, viridis, "
          "magma, inferno, plasma, cividis, twilight) nor a readable file"}},
        {"lic circle --size 32768x32768" + out, {"32768 x 32768", "too large"}},
    };
    for (const Case& c : cases) {
        Outcome run = muskeip(c.arguments);
        EXPECT_EQ(1, run.status) << c.arguments;
        for (const std::string& message : c.messages)
            EXPECT_TRUE(contains(run.err, message)) << c.arguments << "\n" << run.err;
        // Every line of the report is the program's own.
        for (size_t at = 0; at < run.err.size(); at = run.err.find('\n', at) + 1)
            EXPECT_EQ(0u, run.err.compare(at, 9, "muskeip: ")) << run.err;
        // Found before any picture was computed: none was written.
        EXPECT_EQ("", testutil::readFile(path("o.png"))) << c.arguments;
    }
    // Warnings alone let the picture be drawn; -q keeps them back.
    Outcome warned = muskeip("lic circle --size 32x32" + out + " --overlay " + q("w.gfx"));
    EXPECT_EQ(0, warned.status);
    EXPECT_TRUE(contains(warned.err, path("w.gfx") + ":3: unknown command 'foo' skipped"));
    EXPECT_EQ("", muskeip("-q lic circle --size 32x32" + out + " --overlay " + q("w.gfx")).err);
    Outcome described = muskeip("info " + q("w.gfx"));
    EXPECT_EQ(0, described.status);
    EXPECT_TRUE(contains(described.out, "FLIC GRAPHICS command file")) << described.out;

    // A colour map file described; the numbers of its table as written.
    ASSERT_EQ(0, muskeip("field circle --size 4x4 -o " + q("c.vec")).status);
    FlicColormap map;
    map.createPreset("blue-white-red");
    map.setMinMax(-2.0f, 5.0f);
    ASSERT_EQ(1, map.writeIcol(path("bwr.icol").c_str()));
    Outcome icol = muskeip("info " + q("bwr.icol"));
    ASSERT_EQ(0, icol.status) << icol.err;
    EXPECT_TRUE(contains(icol.out, path("bwr.icol") + ": colour map\n  range: -2 .. 5\n"))
        << icol.out;
    EXPECT_EQ(1, muskeip("lic " + q("bwr.icol") + out).status);
}

TEST_F(CliFiles, MessagesSayWhatWasWritten) {
    // Vertex numbers beyond int are shown as the file has them, for lic and for info.
    testutil::writeFile(
        path("m.inp"),
        "3 1 0 0 0\nvertices\n0 0 1 0\n1 0 1 0\n0 1 1 0\ntriangles\n1 2 99999999999\n");
    testutil::writeFile(path("n.inp"), "99999999999 1 0 0 0\nvertices\n0 0 1 0\n");
    Outcome triangle = muskeip("lic " + q("m.inp") + " -o " + q("o.png"));
    EXPECT_EQ(1, triangle.status);
    EXPECT_TRUE(
        contains(triangle.err, "refers to vertex 99999999999 (vertices are numbered 1 to 3)"))
        << triangle.err;
    for (const std::string& command :
         {"lic " + q("n.inp") + " -o " + q("o.png"), "info " + q("n.inp")}) {
        Outcome counts = muskeip(command);
        EXPECT_EQ(1, counts.status);
        EXPECT_TRUE(contains(counts.err, "announces 99999999999 vertices and 1 triangles"))
            << counts.err;
    }

    // A field with no-data nodes is no black picture: no warning says it is.
    FlicVectorField holes(8, 8);
    holes.setCircle(0.0f);
    holes.vectors()[9] = {NAN, NAN};
    ASSERT_EQ(1, holes.write(path("h.vec").c_str(), 1));
    Outcome nan = muskeip("lic " + q("h.vec") + " --size 32x32 -o " + q("h.png"));
    EXPECT_EQ(0, nan.status);
    EXPECT_EQ("", nan.err);

    // field writes FLIC files only under names that say so.
    Outcome png = muskeip("field circle -o " + q("x.png"));
    EXPECT_EQ(2, png.status);
    EXPECT_TRUE(contains(png.err, "would hold a FLIC VECTOR file, not a .png file: name it .vec"))
        << png.err;
    Outcome scalar = muskeip("field dipole -o " + q("x.vec"));
    EXPECT_EQ(2, scalar.status);
    EXPECT_TRUE(contains(scalar.err, "would hold a FLIC SCALAR file: name it .sca")) << scalar.err;
    EXPECT_EQ("", testutil::readFile(path("x.png")) + testutil::readFile(path("x.vec")));
    EXPECT_EQ(0, muskeip("field circle --size 4x4 -o " + q("x.dat")).status);

    // With a progress bar, every message starts on a line of its own, and the bar ends its line.
    Outcome progress = muskeip("-v lic circle --size 64x64 --progress -o " + q("p.png"));
    EXPECT_EQ(0, progress.status);
    for (size_t at = progress.err.find("muskeip: FLIC info"); at != std::string::npos;
         at = progress.err.find("muskeip: FLIC info", at + 1))
        EXPECT_TRUE(at == 0 || progress.err[at - 1] == '\n') << progress.err;
    EXPECT_TRUE(contains(progress.err, "100%\n")) << progress.err;

    // Help: FIELD is required; the grid is given once.
    EXPECT_TRUE(contains(muskeip("lic --help").out, "Usage: muskeip lic [OPTIONS] FIELD\n"));
    std::string fieldHelp = muskeip("field --help").out;
    EXPECT_TRUE(contains(fieldHelp, "--size WxH Excludes: --ucd --grid")) << fieldHelp;
    EXPECT_TRUE(contains(fieldHelp, "(the same as --size)")) << fieldHelp;
    EXPECT_EQ(2, muskeip("field circle --size 8x8 --grid 8x8 -o " + q("y.vec")).status);
}
