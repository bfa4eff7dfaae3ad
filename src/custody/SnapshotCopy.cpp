#include "custody/SnapshotCopy.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "support/CancelFlag.h"
#include "support/Errors.h"
#include "support/Sha256.h"

namespace bc {

namespace {

class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : fd_(fd) {}
    ~FileDescriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int get() const { return fd_; }
    // Reports the close error a buffered write may only surface here.
    int release() {
        const int result = ::close(fd_);
        fd_ = -1;
        return result;
    }

private:
    int fd_;
};

[[noreturn]] void fail(const std::string& what, const std::filesystem::path& file) {
    throw Error("Couldn't " + what + " " + file.filename().string() + ": " + std::strerror(errno));
}

void writeAll(int fd, const char* data, size_t size, const std::filesystem::path& file) {
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) fail("write", file);
        data += written;
        size -= static_cast<size_t>(written);
    }
}

}  // namespace

VerifiedCopy copyVerified(const std::filesystem::path& source,
                          const std::filesystem::path& destination, const CancelFlag* cancel) {
    FileDescriptor in(::open(source.c_str(), O_RDONLY | O_CLOEXEC));
    if (in.get() < 0) fail("read", source);
    FileDescriptor out(::open(destination.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (out.get() < 0) fail("create", destination);

    VerifiedCopy result;
    Sha256 hasher;
    std::vector<char> buffer(Sha256::chunkSize);
    for (;;) {
        if (cancel) cancel->check();
        const ssize_t count = ::read(in.get(), buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) fail("read", source);
        if (count == 0) break;
        hasher.update(buffer.data(), static_cast<size_t>(count));
        writeAll(out.get(), buffer.data(), static_cast<size_t>(count), destination);
        result.bytes += count;
    }
    if (out.release() != 0) fail("write", destination);
    result.sourceSHA256 = hasher.finishHex();
    result.copySHA256 = Sha256::hexOfFile(destination, cancel);
    return result;
}

}  // namespace bc
