#include "shell/protocol/settings.h"

#include <ctime>
#include <fstream>
#include <sstream>

#include "shell/protocol/game_setup.h"
#include "shell/protocol/reply.h"

int verbosity = 0;
bool echo_commands = false;
bool color_text = false;
uint64_t start_time = 0;
uint32_t random_state[4] = {123456789u, 362436u, 521288629u, 7654321u};
bool front_end_mode = false;
bool tagged_replies = false;

bool comment_pass = false;
std::string current_command;
std::string command_word;
std::string skip_label;

int threads = 1;
double accuracy_setting = 0;
bool accuracy_is_fraction = false;
std::atomic<double> accuracy{0};
double recalc_accuracy[3] = {0, 0, 0};
bool isomorphism_by_street[4] = {true, true, false, false};
int compression_set = -1;
int compression_level = 0;
int scheduler = 1;
std::atomic<bool> tree_ready{false};
std::vector<std::string> tree_info_lines;

uint64_t system_time_ticks() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 10000000ull + static_cast<uint64_t>(now.tv_nsec) / 100;
}

void update_accuracy_target() {
    accuracy = accuracy_is_fraction ? accuracy_setting * pot : accuracy_setting;
    if (verbosity > 0) {
        const double share = accuracy_is_fraction ? accuracy_setting : accuracy_setting / pot;
        reply("[accuracy %.6g (%.6g fraction)]\n", accuracy.load(), share);
    }
}

PhysicalMemory read_physical_memory() {
    std::ifstream meminfo("/proc/meminfo");
    std::string line;
    unsigned long long total_kb = 0, available_kb = 0;
    while (std::getline(meminfo, line)) {
        std::istringstream fields(line);
        std::string key;
        unsigned long long value = 0;
        fields >> key >> value;
        if (key == "MemTotal:") total_kb = value;
        if (key == "MemAvailable:") available_kb = value;
    }
    PhysicalMemory memory{total_kb * 1024, 0};
    if (total_kb > 0) {
        // The available figure moves in steps of one per cent of the total.
        const unsigned long long load = 100 - available_kb * 100 / total_kb;
        memory.available_bytes = memory.total_bytes * (100 - load) / 100;
    }
    return memory;
}
