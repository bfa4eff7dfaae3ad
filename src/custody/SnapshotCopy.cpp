#include "custody/SnapshotCopy.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

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

// Reads the file to its end in chunks of the buffer, handing each chunk's size to `use`.
template <typename Use>
int64_t readChunks(int fd, char* buffer, const std::filesystem::path& file,
                   const CancelFlag* cancel, Use&& use) {
    int64_t total = 0;
    for (;;) {
        if (cancel) cancel->check();
        const ssize_t count = ::read(fd, buffer, Sha256::chunkSize);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) fail("read", file);
        if (count == 0) return total;
        use(static_cast<size_t>(count));
        total += count;
    }
}

}  // namespace

VerifiedCopy copyVerified(const std::filesystem::path& source,
                          const std::filesystem::path& destination, const CancelFlag* cancel) {
    FileDescriptor in(::open(source.c_str(), O_RDONLY | O_CLOEXEC));
    if (in.get() < 0) fail("read", source);
    FileDescriptor out(::open(destination.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (out.get() < 0) fail("create", destination);

    // One buffer for both passes, left uninitialised: zeroing a chunk per file costs as much as
    // copying a small file.
    const auto buffer = std::make_unique_for_overwrite<char[]>(Sha256::chunkSize);
    VerifiedCopy result;
    Sha256 sourceHash;
    result.bytes = readChunks(in.get(), buffer.get(), source, cancel, [&](size_t count) {
        sourceHash.update(buffer.get(), count);
        writeAll(out.get(), buffer.get(), count, destination);
    });
    if (out.release() != 0) fail("write", destination);
    result.sourceSHA256 = sourceHash.finishHex();

    FileDescriptor written(::open(destination.c_str(), O_RDONLY | O_CLOEXEC));
    if (written.get() < 0) fail("read", destination);
    Sha256 copyHash;
    readChunks(written.get(), buffer.get(), destination, cancel,
               [&](size_t count) { copyHash.update(buffer.get(), count); });
    result.copySHA256 = copyHash.finishHex();
    return result;
}

}  // namespace bc
