#include "cli/output_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <streambuf>
#include <vector>

#include "frontend/errors.hpp"

namespace arbolin::cli {

using frontend::UserError;

// A stream buffer on a file descriptor that keeps the errno of its first
// failed write; after it, nothing more is written.
class OutputFile::Buffer : public std::streambuf {
public:
    explicit Buffer(int fd) : fd_(fd), space_(1 << 16) {
        setp(space_.data(), space_.data() + space_.size());
    }

    int error() const noexcept { return error_; }
    bool drain() { return sync() == 0; }

protected:
    int_type overflow(int_type c) override {
        if (!drain()) return traits_type::eof();
        if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
        *pptr() = traits_type::to_char_type(c);
        pbump(1);
        return c;
    }
    int sync() override {
        if (error_ != 0) return -1;
        const char* p = pbase();
        while (p < pptr()) {
            const ssize_t n = ::write(fd_, p, static_cast<std::size_t>(pptr() - p));
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) {
                error_ = n < 0 ? errno : EIO;
                return -1;
            }
            p += n;
        }
        setp(space_.data(), space_.data() + space_.size());
        return 0;
    }

private:
    int fd_;
    std::vector<char> space_;
    int error_ = 0;
};

namespace {

mode_t newFileMode() {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}

// The file a symbolic link leads to, when it leads to one.
std::string resolved(const std::string& path) {
    char buffer[PATH_MAX];
    return ::realpath(path.c_str(), buffer) != nullptr ? std::string(buffer) : path;
}

}  // namespace

OutputFile::OutputFile(const std::string& path) : path_(path) {
    if (path.empty()) {
        // What went through std::cout goes first.
        std::cout.flush();
        std::fflush(stdout);
        standard_ = true;
        fd_ = STDOUT_FILENO;
    } else {
        struct stat info {};
        const bool exists = ::stat(path.c_str(), &info) == 0;
        if (exists && S_ISDIR(info.st_mode)) {
            throw UserError("cannot write " + path + ": it is a folder");
        }
        struct stat link {};
        const bool dangling = !exists && ::lstat(path.c_str(), &link) == 0;
        // A file we may not write is not replaced behind its back.
        if (exists && ::access(path.c_str(), W_OK) != 0) fail(errno);
        if (exists && !S_ISREG(info.st_mode)) {
            target_ = path;
        } else if (!dangling) {
            target_ = exists ? resolved(path) : path;
            std::string name = target_ + ".XXXXXX";
            fd_ = ::mkostemp(name.data(), O_CLOEXEC);
            if (fd_ >= 0) {
                temporary_ = name;
                // The new file keeps the mode and owner of the one it replaces.
                const mode_t mode = exists ? (info.st_mode & 07777) : newFileMode();
                if (::fchmod(fd_, mode) != 0) fail(errno);
                if (exists && (info.st_uid != ::geteuid() || info.st_gid != ::getegid())) {
                    [[maybe_unused]] const int ignored = ::fchown(fd_, info.st_uid, info.st_gid);
                }
            } else if (!exists || (errno != EACCES && errno != EPERM)) {
                fail(errno);
            }
            // A file we may write in a folder we may not: write it in place.
        }
        if (fd_ < 0) {
            target_ = path;
            fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
            if (fd_ < 0) fail(errno);
        }
    }
    buffer_ = std::make_unique<Buffer>(fd_);
    stream_ = std::make_unique<std::ostream>(buffer_.get());
}

OutputFile::~OutputFile() { closeAndRemove(); }

std::ostream& OutputFile::stream() noexcept { return *stream_; }

void OutputFile::commit() {
    if (!buffer_->drain()) fail(buffer_->error());
    if (!*stream_) fail(EIO);
    if (standard_) return;
    if (!temporary_.empty() && ::fsync(fd_) != 0) fail(errno);
    const int fd = fd_;
    fd_ = -1;
    if (::close(fd) != 0) fail(errno);
    if (!temporary_.empty()) {
        if (std::rename(temporary_.c_str(), target_.c_str()) != 0) fail(errno);
        temporary_.clear();
    }
}

void OutputFile::fail(int error) {
    closeAndRemove();
    const std::string what = path_.empty() ? "to standard output" : path_;
    throw UserError("cannot write " + what + ": " + std::strerror(error));
}

void OutputFile::closeAndRemove() noexcept {
    if (fd_ >= 0 && !standard_) ::close(fd_);
    fd_ = -1;
    if (!temporary_.empty()) ::unlink(temporary_.c_str());
    temporary_.clear();
}

}  // namespace arbolin::cli
