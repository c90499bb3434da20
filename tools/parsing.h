// Parsers of the compound option values of the command line ("512x512", "1,0,0,1", colours).
// Each returns true on success and leaves its outputs alone otherwise.
#ifndef MUSKEIP_TOOLS_PARSING_H
#define MUSKEIP_TOOLS_PARSING_H

#include <string>

// Largest width or height the command line accepts for pictures and grids.
const int maxPictureSide = 32768;

// "WxH" (or "WXH") with both sides whole numbers from 1 to maxPictureSide.
bool parseSize(const std::string& text, int& width, int& height);
// Exactly `count` finite numbers separated by commas.
bool parseNumbers(const std::string& text, int count, float* values);
// Between `minCount` and `maxCount` finite numbers separated by commas; `count` gets how many.
bool parseNumberList(const std::string& text, int minCount, int maxCount, float* values,
                     int& count);
// "R,G,B" with components 0..255, or one of the names black, white, red, green, blue,
// yellow, cyan, magenta, grey.
bool parseColour(const std::string& text, int rgb[3]);
// The extension of a path in lower case, without the dot ("" when there is none).
std::string lowerExtension(const std::string& path);

#endif
