// Runs of the real program on a text of commands, each test in a folder of
// its own under the temporary one.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

inline std::string file_text(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class ProgramFolder : public testing::Test {
protected:
    void SetUp() override {
        work = std::filesystem::temp_directory_path() /
               ("tavrek_" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name()) + "_" +
                std::to_string(getpid()));
        std::filesystem::remove_all(work);
        std::filesystem::create_directories(work);
    }
    void TearDown() override { std::filesystem::remove_all(work); }

    struct Run {
        int exit_code;
        std::string output;  // after the two banner lines
    };
    // The program on `input`, or on what the shell command `feed` writes,
    // with its standard error in errors.txt.
    Run run(const std::string& args, const std::string& input, const std::string& feed = "") {
        std::ofstream(work / "input.txt", std::ios::binary) << input;
        const std::string command = "cd '" + work.string() + "' && " + (feed.empty() ? "" : feed + " | ") +
                                    "timeout 600 '" TAVREK_BINARY "' " + args +
                                    (feed.empty() ? " < input.txt" : "") + " > output.txt 2> errors.txt";
        const int status = std::system(command.c_str());
        const std::string output = file_text(work / "output.txt");
        const size_t banner_end = output.find('\n', output.find('\n') + 1);
        return {WEXITSTATUS(status), banner_end == std::string::npos ? output : output.substr(banner_end + 1)};
    }

    std::filesystem::path work;
};
