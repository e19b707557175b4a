// The switches that choose between kernel variants, and the rules by which
// the kernels apply them.
#pragma once

// Widest block of leaves that the fused river kernels take at once (1..8).
extern int simd_level;
// Ask for the kernel variants written for the 512-bit instruction set.
extern bool avx512_enabled;
// Keep a stored strategy for river nodes.
extern bool river_strategy_enabled;
// Stored values are quantised at 2^storage_precision times the base scale.
extern double storage_precision;

enum class VectorIsa { avx, avx2, avx512 };

// The variant a kernel with several implementations runs. The 512-bit one
// when it is asked for and the processor and the system can run it; else the
// 256-bit one with AVX2 and FMA when available; else plain AVX. Asking for
// AVX-512 on a processor without it falls back instead of faulting.
VectorIsa choose_kernel_isa(bool avx512_wanted, bool avx2_runs, bool avx512_runs);
// Whether the AVX2 variants can run here: the processor has AVX2 and FMA and
// the system saves their registers. Asked once. Every part that has an AVX2
// variant (the walk's kernels, the row codes, the stores' row loops) chooses
// by this, so one answer holds for the whole program.
bool avx2_runs();
// The same for this machine and the current switch; cheap enough to ask on
// every kernel call, so a changed switch takes effect at once.
VectorIsa kernel_isa();

// Whether the river subtree of a training walk goes through the batched
// kernels at all (a level of 1 turns them off).
bool river_batch_enabled(int level = simd_level);

// How many showdown leaves the next fused kernel takes, out of `remaining`
// (at least 1): any width from 8 down to 1, the widest that fits the count and
// the level. Widths 5 and 7 are sweeps of 6 and 8 lanes with lanes to spare.
int showdown_block_width(int remaining, int level = simd_level);
// The same for fold leaves, whose kernels come in widths 4, 3, 2 and 1.
int fold_block_width(int remaining, int level = simd_level);
