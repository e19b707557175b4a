#include "storage/file_channel.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "shell/protocol/reply.h"

FileWriteHook file_write_hook = nullptr;

namespace {

[[noreturn]] void refuse(const char* what, const std::string& reason) {
    throw_command_error(std::string(what) + " (" + reason + ")");
}

[[noreturn]] void refuse_errno(const char* what, int error) { refuse(what, std::strerror(error)); }

std::string folder_of(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

std::string name_of(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

// ---------------------------------------------------------------------------

FileReadChannel::FileReadChannel(const std::string& path) {
    // Not blocking: a FIFO under the name must not hang the open. Only
    // regular files are read, and for them the flag changes nothing.
    fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd_ < 0) refuse_errno("can't open file", errno);
    struct stat status {};
    if (::fstat(fd_, &status) != 0) {
        const int error = errno;
        ::close(fd_);
        fd_ = -1;
        refuse_errno("can't open file", error);
    }
    if (!S_ISREG(status.st_mode)) {
        ::close(fd_);
        fd_ = -1;
        refuse_errno("can't open file", S_ISDIR(status.st_mode) ? EISDIR : EINVAL);
    }
    file_size_ = static_cast<int64_t>(status.st_size);
    ::posix_fadvise(fd_, 0, 0, POSIX_FADV_SEQUENTIAL);
    buffer_.resize(static_cast<size_t>(file_channel_buffer_bytes));
}

FileReadChannel::~FileReadChannel() {
    if (fd_ >= 0) ::close(fd_);
}

int64_t FileReadChannel::read_some(uint8_t* target, int64_t bytes) {
    ssize_t got;
    do {
        got = ::read(fd_, target, static_cast<size_t>(bytes));
    } while (got < 0 && errno == EINTR);
    if (got < 0) refuse_errno("can't read from file", errno);
    if (got == 0) refuse("can't read from file", "unexpected end of file");
    return got;
}

void FileReadChannel::read_exactly(uint8_t* target, int64_t bytes) {
    while (bytes > 0) {
        const int64_t got = read_some(target, bytes);
        target += got;
        bytes -= got;
        consumed_ += got;
    }
}

void FileReadChannel::refill() {
    filled_ = read_some(buffer_.data(), refill_bytes_);
    position_ = 0;
    refill_bytes_ = std::min(2 * refill_bytes_, file_channel_buffer_bytes);
}

void FileReadChannel::transfer(void* destination, int64_t bytes) {
    auto* out = static_cast<uint8_t*>(destination);
    while (bytes > 0) {
        if (position_ == filled_) {
            // Large sections go straight to their place, in one copy; small
            // fields come out of the buffer.
            if (bytes >= file_channel_direct_bytes) {
                read_exactly(out, bytes);
                refill_bytes_ = file_channel_first_refill_bytes;
                return;
            }
            refill();
        }
        const int64_t taken = std::min(bytes, filled_ - position_);
        std::memcpy(out, buffer_.data() + position_, static_cast<size_t>(taken));
        position_ += taken;
        out += taken;
        bytes -= taken;
        consumed_ += taken;
    }
}

// ---------------------------------------------------------------------------

FileWriteChannel::FileWriteChannel(const std::string& path) : target_(path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) refuse_errno("can't open file", EISDIR);
    const std::string name = name_of(path);
    if (name.empty()) refuse_errno("can't open file", EISDIR);
    // In the target's folder, so that the rename is one step on one file
    // system; hidden, so that a folder listing in the meantime shows no
    // half-written tree.
    temporary_ = folder_of(path) + "/." + name + ".partial-XXXXXX";
    fd_ = ::mkostemp(temporary_.data(), O_CLOEXEC);
    if (fd_ < 0) {
        const int error = errno;
        temporary_.clear();
        refuse_errno("can't open file", error);
    }
    buffer_.resize(static_cast<size_t>(file_channel_buffer_bytes));
}

FileWriteChannel::~FileWriteChannel() {
    if (committed_) return;
    if (fd_ >= 0) ::close(fd_);
    if (!temporary_.empty()) ::unlink(temporary_.c_str());
}

void FileWriteChannel::write_out(const uint8_t* bytes, int64_t count) {
    while (count > 0) {
        const ssize_t put = ::write(fd_, bytes, static_cast<size_t>(count));
        if (put < 0) {
            if (errno == EINTR) continue;
            refuse_errno("can't write to file", errno);
        }
        bytes += put;
        count -= put;
        written_ += put;
    }
    if (file_write_hook) file_write_hook(written_);
}

void FileWriteChannel::flush_buffer() {
    if (filled_ == 0) return;
    write_out(buffer_.data(), filled_);
    filled_ = 0;
}

void FileWriteChannel::transfer(void* source, int64_t bytes) {
    const auto* in = static_cast<const uint8_t*>(source);
    if (bytes >= file_channel_buffer_bytes) {
        flush_buffer();
        write_out(in, bytes);
        return;
    }
    if (filled_ + bytes > file_channel_buffer_bytes) flush_buffer();
    std::memcpy(buffer_.data() + filled_, in, static_cast<size_t>(bytes));
    filled_ += bytes;
}

void FileWriteChannel::commit() {
    flush_buffer();
    // A new file gets the mode any file the user creates gets; mkstemp
    // made it private.
    const mode_t mask = ::umask(0);
    ::umask(mask);
    ::fchmod(fd_, 0666 & ~mask);
    if (::fsync(fd_) != 0) refuse_errno("can't write to file", errno);
    const int fd = fd_;
    fd_ = -1;
    if (::close(fd) != 0) refuse_errno("can't close file", errno);
    if (::rename(temporary_.c_str(), target_.c_str()) != 0) refuse_errno("can't write to file", errno);
    committed_ = true;
    // The rename itself reaches the disk with the folder's entry.
    const int folder = ::open(folder_of(target_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0) {
        ::fsync(folder);
        ::close(folder);
    }
}
