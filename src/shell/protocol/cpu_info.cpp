#include "shell/protocol/cpu_info.h"

#include <cpuid.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace {

constexpr uint32_t first_extended_leaf = 0x80000000u;
// Real processors report a few dozen leaves; a hypervisor that claims
// billions must not make start-up read them all.
constexpr uint32_t max_leaves_kept = 256;

constexpr uint32_t bit(int number) { return 1u << number; }

// Feature bits the kernels' choice rests on.
constexpr uint32_t leaf1_ecx_fma = bit(12);
constexpr uint32_t leaf1_ecx_osxsave = bit(27);
constexpr uint32_t leaf1_ecx_avx = bit(28);
constexpr uint32_t leaf7_ebx_avx2 = bit(5);
constexpr uint32_t leaf7_ebx_avx512f = bit(16);
constexpr uint32_t leaf7_ebx_avx512dq = bit(17);
constexpr uint32_t leaf7_ebx_avx512bw = bit(30);
constexpr uint32_t leaf7_ebx_avx512vl = bit(31);
// XCR0: XMM and YMM state; opmask, upper halves of ZMM0-15 and ZMM16-31.
constexpr uint64_t xcr0_ymm_state = 0x6;
constexpr uint64_t xcr0_zmm_state = 0xE6;

enum class FeatureWord { leaf1_ecx, leaf1_edx, leaf7_ebx, leaf7_ecx, ext1_ecx, ext1_edx };
enum class VendorRule { any, intel_only, amd_only };

struct Feature {
    const char* name;
    FeatureWord word;
    int bit;
    VendorRule vendor;
};

using W = FeatureWord;
using V = VendorRule;
constexpr std::array<Feature, 51> feature_table{{
    {"3DNOW", W::ext1_edx, 31, V::amd_only},
    {"3DNOWEXT", W::ext1_edx, 30, V::amd_only},
    {"ABM", W::ext1_ecx, 5, V::amd_only},
    {"ADX", W::leaf7_ebx, 19, V::any},
    {"AES", W::leaf1_ecx, 25, V::any},
    {"AVX", W::leaf1_ecx, 28, V::any},
    {"AVX2", W::leaf7_ebx, 5, V::any},
    {"AVX512CD", W::leaf7_ebx, 28, V::any},
    {"AVX512ER", W::leaf7_ebx, 27, V::any},
    {"AVX512F", W::leaf7_ebx, 16, V::any},
    {"AVX512PF", W::leaf7_ebx, 26, V::any},
    {"BMI1", W::leaf7_ebx, 3, V::any},
    {"BMI2", W::leaf7_ebx, 8, V::any},
    {"CLFSH", W::leaf1_edx, 19, V::any},
    {"CMPXCHG16B", W::leaf1_ecx, 13, V::any},
    {"CX8", W::leaf1_edx, 8, V::any},
    {"ERMS", W::leaf7_ebx, 9, V::any},
    {"F16C", W::leaf1_ecx, 29, V::any},
    {"FMA", W::leaf1_ecx, 12, V::any},
    {"FSGSBASE", W::leaf7_ebx, 0, V::any},
    {"FXSR", W::leaf1_edx, 24, V::any},
    {"HLE", W::leaf7_ebx, 4, V::intel_only},
    {"INVPCID", W::leaf7_ebx, 10, V::any},
    {"LAHF", W::ext1_ecx, 0, V::any},
    {"LZCNT", W::ext1_ecx, 5, V::intel_only},
    {"MMX", W::leaf1_edx, 23, V::any},
    {"MMXEXT", W::ext1_edx, 22, V::amd_only},
    {"MONITOR", W::leaf1_ecx, 3, V::any},
    {"MOVBE", W::leaf1_ecx, 22, V::any},
    {"MSR", W::leaf1_edx, 5, V::any},
    {"OSXSAVE", W::leaf1_ecx, 27, V::any},
    {"PCLMULQDQ", W::leaf1_ecx, 1, V::any},
    {"POPCNT", W::leaf1_ecx, 23, V::any},
    {"PREFETCHWT1", W::leaf7_ecx, 0, V::any},
    {"RDRAND", W::leaf1_ecx, 30, V::any},
    {"RDSEED", W::leaf7_ebx, 18, V::any},
    {"RDTSCP", W::ext1_edx, 27, V::intel_only},
    {"RTM", W::leaf7_ebx, 11, V::intel_only},
    {"SEP", W::leaf1_edx, 11, V::any},
    {"SHA", W::leaf7_ebx, 29, V::any},
    {"SSE", W::leaf1_edx, 25, V::any},
    {"SSE2", W::leaf1_edx, 26, V::any},
    {"SSE3", W::leaf1_ecx, 0, V::any},
    {"SSE4.1", W::leaf1_ecx, 19, V::any},
    {"SSE4.2", W::leaf1_ecx, 20, V::any},
    {"SSE4a", W::ext1_ecx, 6, V::amd_only},
    {"SSSE3", W::leaf1_ecx, 9, V::any},
    {"SYSCALL", W::ext1_edx, 11, V::intel_only},
    {"TBM", W::ext1_ecx, 21, V::amd_only},
    {"XOP", W::ext1_ecx, 11, V::amd_only},
    {"XSAVE", W::leaf1_ecx, 26, V::any},
}};

// The table breaks its lines after these entries (counted from 1).
constexpr std::array<size_t, 7> feature_line_ends{8, 16, 24, 32, 40, 47, 51};

uint32_t feature_word(const CpuInfo& info, FeatureWord word) {
    switch (word) {
        case W::leaf1_ecx: return info.leaf1_ecx;
        case W::leaf1_edx: return info.leaf1_edx;
        case W::leaf7_ebx: return info.leaf7_ebx;
        case W::leaf7_ecx: return info.leaf7_ecx;
        case W::ext1_ecx: return info.ext1_ecx;
        case W::ext1_edx: return info.ext1_edx;
    }
    return 0;
}

