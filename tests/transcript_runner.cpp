// Runs every *.transcript file under tests/ against the real program, or
// under the folder named by TAVREK_TRANSCRIPT_ROOT when that is set (the
// examples of the commands reference are run so).
//
// In a transcript, lines that begin with "> " are sent to the program's
// standard input and every other line is the exact output expected after the
// banner. "@args <text>" lines give command-line arguments, "@DIR@" in a
// command or argument stands for the transcript's folder, and the program
// runs in a fresh folder of its own holding a copy of the transcript folder's
// fixtures/, so scripts can name each other by relative paths.
//
// "@tolerance <relative>" lets the numbers of the output differ from the
// expected ones by that share of their size; all other text must still match
// to the byte. Values that come out of a solve go through reciprocal
// estimates, which round differently on processors of different makers, so
// their last digits are not the same everywhere.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace {

struct Transcript {
    std::string args;
    std::string input;
    std::string expected;
    double tolerance = 0;
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
            transcript.input += replace_all(line.substr(2), "@DIR@", dir);
            transcript.input += '\n';
        } else if (line == ">") {
            transcript.input += "\n";
        } else if (line.rfind("@args ", 0) == 0) {
            transcript.args += ' ';
            transcript.args += replace_all(line.substr(6), "@DIR@", dir);
        } else if (line.rfind("@tolerance ", 0) == 0) {
            transcript.tolerance = std::stod(line.substr(11));
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

// Length of the decimal number starting at `at`, or 0 when none starts there.
size_t number_length(const std::string& text, size_t at) {
    const char* start = text.c_str() + at;
    if (!(std::isdigit(static_cast<unsigned char>(*start)) || *start == '-' || *start == '.')) return 0;
    char* end = nullptr;
    std::strtod(start, &end);
    // strtod also reads "nan", "inf" and hexadecimal: those must match as text.
    const std::string read(start, static_cast<size_t>(end - start));
    if (read.find_first_of("nNiIxX") != std::string::npos) return 0;
    return static_cast<size_t>(end - start);
}

// Byte for byte, except that numbers standing at the same place may differ by
// `tolerance` of their size.
bool matches(const std::string& expected, const std::string& actual, double tolerance) {
    if (tolerance == 0) return expected == actual;
    size_t e = 0, a = 0;
    while (e < expected.size() && a < actual.size()) {
        const size_t e_length = number_length(expected, e);
        const size_t a_length = number_length(actual, a);
        if (e_length > 0 && a_length > 0) {
            const double x = std::strtod(expected.c_str() + e, nullptr);
            const double y = std::strtod(actual.c_str() + a, nullptr);
            if (std::fabs(x - y) > tolerance * std::max({1.0, std::fabs(x), std::fabs(y)})) return false;
            e += e_length;
            a += a_length;
        } else if (expected[e++] != actual[a++]) {
            return false;
        }
    }
    return e == expected.size() && a == actual.size();
}

fs::path transcript_root() {
    const char* root = std::getenv("TAVREK_TRANSCRIPT_ROOT");
    return root && *root ? fs::path(root) : fs::path(TRANSCRIPT_ROOT);
}

std::vector<fs::path> all_transcripts() {
    std::vector<fs::path> paths;
    for (const auto& entry : fs::recursive_directory_iterator(transcript_root()))
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
    if (!matches(transcript.expected, output, transcript.tolerance)) {
        EXPECT_EQ(transcript.expected, output) << "transcript " << path << "\nstderr: " << read_file(work / "errors.txt");
    }
    fs::remove_all(work);
}

std::string test_name(const testing::TestParamInfo<fs::path>& info) {
    std::string name = fs::relative(info.param, transcript_root()).replace_extension().string();
    for (char& c : name)
        if (!isalnum(static_cast<unsigned char>(c))) c = '_';
    return name;
}

INSTANTIATE_TEST_SUITE_P(Protocol, TranscriptTest, testing::ValuesIn(all_transcripts()), test_name);

}  // namespace
