// What the processor says about itself: the CPUID leaves, read once before
// main runs, and the questions the rest of the program asks of them.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// The four registers that one CPUID query returns.
struct CpuidResult {
    uint32_t eax = 0;
    uint32_t ebx = 0;
    uint32_t ecx = 0;
    uint32_t edx = 0;
};

struct CpuInfo {
    int32_t highest_leaf = 0;
    int32_t highest_extended_leaf = 0;  // 0x8000xxxx, so negative as a signed value
    std::string vendor;                 // leaf 0: EBX, EDX, ECX
    std::string brand;                  // leaves 0x80000002..0x80000004
    bool is_intel = false;
    bool is_amd = false;
    uint32_t leaf1_ecx = 0;
    uint32_t leaf1_edx = 0;
    uint32_t leaf7_ebx = 0;
    uint32_t leaf7_ecx = 0;
    uint32_t ext1_ecx = 0;
    uint32_t ext1_edx = 0;
    // Register state the operating system saves on a thread switch (XCR0);
    // 0 when the processor doesn't let programs read it.
    uint64_t xcr0 = 0;
    std::vector<CpuidResult> leaves;           // leaf 0 onwards, subleaf 0
    std::vector<CpuidResult> extended_leaves;  // leaf 0x80000000 onwards
};

// One CPUID query: leaf, subleaf.
using CpuidFunction = std::function<CpuidResult(uint32_t, uint32_t)>;

// Fills a CpuInfo from any source of CPUID answers (the processor, or a test's
// table). xcr0 is left at 0: only the processor itself can answer that.
CpuInfo cpu_info_from(const CpuidFunction& cpuid);
// The processor this program runs on.
CpuInfo read_cpu_info();

// This machine's answers, read during static initialisation.
extern const CpuInfo cpu_info;

bool cpu_has_avx(const CpuInfo& info = cpu_info);
bool cpu_has_avx2(const CpuInfo& info = cpu_info);

// Whether the kernel variants built for an instruction set can run: the
// processor has every extension they use and the operating system saves the
// registers they touch.
bool can_run_avx2_kernels(const CpuInfo& info = cpu_info);
bool can_run_avx512_kernels(const CpuInfo& info = cpu_info);

// "AVX2", "AVX" or "SSE3": the best set the processor reports.
const char* best_instruction_set(const CpuInfo& info = cpu_info);

// The text of show_cpu_info: vendor line, brand line and the feature table.
std::string cpu_info_report(const CpuInfo& info);
