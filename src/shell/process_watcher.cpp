#include "shell/process_watcher.h"

#include <dirent.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <mutex>
#include <thread>

std::atomic<bool> banned_process_found{false};
const std::vector<std::string> banned_process_list = {"PokerStars", "FullTiltPoker"};

namespace {

std::atomic<bool> watcher_running{false};
// The watcher writes the name and the main thread reads it.
std::mutex name_mutex;
std::string found_name;

void set_found_name(const std::string& name) {
    std::lock_guard lock(name_mutex);
    found_name = name;
}

bool is_pid(const char* name) {
    if (!*name) return false;
    for (; *name; ++name)
        if (*name < '0' || *name > '9') return false;
    return true;
}

// The names a process is known by: the file name of its executable when
// readable, which is whole, then its command name, which is cut at 15 bytes.
std::vector<std::string> process_names(const std::string& dir) {
    std::vector<std::string> names;
    char target[4096];
    const ssize_t length = readlink((dir + "/exe").c_str(), target, sizeof target - 1);
    if (length > 0) {
        std::string path(target, static_cast<size_t>(length));
        names.push_back(path.substr(path.find_last_of('/') + 1));
    }
    std::ifstream comm(dir + "/comm");
    std::string name;
    if (std::getline(comm, name) && !name.empty()) names.push_back(name);
    return names;
}

bool matches_banned(const std::string& name) {
    for (const auto& entry : banned_process_list)
        if (name.compare(0, entry.size(), entry) == 0) return true;
    return false;
}

}  // namespace

bool scan_for_banned_process(const std::string& proc_root) {
    DIR* dir = opendir(proc_root.c_str());
    if (!dir) {
        set_found_name({});
        return false;
    }
    bool found = false;
    while (const dirent* entry = readdir(dir)) {
        if (!is_pid(entry->d_name)) continue;
        for (const auto& name : process_names(proc_root + "/" + entry->d_name)) {
            if (matches_banned(name)) {
                set_found_name(name);
                found = true;
                break;
            }
        }
        if (found) break;
    }
    closedir(dir);
    if (!found) set_found_name({});
    return found;
}

std::string banned_process_name() {
    std::lock_guard lock(name_mutex);
    return found_name;
}

void start_process_watcher() {
    if (watcher_running.exchange(true)) return;
    std::thread([] {
        // Lowest priority: the scan must never compete with the solver.
        setpriority(PRIO_PROCESS, 0, 19);
        while (watcher_running.load()) {
            banned_process_found = scan_for_banned_process();
            for (int waited = 0; waited < 50 && watcher_running.load(); ++waited)
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    }).detach();
}

void stop_process_watcher() { watcher_running = false; }
