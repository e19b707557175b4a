// A background check that bars every command while a named poker client runs.
#pragma once

#include <atomic>
#include <string>
#include <vector>

extern std::atomic<bool> banned_process_found;
// The name of the process found; read it through banned_process_name().
std::string banned_process_name();
extern const std::vector<std::string> banned_process_list;

// One look at the running processes; records the name of the first match.
// `proc_root` is the process file system, a parameter so tests can fake one.
bool scan_for_banned_process(const std::string& proc_root = "/proc");

void start_process_watcher();
void stop_process_watcher();
