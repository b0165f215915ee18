#include "MarluneCore/AtomicFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace marlune {

namespace {

[[noreturn]] void fail(const std::string& what, const std::filesystem::path& path, int error) {
    throw std::system_error(error, std::generic_category(), what + " " + path.string());
}

class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : fd_(fd) {}
    ~FileDescriptor() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }

private:
    int fd_;
};

void writeAll(int fd, std::string_view contents, const std::filesystem::path& path) {
    while (!contents.empty()) {
        const ssize_t n = ::write(fd, contents.data(), contents.size());
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            fail("Could not write", path, errno);
        }
        contents.remove_prefix(static_cast<std::size_t>(n));
    }
}

} // namespace

void writeFileAtomically(const std::filesystem::path& path, std::string_view contents,
                         mode_t mode) {
    const std::filesystem::path directory =
        path.has_parent_path() ? path.parent_path() : std::filesystem::path(".");
    std::string temporary = (directory / ("." + path.filename().string() + ".tmp-XXXXXX")).string();
    // mkstemp creates the file 0600, so it is never readable by others before fchmod.
    FileDescriptor fd(::mkstemp(temporary.data()));
    if (fd.get() < 0) {
        fail("Could not create a temporary file for", path, errno);
    }
    try {
        if (::fchmod(fd.get(), mode) != 0) {
            fail("Could not set the mode of", temporary, errno);
        }
        writeAll(fd.get(), contents, temporary);
        if (::fsync(fd.get()) != 0) {
            fail("Could not flush", temporary, errno);
        }
        if (::close(fd.release()) != 0) {
            fail("Could not close", temporary, errno);
        }
        if (::rename(temporary.c_str(), path.c_str()) != 0) {
            fail("Could not replace", path, errno);
        }
    } catch (...) {
        ::unlink(temporary.c_str());
        throw;
    }
    FileDescriptor dir(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir.get() < 0 || ::fsync(dir.get()) != 0) {
        fail("Could not flush the directory of", path, errno);
    }
}

std::optional<std::string> readFileIfExists(const std::filesystem::path& path) {
    FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0) {
        if (errno == ENOENT) {
            return std::nullopt;
        }
        fail("Could not open", path, errno);
    }
    std::string contents;
    char buffer[8192];
    for (;;) {
        const ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            fail("Could not read", path, errno);
        }
        if (n == 0) {
            break;
        }
        contents.append(buffer, static_cast<std::size_t>(n));
    }
    // Callers read key files through here.
    ::explicit_bzero(buffer, sizeof buffer);
    return contents;
}

} // namespace marlune
