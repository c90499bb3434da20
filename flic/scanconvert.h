// FlicScanConvert: rasterizes convex polygons whose vertices carry up to six attributes, which
// are interpolated linearly and handed to a per-pixel callback; and FlicUcdMesh, the triangle
// mesh of a UCD text file as the field importers and the mesh drawing read it.
//
// Pixel (i, j) covers [i, i + 1) x [j, j + 1); it belongs to a polygon when its centre
// (i + 0.5, j + 0.5) lies inside, and attributes are evaluated at that centre.
#ifndef MUSKEIP_SCANCONVERT_H
#define MUSKEIP_SCANCONVERT_H

#include "api.h"

#include <cstdio>

// Called once per covered pixel with its column, row, the interpolated attributes and the
// user pointer given to setPixelCallback.
typedef void (*FlicPixelCallback)(int x, int y, float* values, void* user);

class MUSKEIP_API FlicScanConvert {
  public:
    // A polygon corner in pixel units with its attribute values.
    struct Vertex {
        float x;
        float y;
        float attributes[6]; // only the first nAttributes are interpolated
    };

    int nAttributes;            // attributes interpolated (0 to 6; others are clamped to that)
    int width;                  // canvas columns; spans reach up to x == width inclusive
    int height;                 // canvas rows; only rows 0 to height - 1 are drawn
    void* userData;             // handed to the callback
    FlicPixelCallback callback; // null: covered pixels are skipped

    // Converter interpolating `nAttributes` attributes on a 100 x 100 canvas, no callback.
    explicit FlicScanConvert(int nAttributes);
    ~FlicScanConvert();

    // Sets the canvas size.
    void setCanvas(int width, int height);
    // Sets the per-pixel callback and the pointer passed to it.
    void setPixelCallback(FlicPixelCallback callback, void* user);
    // Rasterizes the convex polygon of `n` vertices given in order around it. Polygons with a
    // non-finite coordinate draw nothing.
    void scanConvert(int n, const Vertex* vertices);
    // Rasterizes row `y` from left.x to right.x (pixel centres inside, clipped to 0..width).
    void scanline(int y, Vertex& left, Vertex& right);
    // Sets `current` to edge a-b at the centre of row y and `step` to its change per row
    // (x and attributes; the y members are not touched).
    void increment_y(const Vertex& a, const Vertex& b, Vertex& current, Vertex& step, int y);
    // Sets the attributes of `current` to span a-b at the centre of column x and those of
    // `step` to their change per column.
    void increment_x(const Vertex& a, const Vertex& b, Vertex& current, Vertex& step, int x);

  private:
    int attributeCount() const;
    void advance(Vertex& current, const Vertex& step) const;
};

// A triangle mesh read from a UCD text file: per vertex `nValues` floats (x, y and the data
// values the reader asked for), per triangle three vertex indices counted from 0. The tables
// belong to the mesh and are released by its destructor.
class MUSKEIP_API FlicUcdMesh {
  public:
    int nVertices;
    int nTriangles;
    int nValues;    // floats per vertex
    float* values;  // nVertices * nValues floats, vertex by vertex
    int* triangles; // nTriangles * 3 indices, each in 0 .. nVertices - 1

    FlicUcdMesh();
    ~FlicUcdMesh();
    FlicUcdMesh(const FlicUcdMesh&) = delete;
    FlicUcdMesh& operator=(const FlicUcdMesh&) = delete;

    // Reads the file opened with `mode`, taking `nValues` (2 to 4) numbers from each vertex
    // line. Returns 1, or 0 after reporting through flic_ioerror (file cannot be opened, no
    // counts on line 1) or flic_error (too little data, tables too large, short vertex lines,
    // missing triangle numbers, vertex numbers outside 1 .. nVertices); the mesh is then empty.
    int read(const char* filename, const char* mode, int nValues);
    // The vertices' bounding box as xmin, xmax, ymin, ymax (all 0 for an empty mesh). xmax starts
    // from vertex 0's y and ymin from vertex 0's x (a long-standing quirk that importers and
    // drawing share, so that overlays land on imported fields), then every further vertex widens
    // the box.
    void boundingBox(float box[4]) const;
    // Frees the tables and empties the mesh.
    void release();
    // The values of vertex i.
    const float* vertex(int i) const { return values + static_cast<size_t>(i) * nValues; }

  private:
    int readOpenFile(FILE* file, const char* filename);
    int readVertices(FILE* file, const char* filename, int nv, int nt);
    int readTriangles(FILE* file, const char* filename, int nv, int nt);
};

// Fits the box (xmin, xmax, ymin, ymax) into a width x height grid, keeping its aspect ratio
// and centring it along the looser direction: a point (x, y) maps to ((x - x0) * scale,
// (y - y0) * scale). Returns 1, or 0 through flic_error when the box has a side of exactly 0.
MUSKEIP_API int flic_fitBox(const float box[4], int width, int height, float& scale, float& x0,
                            float& y0);

#endif
