// Reading numpy's .npy and .npz files into vector fields. The .npy header is a Python dict
// literal; only the three keys numpy writes are read. An .npz file is a zip archive of .npy
// members, stored or deflated (zlib inflates them).
#include "numpy_files.h"

#include <zlib.h>

#include <climits>
#include <cstdint>
#include <cstring>

namespace {

const unsigned char kNpyMagic[6] = {0x93, 'N', 'U', 'M', 'P', 'Y'};
// A member may hold a 10000 x 10000 x 2 float64 array and its header.
const size_t kMaxMemberBytes = size_t(1) << 31;
// Deflate cannot shrink data by more than about 1032:1; larger claims are corrupt.
const size_t kMaxDeflateRatio = 1032;

uint32_t little16(const unsigned char* p) {
    return p[0] | (p[1] << 8);
}

uint32_t little32(const unsigned char* p) {
    return little16(p) | (static_cast<uint32_t>(little16(p + 2)) << 16);
}

uint64_t little64(const unsigned char* p) {
    return little32(p) | (static_cast<uint64_t>(little32(p + 4)) << 32);
}

// --- .npy header -----------------------------------------------------------------------------

// The position just after "'key':" and any blanks, or npos.
size_t valueOf(const std::string& header, const char* key) {
    size_t at = header.find(std::string("'") + key + "'");
    if (at == std::string::npos) return at;
    at = header.find(':', at);
    if (at == std::string::npos) return at;
    at++;
    while (at < header.size() && header[at] == ' ')
        at++;
    return at;
}

bool readType(const std::string& header, std::string& type) {
    size_t at = valueOf(header, "descr");
    if (at == std::string::npos || at >= header.size()) return false;
    char quote = header[at];
    if (quote != '\'' && quote != '"') return false;
    size_t end = header.find(quote, at + 1);
    if (end == std::string::npos) return false;
    type = header.substr(at + 1, end - at - 1);
    return true;
}

bool readOrder(const std::string& header, bool& fortran) {
    size_t at = valueOf(header, "fortran_order");
    if (at == std::string::npos) return false;
    if (header.compare(at, 4, "True") == 0) return fortran = true;
    fortran = false;
    return header.compare(at, 5, "False") == 0;
}

bool readShape(const std::string& header, std::vector<long long>& shape) {
    size_t at = valueOf(header, "shape");
    if (at == std::string::npos || at >= header.size() || header[at] != '(') return false;
    shape.clear();
    at++;
    for (;;) {
        while (at < header.size() && (header[at] == ' ' || header[at] == ','))
            at++;
        if (at >= header.size()) return false;
        if (header[at] == ')') return true;
        long long dimension = 0;
        int digits = 0;
        while (at < header.size() && header[at] >= '0' && header[at] <= '9' && digits < 12) {
            dimension = dimension * 10 + (header[at++] - '0');
            digits++;
        }
        if (digits == 0 || digits == 12 || shape.size() >= 8) return false;
        shape.push_back(dimension);
    }
}

// Bytes per element of a float type, 0 for any other type.
int floatSize(const std::string& type) {
    if (type.size() != 3 || (type[0] != '<' && type[0] != '>' && type[0] != '=')) return 0;
    if (type == "<f4" || type == ">f4" || type == "=f4") return 4;
    if (type == "<f8" || type == ">f8" || type == "=f8") return 8;
    return 0;
}

bool hostIsLittleEndian() {
    const uint16_t one = 1;
    unsigned char first;
    memcpy(&first, &one, 1);
    return first == 1;
}

// Element k of a float32 or float64 array, as float.
float element(const NumpyArray& array, long long k) {
    int size = floatSize(array.type);
    unsigned char raw[8];
    memcpy(raw, array.data + k * size, size);
    bool little = array.type[0] == '<' || (array.type[0] == '=' && hostIsLittleEndian());
    if (little != hostIsLittleEndian())
        for (int i = 0; i < size / 2; i++) {
            unsigned char t = raw[i];
            raw[i] = raw[size - 1 - i];
            raw[size - 1 - i] = t;
        }
    if (size == 4) {
        float value;
        memcpy(&value, raw, 4);
        return value;
    }
    double value;
    memcpy(&value, raw, 8);
    return static_cast<float>(value);
}

std::string describeShape(const std::vector<long long>& shape) {
    std::string text = "(";
    for (size_t i = 0; i < shape.size(); i++)
        text += (i ? ", " : "") + std::to_string(shape[i]);
    return text + (shape.size() == 1 ? ",)" : ")");
}

// --- zip archives -----------------------------------------------------------------------------

struct ZipEntry {
    std::string name;
    int method;
    uint64_t packed, unpacked, localOffset;
};

// Sizes and offset from a central entry's zip64 extra field, for those marked 0xFFFFFFFF.
void readZip64Extra(const unsigned char* extra, size_t length, ZipEntry& entry) {
    size_t at = 0;
    while (at + 4 <= length) {
        uint32_t id = little16(extra + at), size = little16(extra + at + 2);
        const unsigned char* field = extra + at + 4;
        size_t end = at + 4 + size;
        if (end > length) return;
        if (id == 1) {
            size_t used = 0;
            if (entry.unpacked == 0xFFFFFFFFu && used + 8 <= size) {
                entry.unpacked = little64(field + used);
                used += 8;
            }
            if (entry.packed == 0xFFFFFFFFu && used + 8 <= size) {
                entry.packed = little64(field + used);
                used += 8;
            }
            if (entry.localOffset == 0xFFFFFFFFu && used + 8 <= size)
                entry.localOffset = little64(field + used);
            return;
        }
        at = end;
    }
}

std::string readCentralDirectory(const unsigned char* bytes, size_t size,
                                 std::vector<ZipEntry>& entries) {
    if (size < 22) return "the zip archive is truncated";
    size_t end = size - 22, lowest = size > 22 + 65535 ? size - 22 - 65535 : 0;
    while (little32(bytes + end) != 0x06054b50u) {
        if (end == lowest) return "the zip archive has no central directory";
        end--;
    }
    uint32_t count = little16(bytes + end + 10);
    uint64_t directorySize = little32(bytes + end + 12), at = little32(bytes + end + 16);
    if (at == 0xFFFFFFFFu || count == 0xFFFFu)
        return "zip64 archives (members beyond 4 GiB) are not read";
    if (at > size || directorySize > size - at) return "the zip archive's directory is truncated";
    for (uint32_t k = 0; k < count; k++) {
        if (at + 46 > size || little32(bytes + at) != 0x02014b50u)
            return "the zip archive's directory is damaged";
        ZipEntry entry;
        entry.method = little16(bytes + at + 10);
        entry.packed = little32(bytes + at + 20);
        entry.unpacked = little32(bytes + at + 24);
        size_t nameLength = little16(bytes + at + 28), extraLength = little16(bytes + at + 30),
               commentLength = little16(bytes + at + 32);
        entry.localOffset = little32(bytes + at + 42);
        if (at + 46 + nameLength + extraLength + commentLength > size)
            return "the zip archive's directory is damaged";
        entry.name.assign(reinterpret_cast<const char*>(bytes + at + 46), nameLength);
        readZip64Extra(bytes + at + 46 + nameLength, extraLength, entry);
        entries.push_back(entry);
        at += 46 + nameLength + extraLength + commentLength;
    }
    return "";
}

std::string inflateMember(const unsigned char* packed, const ZipEntry& entry,
                          std::vector<unsigned char>& out) {
    z_stream stream;
    memset(&stream, 0, sizeof stream);
    if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) return "zlib cannot start";
    stream.next_in = const_cast<unsigned char*>(packed);
    stream.avail_in = static_cast<uInt>(entry.packed);
    stream.next_out = out.data();
    stream.avail_out = static_cast<uInt>(out.size());
    int status = inflate(&stream, Z_FINISH);
    bool complete = status == Z_STREAM_END && stream.total_out == out.size();
    inflateEnd(&stream);
    return complete ? "" : "member " + entry.name + " does not inflate to its size";
}

