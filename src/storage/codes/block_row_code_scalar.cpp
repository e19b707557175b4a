// The plain version of the block row code: the reference that the vector
// version is held to, the path of processors without AVX2, and the only
// version of the 24-bit width.
#include <algorithm>

#include "storage/codes/block_row_code.h"
#include "storage/codes/value_forms.h"

namespace {

constexpr int block_values = 32;
constexpr int group_values = 8;

// Little-endian fields, spelled out byte by byte.
void put_bytes(uint8_t* out, uint32_t value, int width) {
    for (int b = 0; b < width; ++b) out[b] = static_cast<uint8_t>(value >> (8 * b));
}

uint32_t get_bytes(const uint8_t* in, int width) {
    uint32_t value = 0;
    for (int b = 0; b < width; ++b) value |= static_cast<uint32_t>(in[b]) << (8 * b);
    return value;
}

template <class T>
uint32_t largest(const T* values, int count) {
    uint32_t m = 0;
    for (int i = 0; i < count; ++i) m = std::max<uint32_t>(m, values[i]);
    return m;
}

// ---- 16-bit rows -----------------------------------------------------------

int code16(uint32_t m) {
    if (m == 0) return 0;
    if (m < 256) return 1;
    return m <= 4095 ? 2 : 3;
}

constexpr int field_bytes16[4] = {0, 8, 12, 16};

void put_group16(const uint16_t* v, int code, uint8_t* out) {
    switch (code) {
        case 1:
            for (int i = 0; i < group_values; ++i) out[i] = static_cast<uint8_t>(v[i]);
            break;
        case 2:
            pack_12bit_fields(v, out);
            break;
        case 3:
            for (int i = 0; i < group_values; ++i) put_bytes(out + 2 * i, v[i], 2);
            break;
        default:
            break;
    }
}

void get_group16(const uint8_t* in, int code, uint16_t* v) {
    switch (code) {
        case 0:
            std::fill(v, v + group_values, 0);
            break;
        case 1:
            for (int i = 0; i < group_values; ++i) v[i] = in[i];
            break;
        case 2:
            unpack_12bit_fields(in, v);
            break;
        default:
            for (int i = 0; i < group_values; ++i) v[i] = static_cast<uint16_t>(get_bytes(in + 2 * i, 2));
            break;
    }
}

int encode16(const uint16_t* row, int count, uint8_t* out) {
    uint8_t* p = out;
    int i = 0;
    for (; i + block_values <= count; i += block_values) {
        uint8_t* control = p++;
        int codes = 0;
        for (int g = 0; g < 4; ++g) {
            const uint16_t* group = row + i + g * group_values;
            const int code = code16(largest(group, group_values));
            put_group16(group, code, p);
            p += field_bytes16[code];
            codes |= code << (2 * g);
        }
        *control = static_cast<uint8_t>(codes);
    }
    for (; i < count; i += group_values) {
        const int k = std::min(group_values, count - i);
        const int width = largest(row + i, k) < 256 ? 1 : 2;
        *p++ = width == 1 ? 1 : 3;
        for (int j = 0; j < k; ++j, p += width) put_bytes(p, row[i + j], width);
    }
    return static_cast<int>(p - out);
}

int decode16(const uint8_t* in, const uint8_t* end, int count, uint16_t* row) {
    const uint8_t* p = in;
    int i = 0;
    for (; i + block_values <= count; i += block_values) {
        if (p >= end) return -1;
        const int codes = *p++;
        for (int g = 0; g < 4; ++g) {
            const int code = codes >> (2 * g) & 3;
            if (end - p < field_bytes16[code]) return -1;
            get_group16(p, code, row + i + g * group_values);
            p += field_bytes16[code];
        }
    }
    for (; i < count; i += group_values) {
        const int k = std::min(group_values, count - i);
        if (p >= end) return -1;
        const int width = *p++ == 1 ? 1 : 2;
        if (end - p < k * width) return -1;
        for (int j = 0; j < k; ++j, p += width) row[i + j] = static_cast<uint16_t>(get_bytes(p, width));
    }
    return static_cast<int>(p - in);
}

// ---- 32- and 24-bit rows ---------------------------------------------------
//
// The two widths differ only in the size of their widest field.

int wide_code(uint32_t m) {
    if (m == 0) return 0;
    if (m < 256) return 1;
    return m <= 65535 ? 2 : 3;
}

// Bytes per value of each group code; `top` is 4 or 3.
int value_width(int code, int top) { return code == 3 ? top : code; }

int rest_mode(const uint32_t* values, int count, int top) {
    const uint32_t m = largest(values, count);
    if (m < 256) return 0;
    if (m <= 65535) return 1;
    if (top == 3) return 2;
    int mode = 2;
    for (int i = 0; i < count; ++i) {
        if (values[i] >= 256 && values[i] <= 65535) mode |= 1;
    }
    return mode;
}

int rest_width(int mode, int top) { return mode == 0 ? 1 : mode == 1 ? 2 : top; }

int encode_wide(const uint32_t* row, int count, uint8_t* out, int top) {
    uint8_t* p = out;
    int i = 0;
    for (; i + block_values <= count; i += block_values) {
        uint8_t* control = p++;
        int codes = 0;
        for (int g = 0; g < 4; ++g) {
            const uint32_t* group = row + i + g * group_values;
            const int code = wide_code(largest(group, group_values));
            const int width = value_width(code, top);
            for (int j = 0; j < group_values && width > 0; ++j, p += width) put_bytes(p, group[j], width);
            codes |= code << (2 * g);
        }
        *control = static_cast<uint8_t>(codes);
    }
    for (; i < count; i += group_values) {
        const int k = std::min(group_values, count - i);
        const int mode = rest_mode(row + i, k, top);
        const int width = rest_width(mode, top);
        *p++ = static_cast<uint8_t>(mode);
        for (int j = 0; j < k; ++j, p += width) put_bytes(p, row[i + j], width);
    }
    return static_cast<int>(p - out);
}

int decode_wide(const uint8_t* in, const uint8_t* end, int count, uint32_t* row, int top) {
    const uint8_t* p = in;
    int i = 0;
    for (; i + block_values <= count; i += block_values) {
        if (p >= end) return -1;
        const int codes = *p++;
        for (int g = 0; g < 4; ++g) {
            const int width = value_width(codes >> (2 * g) & 3, top);
            if (end - p < group_values * width) return -1;
            uint32_t* group = row + i + g * group_values;
            for (int j = 0; j < group_values; ++j, p += width) group[j] = get_bytes(p, width);
        }
    }
    for (; i < count; i += group_values) {
        const int k = std::min(group_values, count - i);
        if (p >= end) return -1;
        const int width = rest_width(*p++, top);
        if (end - p < k * width) return -1;
        for (int j = 0; j < k; ++j, p += width) row[i + j] = get_bytes(p, width);
    }
    return static_cast<int>(p - in);
}

int encode32(const uint32_t* row, int count, uint8_t* out) { return encode_wide(row, count, out, 4); }

int decode32(const uint8_t* in, const uint8_t* end, int count, uint32_t* row) {
    return decode_wide(in, end, count, row, 4);
}

}  // namespace

const BlockRowCodec scalar_block_row_codec = {"scalar", encode16, decode16, encode32, decode32};

int encode_block_row24(const uint32_t* row, int count, uint8_t* out) { return encode_wide(row, count, out, 3); }

int decode_block_row24(const uint8_t* in, const uint8_t* end, int count, uint32_t* row) {
    return decode_wide(in, end, count, row, 3);
}
