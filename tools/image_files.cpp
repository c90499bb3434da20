// PNG reading (libpng's simplified interface for 8-bit files, its full interface for 16-bit
// ones, scaled exactly to 8 bits) and writing (fast zlib settings), the checks of PNM files
// before they are read, and the choice between PNG and PNM by extension or signature.
#include "image_files.h"

#include "image.h"
#include "messages.h"
#include "parsing.h"
#include "probe.h"

#include <png.h>
#include <zlib.h>

#include <csetjmp>
#include <vector>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const unsigned char pngSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};

// Closes a stdio file when it goes out of scope.
struct FileCloser {
    FILE* file;
    ~FileCloser() {
        if (file) fclose(file);
    }
};

// A reason for a failed PNG read from libpng's message: its "Read Error" (the file ended, or
// could not be read, before the PNG data did) said in words a user can act on.
std::string pngReason(const char* message) {
    if (!message || !message[0]) return "not a readable PNG file";
    if (strcmp(message, "Read Error") == 0) return "the PNG data is cut short or unreadable";
    return message;
}

int pngFailure(const std::string& path, png_image& png) {
    std::string reason = pngReason(png.message);
    png_image_free(&png);
    return flic_ioerror(path.c_str(), reason.c_str());
}

// Writes `image` as PNM with `channels` channels: an RGB image is written as its luminance,
// a grey image as RGB with the grey in all three channels, any other as it is.
int writePNMWith(const std::string& path, const FlicImage& image, int channels, bool ascii) {
    int mode = ascii ? 1 : 0;
    if (channels == 1 && image.nChannels == 3) {
        FlicImage grey(image);
        grey.colorToGrey();
        return grey.writePNM(path.c_str(), mode);
    }
    if (channels == 3 && image.nChannels == 1) {
        FlicImage rgb;
        rgb.glue(image, image, image);
        return rgb.writePNM(path.c_str(), mode);
    }
    return image.writePNM(path.c_str(), mode);
}

} // namespace

ImageFormat imageFormatFor(const std::string& path) {
    std::string extension = lowerExtension(path);
    if (extension == "png") return FORMAT_PNG;
    if (extension == "pgm") return FORMAT_PGM;
    if (extension == "ppm") return FORMAT_PPM;
    if (extension == "pnm") return FORMAT_PNM;
    return FORMAT_UNKNOWN;
}

bool isPNGFile(const std::string& path) {
    FILE* file = fopen(path.c_str(), "rb");
    if (!file) return false;
    unsigned char head[8] = {0};
    size_t got = fread(head, 1, sizeof head, file);
    fclose(file);
    return got == sizeof head && memcmp(head, pngSignature, sizeof head) == 0;
}

namespace {

void pngError(png_structp png, png_const_charp message) {
    snprintf(static_cast<char*>(png_get_error_ptr(png)), 160, "%s", message);
    png_longjmp(png, 1);
}

void pngWarning(png_structp, png_const_charp) {}

// v * 255 / 65535, rounded: a 16-bit sample as a byte.
unsigned char byteOf16(unsigned v) {
    return static_cast<unsigned char>((v * 255 + 32767) / 65535);
}

// The rows of a 16-bit PNG: big-endian sample pairs, and the row pointers libpng fills.
struct Rows16 {
    std::vector<unsigned char> samples;
    std::vector<png_bytep> rows;
    png_uint_32 width = 0, height = 0;
    int channels = 0;
};

// Reads the 16-bit rows of an open PNG into `out`; false with `reason`. libpng reports errors
// by a long jump back into this function, so everything that needs a destructor lives in the
// caller's `out`, never in this frame.
bool readRows16(FILE* file, Rows16& out, char* reason) {
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, reason, pngError, pngWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
        png_destroy_read_struct(&png, nullptr, nullptr);
        snprintf(reason, 160, "no memory for the PNG reader");
        return false;
    }
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        return false;
    }
    png_init_io(png, file);
    png_read_info(png, info);
    out.width = png_get_image_width(png, info);
    out.height = png_get_image_height(png, info);
    out.channels = png_get_channels(png, info);
    if (out.width > static_cast<unsigned>(maxPictureSide) ||
        out.height > static_cast<unsigned>(maxPictureSide))
        png_error(png, "PNG dimensions beyond 32768 pixels");
    size_t rowBytes = png_get_rowbytes(png, info);
    out.samples.resize(rowBytes * out.height);
    out.rows.resize(out.height);
    for (png_uint_32 y = 0; y < out.height; y++)
        out.rows[y] = out.samples.data() + rowBytes * y;
    png_read_image(png, out.rows.data());
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    return true;
}