std::string unpackMember(const unsigned char* bytes, size_t size, size_t maxMemberBytes,
                         const ZipEntry& entry, std::vector<unsigned char>& out) {
    if (entry.localOffset > size || size - entry.localOffset < 30 ||
        little32(bytes + entry.localOffset) != 0x04034b50u)
        return "member " + entry.name + " is missing from the zip archive";
    const unsigned char* local = bytes + entry.localOffset;
    uint64_t start = entry.localOffset + 30 + little16(local + 26) + little16(local + 28);
    if (start > size || entry.packed > size - start)
        return "member " + entry.name + " is truncated";
    if (entry.unpacked > maxMemberBytes)
        return "member " + entry.name + " is larger than " + std::to_string(maxMemberBytes) +
               " bytes";
    if (entry.method == 0) {
        if (entry.packed != entry.unpacked) return "member " + entry.name + " is damaged";
        out.assign(bytes + start, bytes + start + entry.packed);
        return "";
    }
    if (entry.method != 8)
        return "member " + entry.name + " is packed with method " + std::to_string(entry.method) +
               " (only stored and deflated members are read)";
    if (entry.packed > 0xFFFFFFFFu || entry.unpacked > entry.packed * kMaxDeflateRatio + 1024)
        return "member " + entry.name + " is damaged";
    out.assign(static_cast<size_t>(entry.unpacked), 0);
    return inflateMember(bytes + start, entry, out);
}