bool has_feature(const CpuInfo& info, const Feature& feature) {
    if (feature.vendor == V::intel_only && !info.is_intel) return false;
    if (feature.vendor == V::amd_only && !info.is_amd) return false;
    return (feature_word(info, feature.word) & bit(feature.bit)) != 0;
}

std::string_view trim_blanks(std::string_view text) {
    const size_t first = text.find_first_not_of(' ');
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// Register bytes in the order given, as text up to the first zero byte.
std::string text_of_registers(std::initializer_list<uint32_t> registers) {
    std::array<char, 64> bytes{};
    size_t length = 0;
    for (uint32_t value : registers) {
        std::memcpy(bytes.data() + length, &value, sizeof value);
        length += sizeof value;
    }
    return std::string(bytes.data());
}

CpuidResult processor_cpuid(uint32_t leaf, uint32_t subleaf) {
    CpuidResult result;
    if (!__get_cpuid_count(leaf, subleaf, &result.eax, &result.ebx, &result.ecx, &result.edx)) return {};
    return result;
}

uint64_t read_xcr0() {
    uint32_t low = 0;
    uint32_t high = 0;
    asm volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return (static_cast<uint64_t>(high) << 32) | low;
}

}  // namespace

CpuInfo cpu_info_from(const CpuidFunction& cpuid) {
    CpuInfo info;
    const CpuidResult leaf0 = cpuid(0, 0);
    info.highest_leaf = static_cast<int32_t>(leaf0.eax);
    info.leaves.push_back(leaf0);
    for (uint32_t leaf = 1; static_cast<int64_t>(leaf) <= info.highest_leaf && leaf < max_leaves_kept; ++leaf)
        info.leaves.push_back(cpuid(leaf, 0));

    info.vendor = text_of_registers({leaf0.ebx, leaf0.edx, leaf0.ecx});
    info.is_intel = info.vendor == "GenuineIntel";
    info.is_amd = info.vendor == "AuthenticAMD";
    if (info.highest_leaf >= 1) {
        info.leaf1_ecx = info.leaves[1].ecx;
        info.leaf1_edx = info.leaves[1].edx;
    }
    if (info.highest_leaf >= 7) {
        info.leaf7_ebx = info.leaves[7].ebx;
        info.leaf7_ecx = info.leaves[7].ecx;
    }

    const CpuidResult extended0 = cpuid(first_extended_leaf, 0);
    const uint32_t highest_extended = extended0.eax;
    info.highest_extended_leaf = static_cast<int32_t>(highest_extended);
    info.extended_leaves.push_back(extended0);
    for (uint32_t leaf = first_extended_leaf + 1;
         leaf <= highest_extended && leaf - first_extended_leaf < max_leaves_kept; ++leaf)
        info.extended_leaves.push_back(cpuid(leaf, 0));

    const auto& extended = info.extended_leaves;
    if (highest_extended >= first_extended_leaf + 1) {
        info.ext1_ecx = extended[1].ecx;
        info.ext1_edx = extended[1].edx;
    }
    if (highest_extended >= first_extended_leaf + 4) {
        const CpuidResult& a = extended[2];
        const CpuidResult& b = extended[3];
        const CpuidResult& c = extended[4];
        info.brand = text_of_registers(
            {a.eax, a.ebx, a.ecx, a.edx, b.eax, b.ebx, b.ecx, b.edx, c.eax, c.ebx, c.ecx, c.edx});
    }
    return info;
}

CpuInfo read_cpu_info() {
    CpuInfo info = cpu_info_from(processor_cpuid);
    if (info.leaf1_ecx & leaf1_ecx_osxsave) info.xcr0 = read_xcr0();
    return info;
}

const CpuInfo cpu_info = read_cpu_info();

bool cpu_has_avx(const CpuInfo& info) { return (info.leaf1_ecx & leaf1_ecx_avx) != 0; }

bool cpu_has_avx2(const CpuInfo& info) { return (info.leaf7_ebx & leaf7_ebx_avx2) != 0; }

bool can_run_avx2_kernels(const CpuInfo& info) {
    return cpu_has_avx(info) && cpu_has_avx2(info) && (info.leaf1_ecx & leaf1_ecx_fma) &&
           (info.xcr0 & xcr0_ymm_state) == xcr0_ymm_state;
}

bool can_run_avx512_kernels(const CpuInfo& info) {
    constexpr uint32_t needed = leaf7_ebx_avx512f | leaf7_ebx_avx512dq | leaf7_ebx_avx512bw | leaf7_ebx_avx512vl;
    return can_run_avx2_kernels(info) && (info.leaf7_ebx & needed) == needed &&
           (info.xcr0 & xcr0_zmm_state) == xcr0_zmm_state;
}

const char* best_instruction_set(const CpuInfo& info) {
    if (cpu_has_avx2(info)) return "AVX2";
    if (cpu_has_avx(info)) return "AVX";
    return "SSE3";
}

std::string cpu_info_report(const CpuInfo& info) {
    std::string text;
    text.append(trim_blanks(info.vendor)).append("\n");
    text.append(trim_blanks(info.brand)).append("\n");
    size_t next_line_end = 0;
    for (size_t entry = 0; entry < feature_table.size(); ++entry) {
        const Feature& feature = feature_table[entry];
        char cell[32];
        std::snprintf(cell, sizeof cell, "%s%-13s", has_feature(info, feature) ? "[x] " : "[ ] ", feature.name);
        text += cell;
        if (entry + 1 == feature_line_ends[next_line_end]) {
            text += '\n';
            ++next_line_end;
        }
    }
    return text;
}
