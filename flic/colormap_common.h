// The library's own view of the published colour-map tables (colormap_tables.cpp, generated).
#ifndef MUSKEIP_COLORMAP_COMMON_H
#define MUSKEIP_COLORMAP_COMMON_H

namespace muskeip {
namespace detail {

struct NamedColormapTable {
    const char* name;
    const float (*colors)[3]; // 256 entries of (r, g, b) in 0..1
};

extern const NamedColormapTable colormap_tables[];
extern const int colormap_table_count;

} // namespace detail
} // namespace muskeip

#endif