// A 16-bit PNG: grey or RGB samples, with alpha (composed onto black as for 8-bit files),
// each scaled exactly to a byte; row 0 the bottom row.
int readPNG16(const std::string& path, FlicImage& image) {
    FileCloser closer{fopen(path.c_str(), "rb")};
    if (!closer.file) return flic_ioerror(path.c_str(), nullptr);
    Rows16 read;
    char reason[160] = "";
    if (!readRows16(closer.file, read, reason))
        return flic_ioerror(path.c_str(), pngReason(reason).c_str());
    png_uint_32 width = read.width, height = read.height;
    int channels = read.channels;
    bool alpha = channels == 2 || channels == 4;
    int colours = channels - (alpha ? 1 : 0);
    FlicImage loaded(static_cast<int>(width), static_cast<int>(height), colours);
    if (!loaded.data) return 0;
    for (png_uint_32 y = 0; y < height; y++) {
        const unsigned char* in =
            read.samples.data() + static_cast<size_t>(y) * width * channels * 2;
        unsigned char* out =
            loaded.data + static_cast<std::ptrdiff_t>(height - 1 - y) * loaded.bytesPerLine;
        for (png_uint_32 x = 0; x < width; x++, in += 2 * channels) {
            unsigned a = alpha ? (in[2 * colours] << 8 | in[2 * colours + 1]) : 65535;
            for (int c = 0; c < colours; c++) {
                unsigned v = in[2 * c] << 8 | in[2 * c + 1];
                out[x * colours + c] = byteOf16((v * a + 32767) / 65535);
            }
        }
    }
    image.swap(loaded);
    return 1;
}

} // namespace

int readPNG(const std::string& path, FlicImage& image) {
    FlicFileProbe probe;
    if (flicProbeFile(path.c_str(), probe) && probe.kind == FLIC_FILE_PNG && probe.maxValue == 16)
        return readPNG16(path, image);
    FileCloser closer{fopen(path.c_str(), "rb")};
    if (!closer.file) return flic_ioerror(path.c_str(), nullptr);
    png_image png;
    memset(&png, 0, sizeof png);
    png.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_stdio(&png, closer.file)) return pngFailure(path, png);
    if (png.width < 1 || png.height < 1 || png.width > static_cast<unsigned>(maxPictureSide) ||
        png.height > static_cast<unsigned>(maxPictureSide)) {
        png_image_free(&png);
        return flic_ioerror(path.c_str(), "PNG dimensions beyond 32768 pixels");
    }
    int channels = (png.format & PNG_FORMAT_FLAG_COLOR) ? 3 : 1;
    png.format = channels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    FlicImage loaded(static_cast<int>(png.width), static_cast<int>(png.height), channels);
    loaded.clear(0);
    png_color black = {0, 0, 0};
    // A negative stride stores the bottom row first, the library's row order.
    if (!png_image_finish_read(&png, &black, loaded.data, -loaded.bytesPerLine, nullptr))
        return pngFailure(path, png);
    image.swap(loaded);
    return 1;
}

