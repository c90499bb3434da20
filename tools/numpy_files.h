// Fields from numpy's own files: a .npy array of shape (H, W, 2), or a .npz archive holding
// two (H, W) arrays named u and v (or one (H, W, 2) array). float32 or float64 in either byte
// order, C or Fortran order. Row 0 of the arrays is the bottom row of the field, as in the
// Python module.
//
// The parsers work on bytes in memory and return what is wrong as text ("" when nothing is),
// so that they can be fuzzed without files; the caller adds the file name.
#ifndef MUSKEIP_TOOLS_NUMPY_FILES_H
#define MUSKEIP_TOOLS_NUMPY_FILES_H

#include "vectorfield.h"

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

// One array of a .npy file: its header and where its data lies in the parsed bytes.
struct NumpyArray {
    std::string type;             // the header's descr, e.g. "<f4"
    bool fortranOrder = false;    // column-major data
    std::vector<long long> shape; // dimensions as written
    const unsigned char* data = nullptr;
    size_t dataBytes = 0; // bytes from `data` to the end of the input
};

// Parses the header of .npy bytes and checks that the data the shape needs is present.
std::string parseNpy(const unsigned char* bytes, size_t size, NumpyArray& array);

// A member of a zip archive, unpacked.
using ZipMember = std::pair<std::string, std::vector<unsigned char>>;
// Unpacks every member of a zip archive (stored or deflated, with or without zip64 sizes).
// Members are limited to `maxMemberBytes` each.
std::string unzipMembers(const unsigned char* bytes, size_t size, size_t maxMemberBytes,
                         std::vector<ZipMember>& members);

// Fills `field` from the bytes of a .npy or .npz file (told apart by their signatures).
std::string numpyField(const unsigned char* bytes, size_t size, FlicVectorField& field);

#endif
