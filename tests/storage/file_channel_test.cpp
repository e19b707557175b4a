// Tree files on disk: reads in blocks and straight into place, the early end,
// and a write that replaces the file of its name whole or not at all, even when
// the process dies in the middle of it.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "storage/file_channel.h"

namespace fs = std::filesystem;

namespace {

class FileChannelTest : public testing::Test {
protected:
    void SetUp() override {
        folder = fs::temp_directory_path() /
                 ("tavrek_file_channel_" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name()) +
                  "_" + std::to_string(getpid()));
        fs::remove_all(folder);
        fs::create_directories(folder);
    }
    void TearDown() override { fs::remove_all(folder); }

    std::string path(const char* name) const { return (folder / name).string(); }
    static std::string content(const std::string& file) {
        std::ifstream in(file, std::ios::binary);
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }
    std::vector<std::string> names() const {
        std::vector<std::string> found;
        for (const auto& entry : fs::directory_iterator(folder)) found.push_back(entry.path().filename().string());
        return found;
    }

    fs::path folder;
};

// Bytes whose every position tells where it came from.
std::vector<uint8_t> pattern(size_t size) {
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i * 7 + (i >> 16));
    return bytes;
}

// Sections on either side of the size that is read past the buffer, each
// between runs of small fields, as stream sections lie in a tree file.
TEST_F(FileChannelTest, WritesAndReadsBackSmallFieldsAndLargeSections) {
    const int64_t sizes[] = {file_channel_direct_bytes - 1, file_channel_direct_bytes, 3 * file_channel_direct_bytes + 5,
                             file_channel_first_refill_bytes, 3 * file_channel_buffer_bytes + 123};
    int64_t total = 0;
    {
        FileWriteChannel out(path("tree"));
        for (const int64_t size : sizes) {
            for (uint32_t i = 0; i < 1000; ++i) write_field<uint32_t>(out, i);
            std::vector<uint8_t> section = pattern(static_cast<size_t>(size));
            out.transfer(section.data(), size);
            total += 4000 + size;
        }
        write_field<uint8_t>(out, 9);
        out.commit();
    }
    EXPECT_EQ(names(), std::vector<std::string>{"tree"});

    FileReadChannel in(path("tree"));
    EXPECT_EQ(in.remaining(), total + 1);
    for (const int64_t size : sizes) {
        for (uint32_t i = 0; i < 1000; ++i) ASSERT_EQ(read_field<uint32_t>(in), i);
        std::vector<uint8_t> back(static_cast<size_t>(size));
        in.transfer(back.data(), size);
        ASSERT_EQ(back, pattern(static_cast<size_t>(size))) << size;
    }
    EXPECT_EQ(read_field<uint8_t>(in), 9);
    EXPECT_EQ(in.remaining(), 0);
    auto expect_early_end = [](auto read) {
        try {
            read();
            FAIL() << "read past the end";
        } catch (const std::runtime_error& error) {
            EXPECT_NE(std::string(error.what()).find("can't read from file (unexpected end of file)"),
                      std::string::npos);
        }
    };
    expect_early_end([&] { read_field<uint8_t>(in); });
    // A large section that the file cuts short, read straight into place.
    fs::resize_file(path("tree"), 4000 + sizes[0] + 2000);
    FileReadChannel cut(path("tree"));
    std::vector<uint8_t> back(static_cast<size_t>(sizes[0]));
    cut.transfer(back.data(), 4000);
    cut.transfer(back.data(), sizes[0]);
    expect_early_end([&] { cut.transfer(back.data(), sizes[1]); });
}

TEST_F(FileChannelTest, AnUncommittedWriteLeavesTheOldFile) {
    std::ofstream(path("tree"), std::ios::binary) << "old";
    {
        FileWriteChannel out(path("tree"));
        write_field<uint64_t>(out, 1);
        const std::vector<uint8_t> large = pattern(2 * file_channel_buffer_bytes);
        out.transfer(const_cast<uint8_t*>(large.data()), static_cast<int64_t>(large.size()));
        // A refusal in the middle of a dump ends here, without a commit.
    }
    EXPECT_EQ(content(path("tree")), "old");
    EXPECT_EQ(names(), std::vector<std::string>{"tree"});
}

// The process ends in the middle of the write, at each block the channel hands
// to the system: the name holds the old file, never a part of the new one.
TEST_F(FileChannelTest, AKillInTheMiddleLeavesTheOldFileOrTheNew) {
    const std::vector<uint8_t> large = pattern(4 * file_channel_buffer_bytes + 5);
    for (int64_t kill_at : {int64_t{0}, file_channel_buffer_bytes, 3 * file_channel_buffer_bytes, int64_t{-1}}) {
        std::ofstream(path("tree"), std::ios::binary) << "old";
        static int64_t end_after;
        end_after = kill_at;
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            file_write_hook = [](int64_t written) {
                if (end_after >= 0 && written > end_after) _exit(3);
            };
            FileWriteChannel out(path("tree"));
            write_field<uint32_t>(out, 77);
            out.transfer(const_cast<uint8_t*>(large.data()), static_cast<int64_t>(large.size()));
            out.commit();
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        ASSERT_TRUE(WIFEXITED(status));
        if (kill_at < 0) {
            EXPECT_EQ(WEXITSTATUS(status), 0);
            EXPECT_EQ(fs::file_size(path("tree")), 4 + large.size());
        } else {
            EXPECT_EQ(WEXITSTATUS(status), 3) << kill_at;
            EXPECT_EQ(content(path("tree")), "old") << kill_at;
        }
        // What a killed write leaves is a hidden temporary file beside it,
        // never the name asked for.
        for (const std::string& name : names()) {
            if (name == "tree") continue;
            EXPECT_EQ(name.rfind(".tree.partial-", 0), 0u) << name;
            fs::remove(folder / name);
        }
    }
}

}  // namespace
