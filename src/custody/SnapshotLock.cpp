// Locking a sealed folder: read-only permissions everywhere, plus the immutable flag on files
// where the system lets us set it.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <vector>

#include "custody/SnapshotLock.h"
#include "support/Errors.h"

#ifndef __APPLE__
#include <linux/fs.h>
#include <sys/ioctl.h>
#endif

namespace bc::snapshotLock {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(const std::string& what, const fs::path& item, int code) {
    throw Error("Couldn't " + what + " " + item.string() + ": " + std::strerror(code));
}

#ifdef __APPLE__

void setImmutable(const fs::path& file, bool immutable) {
    struct stat info {};
    if (::lstat(file.c_str(), &info) != 0) fail("read the flags of", file, errno);
    const auto flags = immutable ? (info.st_flags | UF_IMMUTABLE) : (info.st_flags & ~UF_IMMUTABLE);
    if (flags != info.st_flags && ::chflags(file.c_str(), flags) != 0)
        fail(immutable ? "lock" : "unlock", file, errno);
}

#else

// Only a privileged process may set the flag, and not every file system has it: when refused,
// permissions alone protect the file.
bool refused(int code) {
    return code == EPERM || code == EACCES || code == ENOTTY || code == EOPNOTSUPP ||
           code == EINVAL || code == ENOSYS;
}

void setImmutable(const fs::path& file, bool immutable) {
    const int fd = ::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) fail("open", file, errno);
    int flags = 0;
    int code = 0;
    if (::ioctl(fd, FS_IOC_GETFLAGS, &flags) != 0) {
        code = errno;
    } else {
        const int wanted = immutable ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
        if (wanted != flags && ::ioctl(fd, FS_IOC_SETFLAGS, &wanted) != 0) code = errno;
    }
    ::close(fd);
    if (code != 0 && !refused(code)) fail(immutable ? "lock" : "unlock", file, code);
}

#endif

void setMode(const fs::path& item, mode_t mode) {
    if (::chmod(item.c_str(), mode) != 0) fail("change the permissions of", item, errno);
}

// The folder itself and everything under it, links not followed.
struct Items {
    std::vector<fs::path> files;
    std::vector<fs::path> folders;
};

Items itemsUnder(const fs::path& folder) {
    Items items;
    std::error_code error;
    for (auto it = fs::recursive_directory_iterator(folder, error);
         !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        const auto status = it->symlink_status(error);
        if (error) break;
        if (fs::is_directory(status))
            items.folders.push_back(it->path());
        else if (fs::is_regular_file(status))
            items.files.push_back(it->path());
    }
    if (error) fail("list the files of", folder, error.value());
    items.folders.push_back(folder);
    return items;
}

}  // namespace

void lock(const fs::path& folder) {
    const Items items = itemsUnder(folder);
    for (const auto& file : items.files) {
        setMode(file, 0444);
        setImmutable(file, true);
    }
    for (const auto& item : items.folders) setMode(item, 0555);
}

void unlock(const fs::path& folder) {
    // Folders first: their entries can be listed and changed again.
    setMode(folder, 0755);
    const Items items = itemsUnder(folder);
    for (const auto& item : items.folders) setMode(item, 0755);
    for (const auto& file : items.files) {
        setImmutable(file, false);
        setMode(file, 0644);
    }
}

}  // namespace bc::snapshotLock
