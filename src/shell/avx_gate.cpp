// Everything in this file runs before anything else of the program, so it is
// compiled for the plain x86-64 baseline: the rest of the program is built with
// AVX and would fault on a processor without it instead of saying why.
#pragma GCC push_options
#pragma GCC target("no-avx")

#include <cpuid.h>
#include <unistd.h>

#include "shell/avx_gate.h"

namespace {

constexpr uint32_t leaf1_ecx_osxsave = 1u << 27;
constexpr uint32_t leaf1_ecx_avx = 1u << 28;
constexpr uint64_t xcr0_xmm_and_ymm = 0x6;

constexpr char avx_missing_message[] = "Error: AVX-compatible CPU is required.\n";

uint64_t read_xcr0() {
    uint32_t low = 0;
    uint32_t high = 0;
    asm volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return (static_cast<uint64_t>(high) << 32) | low;
}

bool processor_has_usable_avx() {
    unsigned eax = 0;
    unsigned ebx = 0;
    unsigned ecx = 0;
    unsigned edx = 0;
    if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx)) return false;
    const uint64_t xcr0 = (ecx & leaf1_ecx_osxsave) ? read_xcr0() : 0;
    return avx_requirement_met(ecx, xcr0);
}

void report_missing_avx() {
    // write(), not stdio: nothing of the C++ run time may have started yet.
    const ssize_t ignored = write(STDERR_FILENO, avx_missing_message, sizeof avx_missing_message - 1);
    (void)ignored;
}

// Static initialisers elsewhere are compiled with AVX, and this one runs
// before all of them (priority 101 is the first left to programs).
__attribute__((constructor(101))) void stop_early_without_avx() {
    if (processor_has_usable_avx()) return;
    report_missing_avx();
    _exit(1);
}

}  // namespace

bool avx_requirement_met(uint32_t leaf1_ecx, uint64_t xcr0) {
    const bool processor_has_avx = (leaf1_ecx & leaf1_ecx_avx) != 0;
    const bool system_saves_ymm = (leaf1_ecx & leaf1_ecx_osxsave) && (xcr0 & xcr0_xmm_and_ymm) == xcr0_xmm_and_ymm;
    return processor_has_avx && system_saves_ymm;
}

bool check_avx_requirement() {
    if (processor_has_usable_avx()) return true;
    report_missing_avx();
    return false;
}

#pragma GCC pop_options
