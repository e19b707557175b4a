// Per-hand arithmetic of the walk on raw f32 rows. Plain loops over restrict
// pointers: the compiler turns them into 8-wide AVX code with a scalar tail.
#pragma once

#include <cfloat>
#include <cstdint>

namespace vec {

inline void copy(float* __restrict out, const float* __restrict in, int n) {
    for (int i = 0; i < n; ++i) out[i] = in[i];
}

inline void fill(float* __restrict out, float value, int n) {
    for (int i = 0; i < n; ++i) out[i] = value;
}

inline void scale(float* __restrict out, float factor, int n) {
    for (int i = 0; i < n; ++i) out[i] *= factor;
}

inline void add(float* __restrict out, const float* __restrict in, int n) {
    for (int i = 0; i < n; ++i) out[i] += in[i];
}

// out = a * b
inline void multiply(float* __restrict out, const float* __restrict a, const float* __restrict b, int n) {
    for (int i = 0; i < n; ++i) out[i] = a[i] * b[i];
}

// out *= a; returns the sum of the products. The sum is kept in eight
// partial sums, one per vector lane: a single running sum would make every
// addition wait on the one before. Callers only compare it with a threshold.
inline float multiply_in_place_sum(float* __restrict out, const float* __restrict a, int n) {
    float lanes[8] = {};
    int i = 0;
    for (; i + 8 <= n; i += 8) {
        for (int k = 0; k < 8; ++k) {
            out[i + k] *= a[i + k];
            lanes[k] += out[i + k];
        }
    }
    float sum = 0;
    for (; i < n; ++i) {
        out[i] *= a[i];
        sum += out[i];
    }
    for (const float lane : lanes) sum += lane;
    return sum;
}

// out += a * b
inline void add_product(float* __restrict out, const float* __restrict a, const float* __restrict b, int n) {
    for (int i = 0; i < n; ++i) out[i] += a[i] * b[i];
}

// out[i] = fill[i] wherever key[i] is zero.
inline void fill_where_zero(float* __restrict out, const float* __restrict fill, const float* __restrict key, int n) {
    for (int i = 0; i < n; ++i) out[i] = key[i] == 0.0f ? fill[i] : out[i];
}

inline void max_in_place(float* __restrict out, const float* __restrict in, int n) {
    for (int i = 0; i < n; ++i) out[i] = out[i] > in[i] ? out[i] : in[i];
}

// Maximum against an all-zero vector.
inline void max_zero(float* __restrict out, int n) {
    for (int i = 0; i < n; ++i) out[i] = out[i] > 0.0f ? out[i] : 0.0f;
}

// f32 dot product, as the walk's final sums are defined.
inline float dot(const float* __restrict a, const float* __restrict b, int n) {
    float sum = 0;
    for (int i = 0; i < n; ++i) sum += a[i] * b[i];
    return sum;
}

inline float sum(const float* __restrict a, int n) {
    float total = 0;
    for (int i = 0; i < n; ++i) total += a[i];
    return total;
}

// Positive entries times `up`; negative ones times `down`.
inline void scale_signed(float* __restrict out, float up, float down, int n) {
    for (int i = 0; i < n; ++i) out[i] *= out[i] > 0.0f ? up : down;
}

// child[i] = parent[table[i]]: a child list is a subset of its parent's.
inline void gather(float* __restrict child, const float* __restrict parent, const int16_t* __restrict table,
                   int n) {
    for (int i = 0; i < n; ++i) child[i] = parent[table[i]];
}

// parent[table[i]] += child[i] for a table without negative entries, such as
// a list's identity table: no test per hand.
inline void scatter_add_each(float* __restrict parent, const float* __restrict child,
                             const int16_t* __restrict table, int n) {
    for (int i = 0; i < n; ++i) parent[table[i]] += child[i];
}

// parent[table[i]] += child[i]. A negative entry is an image the parent
// list lacks (an asymmetric range under isomorphism) and is skipped.
inline void scatter_add(float* __restrict parent, const float* __restrict child, const int16_t* __restrict table,
                        int n) {
    for (int i = 0; i < n; ++i) {
        const int16_t at = table[i];
        if (at >= 0) parent[at] += child[i];
    }
}

}  // namespace vec
