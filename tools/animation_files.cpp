// Animated WebP through libwebp's animation encoder, GIF through giflib, numbered frames through
// the command line's picture writers.
#include "animation_files.h"

#include "image_files.h"

#include "image.h"
#include "messages.h"

#include <gif_lib.h>
#include <webp/encode.h>
#include <webp/mux.h>

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool endsWith(const std::string& text, const char* tail) {
    size_t n = strlen(tail);
    if (text.size() < n) return false;
    for (size_t i = 0; i < n; i++)
        if (tolower(static_cast<unsigned char>(text[text.size() - n + i])) != tail[i]) return false;
    return true;
}

bool isFolder(const std::string& path) {
    struct stat info;
    return (!path.empty() && path.back() == '/') ||
           (stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode));
}

// A frame's pixels as RGBA, top row first (the files' row order).
std::vector<uint8_t> rgbaRows(const FlicImage& frame) {
    std::vector<uint8_t> rgba(static_cast<size_t>(frame.width) * frame.height * 4);
    for (int y = 0; y < frame.height; y++) {
        const unsigned char* row =
            frame.data + static_cast<std::ptrdiff_t>(frame.height - 1 - y) * frame.bytesPerLine;
        for (int x = 0; x < frame.width; x++) {
            uint8_t* to = &rgba[(static_cast<size_t>(y) * frame.width + x) * 4];
            const unsigned char* from = row + static_cast<std::ptrdiff_t>(x) * frame.nChannels;
            to[0] = from[0];
            to[1] = frame.nChannels == 3 ? from[1] : from[0];
            to[2] = frame.nChannels == 3 ? from[2] : from[0];
            to[3] = 255;
        }
    }
    return rgba;
}

int writeWebP(const std::string& path, const std::vector<FlicImage>& frames, int fps) {
    int width = frames[0].width, height = frames[0].height;
    WebPAnimEncoderOptions options;
    if (!WebPAnimEncoderOptionsInit(&options))
        return flic_ioerror(path.c_str(), "libwebp's animation encoder does not match its header");
    options.anim_params.loop_count = 0; // forever
    WebPAnimEncoder* encoder = WebPAnimEncoderNew(width, height, &options);
    if (!encoder) return flic_ioerror(path.c_str(), "no memory for the WebP encoder");
    WebPConfig config;
    WebPConfigInit(&config);
    config.quality = 80.0f;
    int ok = 1, timestamp = 0, duration = 1000 / fps;
    for (const FlicImage& frame : frames) {
        WebPPicture picture;
        WebPPictureInit(&picture);
        picture.width = width;
        picture.height = height;
        picture.use_argb = 1;
        std::vector<uint8_t> rgba = rgbaRows(frame);
        ok = WebPPictureImportRGBA(&picture, rgba.data(), width * 4) &&
             WebPAnimEncoderAdd(encoder, &picture, timestamp, &config);
        WebPPictureFree(&picture);
        if (!ok) break;
        timestamp += duration;
    }
    WebPData data;
    WebPDataInit(&data);
    ok = ok && WebPAnimEncoderAdd(encoder, nullptr, timestamp, nullptr) &&
         WebPAnimEncoderAssemble(encoder, &data);
    WebPAnimEncoderDelete(encoder);
    if (!ok) return flic_ioerror(path.c_str(), "the WebP encoder failed");
    FILE* file = fopen(path.c_str(), "wb");
    bool written = file && fwrite(data.bytes, 1, data.size, file) == data.size;
    if (file && fclose(file) != 0) written = false;
    WebPDataClear(&data);
    return written ? 1 : flic_ioerror(path.c_str(), nullptr);
}

// GIF frames index a palette: 256 greys for grey frames, a 6 x 7 x 6 colour cube for RGB ones.
const int cubeRed = 6, cubeGreen = 7, cubeBlue = 6;

ColorMapObject* makePalette(bool grey) {
    ColorMapObject* palette = GifMakeMapObject(256, nullptr);
    if (!palette) return nullptr;
    for (int i = 0; i < 256; i++) {
        GifColorType& c = palette->Colors[i];
        if (grey) {
            c.Red = c.Green = c.Blue = static_cast<GifByteType>(i);
        } else if (i < cubeRed * cubeGreen * cubeBlue) {
            c.Red = static_cast<GifByteType>(i / (cubeGreen * cubeBlue) * 255 / (cubeRed - 1));
            c.Green = static_cast<GifByteType>(i / cubeBlue % cubeGreen * 255 / (cubeGreen - 1));
            c.Blue = static_cast<GifByteType>(i % cubeBlue * 255 / (cubeBlue - 1));
        } else {
            c.Red = c.Green = c.Blue = 0;
        }
    }
    return palette;
}

