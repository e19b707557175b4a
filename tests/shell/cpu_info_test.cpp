#include "shell/protocol/cpu_info.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>

#include "shell/avx_gate.h"
#include "shell/protocol/processor.h"

namespace {

constexpr uint32_t bit(int number) { return 1u << number; }

// A processor made of a table of CPUID answers; leaves not in it read as zeros.
struct FakeProcessor {
    std::map<uint32_t, CpuidResult> leaves;

    FakeProcessor(const char* vendor, uint32_t highest_leaf, uint32_t highest_extended_leaf) {
        CpuidResult leaf0{highest_leaf, 0, 0, 0};
        std::memcpy(&leaf0.ebx, vendor, 4);
        std::memcpy(&leaf0.edx, vendor + 4, 4);
        std::memcpy(&leaf0.ecx, vendor + 8, 4);
        leaves[0] = leaf0;
        leaves[0x80000000u] = {highest_extended_leaf, 0, 0, 0};
    }

    CpuInfo info() const {
        return cpu_info_from([this](uint32_t leaf, uint32_t) {
            const auto found = leaves.find(leaf);
            return found == leaves.end() ? CpuidResult{} : found->second;
        });
    }
};

// The mark of one feature's cell in the report's table: "[x] " or "[ ] ".
std::string mark_of(const std::string& report, std::string name) {
    name.resize(13, ' ');
    const size_t at = report.find("] " + name);
    return at == std::string::npos ? "missing" : report.substr(at - 2, 4);
}

// Words past the highest leaf read as zeros, whatever the table holds there.
TEST(CpuInfoReading, FeatureWordsAndBrandComeFromTheirLeavesUpToTheHighest) {
    for (const bool all_leaves : {true, false}) {
        FakeProcessor processor(all_leaves ? "GenuineIntel" : "AuthenticAMD", all_leaves ? 7 : 6,
                                all_leaves ? 0x80000004u : 0x80000000u);
        processor.leaves[1] = {0, 0, 0x11111111u, 0x22222222u};
        processor.leaves[7] = {0, 0x33333333u, 0x44444444u, 0};
        processor.leaves[0x80000001u] = {0, 0, 0x55555555u, 0x66666666u};
        processor.leaves[0x80000002u] = {0x6e617242u, 0x616e2064u, 0x0020656du, 0};  // "Brand name "
        const CpuInfo info = processor.info();
        const uint32_t all = all_leaves ? 0xFFFFFFFFu : 0;
        EXPECT_EQ(info.is_intel, all_leaves);
        EXPECT_EQ(info.is_amd, !all_leaves);
        EXPECT_EQ(info.leaf1_ecx, 0x11111111u);
        EXPECT_EQ(info.leaf1_edx, 0x22222222u);
        EXPECT_EQ(info.leaf7_ebx, 0x33333333u & all);
        EXPECT_EQ(info.leaf7_ecx, 0x44444444u & all);
        EXPECT_EQ(info.ext1_ecx, 0x55555555u & all);
        EXPECT_EQ(info.ext1_edx, 0x66666666u & all);
        EXPECT_EQ(info.brand, all_leaves ? "Brand name " : "");
    }
    // A hypervisor may answer anything; start-up must neither loop for ever
    // nor take a vendor with a zero byte for a known one.
    const CpuInfo odd = FakeProcessor("Genuine\0ntel", 0x7FFFFFFFu, 0xFFFFFFFFu).info();
    EXPECT_EQ(odd.vendor, "Genuine");
    EXPECT_FALSE(odd.is_intel);
    EXPECT_LE(odd.leaves.size(), 256u);
    EXPECT_LE(odd.extended_leaves.size(), 256u);
}

// Bit 5 of ext1_ecx is LZCNT to one vendor and ABM to the other.
TEST(CpuInfoReport, EachNameShowsItsOwnBitAndTheVendorDecidesVendorOnlyBits) {
    const struct {
        const char* vendor;
        bool amd, intel;
    } vendors[] = {{"AuthenticAMD", true, false}, {"GenuineIntel", false, true}, {" Hygon Cpu  ", false, false}};
    for (const auto& v : vendors) {
        FakeProcessor processor(v.vendor, 7, 0x80000001u);
        processor.leaves[1] = {0, 0, bit(28) | bit(20) | bit(0), bit(26)};
        processor.leaves[7] = {0, bit(5) | bit(19) | bit(4) | bit(11), bit(0), 0};
        processor.leaves[0x80000001u] = {0, 0, bit(0) | bit(5) | bit(6) | bit(11) | bit(21),
                                         bit(31) | bit(30) | bit(27) | bit(22) | bit(11)};
        const std::string report = cpu_info_report(processor.info());
        EXPECT_EQ(std::count(report.begin(), report.end(), '\n'), 9) << report;
        EXPECT_EQ(report.substr(0, report.find('\n')), v.amd ? "AuthenticAMD" : v.intel ? "GenuineIntel" : "Hygon Cpu");
        for (const char* name : {"AVX", "SSE4.2", "SSE3", "SSE2", "AVX2", "ADX", "PREFETCHWT1", "LAHF"})
            EXPECT_EQ(mark_of(report, name), "[x] ") << v.vendor << " " << name;
        for (const char* name : {"AVX512F", "SSE4.1", "SSE", "FMA", "BMI1", "RDSEED", "SSSE3", "XSAVE"})
            EXPECT_EQ(mark_of(report, name), "[ ] ") << v.vendor << " " << name;
        for (const char* name : {"3DNOW", "3DNOWEXT", "ABM", "MMXEXT", "SSE4a", "TBM", "XOP"})
            EXPECT_EQ(mark_of(report, name), v.amd ? "[x] " : "[ ] ") << v.vendor << " " << name;
        for (const char* name : {"HLE", "LZCNT", "RDTSCP", "RTM", "SYSCALL"})
            EXPECT_EQ(mark_of(report, name), v.intel ? "[x] " : "[ ] ") << v.vendor << " " << name;
    }
}

TEST(InstructionSetChoice, KernelVariantsNeedTheExtensionsAndTheSystemState) {
    const uint32_t avx = bit(28), osxsave = bit(27), fma = bit(12), avx2 = bit(5);
    const uint32_t avx512 = bit(16) | bit(17) | bit(30) | bit(31);  // F, DQ, BW, VL
    const struct {
        uint32_t leaf1_ecx, leaf7_ebx;
        uint64_t xcr0;
        const char* best;  // what the processor has, even where the system can't run it
        bool avx2_runs, avx512_runs;
    } cases[] = {
        {0, 0, 0, "SSE3", false, false},
        {avx | osxsave | fma, 0, 0xE7, "AVX", false, false},
        {avx | osxsave | fma, avx2 | avx512, 0, "AVX2", false, false},
        {avx | osxsave | fma, avx2 | avx512, 0xE7, "AVX2", true, true},
        {avx | osxsave | fma, avx2 | avx512, 0x7, "AVX2", true, false},           // no ZMM state
        {avx | osxsave | fma, avx2 | bit(16), 0xE7, "AVX2", true, false},        // F alone, as the first parts had
        {avx | osxsave, avx2 | avx512, 0xE7, "AVX2", false, false},              // no FMA
    };
    for (const auto& c : cases) {
        CpuInfo info;
        info.leaf1_ecx = c.leaf1_ecx;
        info.leaf7_ebx = c.leaf7_ebx;
        info.xcr0 = c.xcr0;
        EXPECT_STREQ(best_instruction_set(info), c.best);
        EXPECT_EQ(can_run_avx2_kernels(info), c.avx2_runs) << c.leaf1_ecx << " " << c.leaf7_ebx << " " << c.xcr0;
        EXPECT_EQ(can_run_avx512_kernels(info), c.avx512_runs) << c.leaf1_ecx << " " << c.leaf7_ebx << " " << c.xcr0;
    }
    EXPECT_EQ(choose_kernel_isa(false, true, true), VectorIsa::avx2);
    EXPECT_EQ(choose_kernel_isa(true, true, true), VectorIsa::avx512);
    EXPECT_EQ(choose_kernel_isa(true, true, false), VectorIsa::avx2);
    EXPECT_EQ(choose_kernel_isa(true, false, false), VectorIsa::avx);
    EXPECT_TRUE(avx_requirement_met(avx | osxsave, 0x7));
    EXPECT_FALSE(avx_requirement_met(osxsave, 0x7));
    EXPECT_FALSE(avx_requirement_met(avx, 0x7));  // no OSXSAVE: the XCR0 value means nothing
    EXPECT_FALSE(avx_requirement_met(avx | osxsave, 0x3));
}

// Leaves go in the widest blocks the level allows; folds stop at four.
TEST(KernelBlocks, LeavesGoInTheWidestBlocksTheLevelAllows) {
    const struct {
        int (*width)(int, int);
        int leaves, level;
        std::vector<int> blocks;
    } cases[] = {{showdown_block_width, 23, 8, {8, 8, 7}}, {showdown_block_width, 13, 6, {6, 6, 1}},
                 {showdown_block_width, 3, 1, {1, 1, 1}},  {fold_block_width, 11, 8, {4, 4, 3}},
                 {fold_block_width, 7, 3, {3, 3, 1}}};
    for (const auto& c : cases) {
        std::vector<int> taken;
        for (int leaves = c.leaves; leaves > 0; leaves -= taken.back()) taken.push_back(c.width(leaves, c.level));
        EXPECT_EQ(taken, c.blocks) << c.leaves << " leaves at level " << c.level;
    }
}

}  // namespace