// --- fields ------------------------------------------------------------------------------------

bool isFieldSize(long long height, long long width) {
    return height >= 2 && width >= 2 && height <= 100000 && width <= 100000;
}

std::string fieldFromPairs(const NumpyArray& array, FlicVectorField& field) {
    const std::vector<long long>& s = array.shape;
    if (s.size() != 3 || s[2] != 2 || !isFieldSize(s[0], s[1]))
        return "an array of shape " + describeShape(s) +
               " is not a field: give (H, W, 2) with H and W at least 2, or u and v in an .npz";
    long long height = s[0], width = s[1];
    if (!field.setSize(static_cast<int>(width), static_cast<int>(height)))
        return "no room for a field of that size";
    Vec2f* vectors = field.vectors();
    for (long long j = 0; j < height; j++)
        for (long long i = 0; i < width; i++) {
            long long x = array.fortranOrder ? j + height * i : (j * width + i) * 2;
            long long y = array.fortranOrder ? x + height * width : x + 1;
            vectors[j * width + i].x = element(array, x);
            vectors[j * width + i].y = element(array, y);
        }
    return "";
}

std::string fieldFromComponents(const NumpyArray& u, const NumpyArray& v, FlicVectorField& field) {
    if (u.shape.size() != 2 || u.shape != v.shape || !isFieldSize(u.shape[0], u.shape[1]))
        return "u " + describeShape(u.shape) + " and v " + describeShape(v.shape) +
               " must be two (H, W) arrays of one shape, H and W at least 2";
    long long height = u.shape[0], width = u.shape[1];
    if (!field.setSize(static_cast<int>(width), static_cast<int>(height)))
        return "no room for a field of that size";
    Vec2f* vectors = field.vectors();
    for (long long j = 0; j < height; j++)
        for (long long i = 0; i < width; i++) {
            long long ku = u.fortranOrder ? j + height * i : j * width + i;
            long long kv = v.fortranOrder ? j + height * i : j * width + i;
            vectors[j * width + i].x = element(u, ku);
            vectors[j * width + i].y = element(v, kv);
        }
    return "";
}

const ZipMember* findMember(const std::vector<ZipMember>& members, const std::string& name) {
    for (const ZipMember& member : members)
        if (member.first == name || member.first == name + ".npy") return &member;
    return nullptr;
}

