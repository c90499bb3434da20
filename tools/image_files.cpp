// PNG reading and writing through libpng's simplified interface, and the choice between PNG
// and PNM by extension or signature.
#include "image_files.h"

#include "image.h"
#include "messages.h"
#include "parsing.h"

#include <png.h>

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

int pngFailure(const std::string& path, png_image& png) {
    std::string reason = png.message[0] ? png.message : "not a readable PNG file";
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

int readPNG(const std::string& path, FlicImage& image) {
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

// Writes rows of `image` (row 0 the bottom row) in the PNG sample format `format`.
int writePNGRows(const std::string& path, const FlicImage& image, png_uint_32 format) {
    FileCloser closer{fopen(path.c_str(), "wb")};
    if (!closer.file) return flic_ioerror(path.c_str(), nullptr);
    png_image png;
    memset(&png, 0, sizeof png);
    png.version = PNG_IMAGE_VERSION;
    png.width = static_cast<png_uint_32>(image.width);
    png.height = static_cast<png_uint_32>(image.height);
    png.format = format;
    if (!png_image_write_to_stdio(&png, closer.file, 0, image.data, -image.bytesPerLine, nullptr))
        return pngFailure(path, png);
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
    bool rgb = image.nChannels == 3;
    if (alpha && alpha->data && alpha->width == image.width && alpha->height == image.height) {
        FlicImage joined = withAlphaChannel(image, *alpha);
        if (!joined.data) return flic_ioerror(path.c_str(), "no memory for the alpha channel");
        return writePNGRows(path, joined, rgb ? PNG_FORMAT_RGBA : PNG_FORMAT_GA);
    }
    return writePNGRows(path, image, rgb ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY);
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
