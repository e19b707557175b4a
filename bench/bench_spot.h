// Loading a spot script and running protocol lines inside a benchmark, with
// their replies kept out of the figures the harness prints.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "shell/commands.h"

// The spot's non-empty lines, the last of which may lack its newline.
inline std::vector<std::string> read_spot_lines(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        std::fprintf(stderr, "can't open %s\n", path.c_str());
        std::exit(1);
    }
    std::vector<std::string> lines;
    std::string line;
    while (std::getline(file, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (!line.empty()) lines.push_back(line);
    }
    return lines;
}

// Runs protocol lines with standard output on the file at `path`.
inline void run_into(const char* path, const std::vector<std::string>& lines) {
    std::fflush(stdout);
    const int saved = dup(STDOUT_FILENO);
    const int target = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(target, STDOUT_FILENO);
    for (const std::string& line : lines) run_line(line);
    std::fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(target);
    close(saved);
}

inline void run_quietly(const std::vector<std::string>& lines) { run_into("/dev/null", lines); }
