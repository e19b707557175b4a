// The program is built for AVX: without it the process must stop before any
// of that code runs.
#pragma once

#include <cstdint>

// AVX usable: the processor has it and the operating system saves the YMM
// registers (without that, the first AVX instruction faults all the same).
bool avx_requirement_met(uint32_t leaf1_ecx, uint64_t xcr0);

// Start-up step 1: tests this processor. Without AVX it prints
// "Error: AVX-compatible CPU is required." to standard error and returns
// false; the caller then ends with status 1.
bool check_avx_requirement();