std::string parseMember(const ZipMember& member, NumpyArray& array) {
    std::string problem = parseNpy(member.second.data(), member.second.size(), array);
    return problem.empty() ? "" : member.first + ": " + problem;
}

std::string fieldFromArchive(const unsigned char* bytes, size_t size, FlicVectorField& field) {
    std::vector<ZipMember> members;
    std::string problem = unzipMembers(bytes, size, kMaxMemberBytes, members);
    if (!problem.empty()) return problem;
    const ZipMember *u = findMember(members, "u"), *v = findMember(members, "v");
    NumpyArray first, second;
    if (u && v) {
        if (!(problem = parseMember(*u, first)).empty()) return problem;
        if (!(problem = parseMember(*v, second)).empty()) return problem;
        return fieldFromComponents(first, second, field);
    }
    if (members.size() == 1) {
        if (!(problem = parseMember(members[0], first)).empty()) return problem;
        return fieldFromPairs(first, field);
    }
    std::string names;
    for (const ZipMember& member : members)
        names += (names.empty() ? "" : ", ") + member.first;
    return "the archive holds " + (names.empty() ? std::string("no arrays") : names) +
           ": a field needs arrays named u and v, or a single (H, W, 2) array";
}

} // namespace

std::string parseNpy(const unsigned char* bytes, size_t size, NumpyArray& array) {
    if (size < 10 || memcmp(bytes, kNpyMagic, 6) != 0) return "not a .npy array";
    int major = bytes[6];
    if (major < 1 || major > 3) return "npy format version " + std::to_string(major) + " unknown";
    size_t prefix = major == 1 ? 10 : 12;
    if (size < prefix) return "the .npy header is truncated";
    size_t headerLength = major == 1 ? little16(bytes + 8) : little32(bytes + 8);
    if (headerLength > size - prefix) return "the .npy header is truncated";
    std::string header(reinterpret_cast<const char*>(bytes + prefix), headerLength);
    if (!readType(header, array.type) || !readOrder(header, array.fortranOrder) ||
        !readShape(header, array.shape))
        return "the .npy header is malformed";
    int elementSize = floatSize(array.type);
    if (!elementSize)
        return "numpy type '" + array.type + "' is not read: give float32 or float64 values";
    array.data = bytes + prefix + headerLength;
    array.dataBytes = size - prefix - headerLength;
    unsigned long long elements = 1;
    for (long long dimension : array.shape) {
        if (dimension != 0 &&
            elements > ULLONG_MAX / 8 / static_cast<unsigned long long>(dimension))
            return "the .npy shape is too large";
        elements *= static_cast<unsigned long long>(dimension);
    }
    if (elements * elementSize > array.dataBytes)
        return "the array data ends after " + std::to_string(array.dataBytes) + " of " +
               std::to_string(elements * elementSize) + " bytes";
    return "";
}

std::string unzipMembers(const unsigned char* bytes, size_t size, size_t maxMemberBytes,
                         std::vector<ZipMember>& members) {
    std::vector<ZipEntry> entries;
    std::string problem = readCentralDirectory(bytes, size, entries);
    if (!problem.empty()) return problem;
    for (const ZipEntry& entry : entries) {
        members.emplace_back(entry.name, std::vector<unsigned char>());
        problem = unpackMember(bytes, size, maxMemberBytes, entry, members.back().second);
        if (!problem.empty()) return problem;
    }
    return "";
}

std::string numpyField(const unsigned char* bytes, size_t size, FlicVectorField& field) {
    if (size >= 6 && memcmp(bytes, kNpyMagic, 6) == 0) {
        NumpyArray array;
        std::string problem = parseNpy(bytes, size, array);
        return problem.empty() ? fieldFromPairs(array, field) : problem;
    }
    if (size >= 4 && bytes[0] == 'P' && bytes[1] == 'K')
        return fieldFromArchive(bytes, size, field);
    return "neither a .npy array nor an .npz archive";
}