namespace {

// Writes `image` (row 0 the bottom row; 1 to 4 channels: grey, grey + alpha, RGB, RGBA) as an
// 8-bit PNG. zlib level 1 with run-length matching and the "up" filter: LIC pictures are mostly
// noise, which the slow settings hardly compress better (4096^2 RGB: 31 MB against 29 MB) at
// several times the cost.
int writePNGRows(const std::string& path, const FlicImage& image) {
    FileCloser closer{fopen(path.c_str(), "wb")};
    if (!closer.file) return flic_ioerror(path.c_str(), nullptr);
    static const int colourTypes[5] = {0, PNG_COLOR_TYPE_GRAY, PNG_COLOR_TYPE_GRAY_ALPHA,
                                       PNG_COLOR_TYPE_RGB, PNG_COLOR_TYPE_RGB_ALPHA};
    char reason[160] = "cannot write PNG";
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, reason, pngError, pngWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
        png_destroy_write_struct(&png, nullptr);
        return flic_ioerror(path.c_str(), "no memory for the PNG writer");
    }
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return flic_ioerror(path.c_str(), reason);
    }
    png_init_io(png, closer.file);
    png_set_IHDR(png, info, static_cast<png_uint_32>(image.width),
                 static_cast<png_uint_32>(image.height), 8, colourTypes[image.nChannels],
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_compression_level(png, 1);
    png_set_compression_strategy(png, Z_RLE);
    png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_UP);
    png_write_info(png, info);
    for (int y = image.height - 1; y >= 0; y--)
        png_write_row(png, image.data + static_cast<std::ptrdiff_t>(y) * image.bytesPerLine);
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    if (fflush(closer.file) != 0) return flic_ioerror(path.c_str(), nullptr);
    return 1;
}

// The image's channels and then the alpha image's byte, pixel by pixel.
FlicImage withAlphaChannel(const FlicImage& image, const FlicImage& alpha) {
    int channels = image.nChannels + 1;
    FlicImage joined(image.width, image.height, channels);
    for (int y = 0; y < image.height; y++)
        for (int x = 0; x < image.width; x++) {
            unsigned char* to = joined.data + static_cast<std::ptrdiff_t>(y) * joined.bytesPerLine +
                                static_cast<std::ptrdiff_t>(x) * channels;
            const unsigned char* from = image.data +
                                        static_cast<std::ptrdiff_t>(y) * image.bytesPerLine +
                                        static_cast<std::ptrdiff_t>(x) * image.nChannels;
            for (int c = 0; c < image.nChannels; c++)
                to[c] = from[c];
            to[image.nChannels] =
                alpha.data[static_cast<std::ptrdiff_t>(y) * alpha.bytesPerLine + x];
        }
    return joined;
}

} // namespace

int writePNG(const std::string& path, const FlicImage& image, const FlicImage* alpha) {
    if (!image.data || image.width < 1 || image.height < 1 ||
        (image.nChannels != 1 && image.nChannels != 3))
        return flic_ioerror(path.c_str(), "only non-empty grey or RGB images can be written");
    if (alpha && alpha->data && alpha->width == image.width && alpha->height == image.height) {
        FlicImage joined = withAlphaChannel(image, *alpha);
        if (!joined.data) return flic_ioerror(path.c_str(), "no memory for the alpha channel");
        return writePNGRows(path, joined);
    }
    return writePNGRows(path, image);
}

bool checkWritable(const std::string& path) {
    struct stat info;
    if (stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
        flic_ioerror(path.c_str(), "it is a folder");
        return false;
    }
    size_t slash = path.find_last_of('/');
    std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    if (access(folder.c_str(), W_OK) != 0) {
        flic_ioerror(path.c_str(), nullptr);
        return false;
    }
    return true;
}

int readImage(const std::string& path, FlicImage& image) {
    if (isPNGFile(path)) return readPNG(path, image);
    // PNM: the library reads short files as far as they go; here they are refused, and files
    // of 16-bit samples are scaled to bytes.
    FlicFileProbe probe;
    if (flicProbeFile(path.c_str(), probe) && probe.kind == FLIC_FILE_PNM) {
        if (probe.problem[0]) return flic_ioerror(path.c_str(), probe.problem);
        if (!flicCheckComplete(path.c_str())) return 0;
        if (probe.maxValue > 255) return flicReadWidePNM(path.c_str(), image);
    }
    return image.readPNM(path.c_str());
}

int writeImage(const std::string& path, const FlicImage& image, bool ascii,
               const FlicImage* alpha) {
    switch (imageFormatFor(path)) {
    case FORMAT_PNG:
        return writePNG(path, image, alpha);
    case FORMAT_PGM:
        return writePNMWith(path, image, 1, ascii);
    case FORMAT_PPM:
        return writePNMWith(path, image, 3, ascii);
    case FORMAT_PNM:
        return image.writePNM(path.c_str(), ascii ? 1 : 0);
    default:
        return flic_ioerror(path.c_str(), "unknown image format (use .png, .pgm, .ppm or .pnm)");
    }
}