GifByteType paletteIndex(const uint8_t* rgba, bool grey) {
    if (grey) return rgba[0];
    int r = (rgba[0] * (cubeRed - 1) + 127) / 255, g = (rgba[1] * (cubeGreen - 1) + 127) / 255;
    int b = (rgba[2] * (cubeBlue - 1) + 127) / 255;
    return static_cast<GifByteType>((r * cubeGreen + g) * cubeBlue + b);
}

int writeGIF(const std::string& path, const std::vector<FlicImage>& frames, int fps) {
    int width = frames[0].width, height = frames[0].height;
    bool grey = frames[0].nChannels == 1;
    int error = 0;
    // Opened here, not by giflib, so that the file gets the usual permissions.
    int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (descriptor < 0) return flic_ioerror(path.c_str(), nullptr);
    GifFileType* gif = EGifOpenFileHandle(descriptor, &error);
    if (!gif) {
        close(descriptor);
        return flic_ioerror(path.c_str(), GifErrorString(error));
    }
    ColorMapObject* palette = makePalette(grey);
    bool ok = palette && EGifPutScreenDesc(gif, width, height, 8, 0, palette) == GIF_OK;
    // The loop: the application extension that players read as "repeat forever".
    static const GifByteType netscape[] = "NETSCAPE2.0";
    static const GifByteType forever[] = {1, 0, 0};
    ok = ok && EGifPutExtensionLeader(gif, APPLICATION_EXT_FUNC_CODE) == GIF_OK &&
         EGifPutExtensionBlock(gif, 11, netscape) == GIF_OK &&
         EGifPutExtensionBlock(gif, 3, forever) == GIF_OK && EGifPutExtensionTrailer(gif) == GIF_OK;
    GraphicsControlBlock timing = {DISPOSAL_UNSPECIFIED, false, 100 / fps, NO_TRANSPARENT_COLOR};
    GifByteType extension[4];
    EGifGCBToExtension(&timing, extension);
    std::vector<GifByteType> line(width);
    for (size_t f = 0; ok && f < frames.size(); f++) {
        ok = EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, 4, extension) == GIF_OK &&
             EGifPutImageDesc(gif, 0, 0, width, height, false, nullptr) == GIF_OK;
        std::vector<uint8_t> rgba = rgbaRows(frames[f]);
        for (int y = 0; ok && y < height; y++) {
            for (int x = 0; x < width; x++)
                line[x] = paletteIndex(&rgba[(static_cast<size_t>(y) * width + x) * 4], grey);
            ok = EGifPutLine(gif, line.data(), width) == GIF_OK;
        }
    }
    if (palette) GifFreeMapObject(palette);
    if (EGifCloseFile(gif, &error) != GIF_OK) ok = false;
    return ok ? 1 : flic_ioerror(path.c_str(), "giflib could not write the animation");
}

} // namespace

AnimationFormat animationFormatFor(const std::string& path) {
    if (endsWith(path, ".webp")) return ANIMATION_WEBP;
    if (endsWith(path, ".gif")) return ANIMATION_GIF;
    if (isFolder(path)) return ANIMATION_FRAMES;
    size_t percent = path.find('%');
    if (percent != std::string::npos && path.find('%', percent + 1) == std::string::npos &&
        path.find('d', percent) != std::string::npos && imageFormatFor(path) != FORMAT_UNKNOWN)
        return ANIMATION_FRAMES;
    return ANIMATION_UNKNOWN;
}

std::string frameFileName(const std::string& path, int index) {
    if (isFolder(path)) {
        char name[32];
        snprintf(name, sizeof name, "frame%04d.png", index);
        return path + (path.back() == '/' ? "" : "/") + name;
    }
    // The one conversion of the pattern is a %d of flags and width only (checked by the caller).
    std::vector<char> name(path.size() + 32);
    snprintf(name.data(), name.size(), path.c_str(), index);
    return name.data();
}

int writeAnimation(const std::string& path, const std::vector<FlicImage>& frames, int fps) {
    if (frames.empty()) return flic_ioerror(path.c_str(), "no frames to write");
    if (fps < 1) fps = 1;
    switch (animationFormatFor(path)) {
    case ANIMATION_WEBP:
        return writeWebP(path, frames, fps);
    case ANIMATION_GIF:
        return writeGIF(path, frames, fps);
    case ANIMATION_FRAMES:
        for (size_t f = 0; f < frames.size(); f++) {
            std::string name = frameFileName(path, static_cast<int>(f));
            if (!writeImage(name, frames[f], false)) return 0;
        }
        return 1;
    default:
        return flic_ioerror(path.c_str(), "unknown animation format (use .webp, .gif, a folder "
                                          "or a pattern such as frame%04d.png)");
    }
}
