// Parsers of compound option values.
#include "parsing.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace {

// A whole number of decimal digits only, from 1 to maxPictureSide.
bool parseSide(const std::string& text, int& side) {
    if (text.empty() || text.size() > 6) return false;
    for (char c : text)
        if (!isdigit(static_cast<unsigned char>(c))) return false;
    long value = strtol(text.c_str(), nullptr, 10);
    if (value < 1 || value > maxPictureSide) return false;
    side = static_cast<int>(value);
    return true;
}

// One finite number filling the whole text.
bool parseNumber(const std::string& text, float& value) {
    if (text.empty() || isspace(static_cast<unsigned char>(text[0]))) return false;
    char* end = nullptr;
    errno = 0;
    double parsed = strtod(text.c_str(), &end);
    if (*end != '\0' || errno == ERANGE || !std::isfinite(parsed)) return false;
    if (std::fabs(parsed) > 3.0e38) return false;
    value = static_cast<float>(parsed);
    return true;
}

} // namespace

bool parseSize(const std::string& text, int& width, int& height) {
    size_t cross = text.find_first_of("xX");
    if (cross == std::string::npos) return false;
    int w, h;
    if (!parseSide(text.substr(0, cross), w) || !parseSide(text.substr(cross + 1), h)) return false;
    width = w;
    height = h;
    return true;
}

bool parseNumberList(const std::string& text, int minCount, int maxCount, float* values,
                     int& count) {
    float parsed[16];
    if (maxCount > 16) maxCount = 16;
    int n = 0;
    size_t start = 0;
    while (true) {
        size_t comma = text.find(',', start);
        std::string item = text.substr(start, comma == std::string::npos ? comma : comma - start);
        if (n == maxCount || !parseNumber(item, parsed[n])) return false;
        n++;
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    if (n < minCount) return false;
    for (int i = 0; i < n; i++)
        values[i] = parsed[i];
    count = n;
    return true;
}

bool parseNumbers(const std::string& text, int count, float* values) {
    int parsed = 0;
    return parseNumberList(text, count, count, values, parsed);
}

bool parseColour(const std::string& text, int rgb[3]) {
    static const struct {
        const char* name;
        int r, g, b;
    } names[] = {{"black", 0, 0, 0},     {"white", 255, 255, 255}, {"red", 255, 0, 0},
                 {"green", 0, 255, 0},   {"blue", 0, 0, 255},      {"yellow", 255, 255, 0},
                 {"cyan", 0, 255, 255},  {"magenta", 255, 0, 255}, {"grey", 128, 128, 128},
                 {"gray", 128, 128, 128}};
    for (const auto& entry : names)
        if (text == entry.name) {
            rgb[0] = entry.r;
            rgb[1] = entry.g;
            rgb[2] = entry.b;
            return true;
        }
    float values[3];
    if (!parseNumbers(text, 3, values)) return false;
    for (float v : values)
        if (v < 0.0f || v > 255.0f || v != std::floor(v)) return false;
    for (int i = 0; i < 3; i++)
        rgb[i] = static_cast<int>(values[i]);
    return true;
}

std::string lowerExtension(const std::string& path) {
    size_t slash = path.find_last_of('/');
    size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string extension = path.substr(dot + 1);
    for (char& c : extension)
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return extension;
}
