// Animations of the command line: animated WebP (libwebp's animation encoder), GIF (giflib),
// or one picture file per frame; chosen by the output name.
#ifndef MUSKEIP_TOOLS_ANIMATION_FILES_H
#define MUSKEIP_TOOLS_ANIMATION_FILES_H

#include <string>
#include <vector>

class FlicImage;

enum AnimationFormat { ANIMATION_UNKNOWN, ANIMATION_WEBP, ANIMATION_GIF, ANIMATION_FRAMES };

// What an output name asks for: .webp, .gif, a folder (an existing one, or a name ending in
// '/') or a pattern with one %d-style field for numbered picture files (.png, .pgm, ...).
AnimationFormat animationFormatFor(const std::string& path);
// The file of frame `index` for ANIMATION_FRAMES outputs: the pattern filled in, or
// folder/frame0000.png.
std::string frameFileName(const std::string& path, int index);

// Writes the frames (grey or RGB, all of one size, row 0 the bottom row) as an endless loop of
// `fps` frames per second. Returns 1, or 0 through flic_ioerror naming the file.
int writeAnimation(const std::string& path, const std::vector<FlicImage>& frames, int fps);

#endif
