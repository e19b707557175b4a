// Runs every *.transcript file under tests/ against the real program.
//
// In a transcript, lines that begin with "> " are sent to the program's
// standard input and every other line is the exact output expected after the
// banner. "@args <text>" lines give command-line arguments, "@DIR@" in a
// command or argument stands for the transcript's folder, and the program
// runs in a fresh folder of its own holding a copy of the transcript folder's
// fixtures/, so scripts can name each other by relative paths.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace {

struct Transcript {
    std::string args;
    std::string input;
    std::string expected;
};

std::string replace_all(std::string text, const std::string& from, const std::string& to) {
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

Transcript read_transcript(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string dir = path.parent_path().string();
    Transcript transcript;
    std::string line;
    while (std::getline(file, line)) {
        if (line.rfind("> ", 0) == 0) {
            transcript.input += replace_all(line.substr(2), "@DIR@", dir) + "\n";
        } else if (line == ">") {
            transcript.input += "\n";
        } else if (line.rfind("@args ", 0) == 0) {
            transcript.args += " " + replace_all(line.substr(6), "@DIR@", dir);
        } else {
            transcript.expected += line + "\n";
        }
    }
    return transcript;
}

std::string read_file(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream content;
    content << file.rdbuf();
    return content.str();
}

// Everything the program printed after its two banner lines.
std::string after_banner(const std::string& output) {
    size_t at = 0;
    for (int line = 0; line < 2 && at != std::string::npos; ++line) {
        at = output.find('\n', at);
        if (at != std::string::npos) ++at;
    }
    return at == std::string::npos ? std::string() : output.substr(at);
}

std::vector<fs::path> all_transcripts() {
    std::vector<fs::path> paths;
    for (const auto& entry : fs::recursive_directory_iterator(TRANSCRIPT_ROOT))
        if (entry.path().extension() == ".transcript") paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end());
    return paths;
}

class TranscriptTest : public testing::TestWithParam<fs::path> {};

TEST_P(TranscriptTest, OutputMatches) {
    const fs::path path = GetParam();
    const Transcript transcript = read_transcript(path);
    const fs::path work = fs::temp_directory_path() / ("tavrek_transcript_" + path.stem().string() + "_" +
                                                       std::to_string(getpid()));
    fs::remove_all(work);
    fs::create_directories(work);
    const fs::path fixtures = path.parent_path() / "fixtures";
    if (fs::exists(fixtures)) fs::copy(fixtures, work / "fixtures", fs::copy_options::recursive);
    std::ofstream(work / "input.txt", std::ios::binary) << transcript.input;
    const std::string command = "cd '" + work.string() + "' && '" + TAVREK_BINARY + "'" + transcript.args +
                                " < input.txt > output.txt 2> errors.txt";
    std::system(command.c_str());
    const std::string output = after_banner(read_file(work / "output.txt"));
    EXPECT_EQ(transcript.expected, output) << "transcript " << path << "\nstderr: " << read_file(work / "errors.txt");
    fs::remove_all(work);
}

std::string test_name(const testing::TestParamInfo<fs::path>& info) {
    std::string name = fs::relative(info.param, TRANSCRIPT_ROOT).replace_extension().string();
    for (char& c : name)
        if (!isalnum(static_cast<unsigned char>(c))) c = '_';
    return name;
}

INSTANTIATE_TEST_SUITE_P(Protocol, TranscriptTest, testing::ValuesIn(all_transcripts()), test_name);

}  // namespace
