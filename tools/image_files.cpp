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

int writePNG(const std::string& path, const FlicImage& image) {
    if (!image.data || image.width < 1 || image.height < 1 ||
        (image.nChannels != 1 && image.nChannels != 3))
        return flic_ioerror(path.c_str(), "only non-empty grey or RGB images can be written");
    FileCloser closer{fopen(path.c_str(), "wb")};
    if (!closer.file) return flic_ioerror(path.c_str(), nullptr);
    png_image png;
    memset(&png, 0, sizeof png);
    png.version = PNG_IMAGE_VERSION;
    png.width = static_cast<png_uint_32>(image.width);
    png.height = static_cast<png_uint_32>(image.height);
    png.format = image.nChannels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    if (!png_image_write_to_stdio(&png, closer.file, 0, image.data, -image.bytesPerLine, nullptr))
        return pngFailure(path, png);
    if (fflush(closer.file) != 0) return flic_ioerror(path.c_str(), nullptr);
    return 1;
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

int writeImage(const std::string& path, const FlicImage& image, bool ascii) {
    switch (imageFormatFor(path)) {
    case FORMAT_PNG:
        return writePNG(path, image);
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
