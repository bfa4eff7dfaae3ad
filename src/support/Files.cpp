#include "support/Files.h"

#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

#include "support/Errors.h"

namespace bc::files {

namespace {

std::string describe(const std::error_code& error) {
    return error.message();
}

void writeAll(int fd, std::string_view bytes, const fs::path& file) {
    size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0)
            throw Error("Couldn't write " + file.filename().string() + ": " + std::strerror(errno));
        written += static_cast<size_t>(n);
    }
}

}  // namespace

fs::path homeFolder() {
    if (const char* home = std::getenv("HOME"); home && *home) return home;
    if (const passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_dir) return pw->pw_dir;
    return "/";
}

fs::path appDataFolder() {
#ifdef __APPLE__
    return homeFolder() / "Library" / "Application Support" / "Kestrove";
#else
    if (const char* xdg = std::getenv("XDG_DATA_HOME"); xdg && *xdg)
        return fs::path(xdg) / "Kestrove";
    return homeFolder() / ".local" / "share" / "Kestrove";
#endif
}

std::string readFile(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) throw Error("Couldn't read " + file.filename().string() + ": " + std::strerror(errno));
    std::ostringstream buffer;
    buffer << in.rdbuf();
    if (in.bad()) throw Error("Couldn't read " + file.filename().string() + ": read error");
    return std::move(buffer).str();
}

fs::path temporarySibling(const fs::path& target) {
    static std::atomic<unsigned> counter{0};
    const auto name = "." + target.filename().string() + ".tmp-" + std::to_string(::getpid()) +
                      "-" + std::to_string(counter++);
    return target.parent_path() / name;
}

void writeFileAtomically(const fs::path& file, std::string_view bytes) {
    std::error_code error;
    if (file.has_parent_path()) {
        fs::create_directories(file.parent_path(), error);
        if (error)
            throw Error("Couldn't create the folder for " + file.filename().string() + ": " +
                        describe(error));
    }
    const fs::path temporary = temporarySibling(file);
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0)
        throw Error("Couldn't write " + file.filename().string() + ": " + std::strerror(errno));
    try {
        writeAll(fd, bytes, file);
        if (::fsync(fd) != 0)
            throw Error("Couldn't write " + file.filename().string() + ": " + std::strerror(errno));
    } catch (...) {
        ::close(fd);
        ::unlink(temporary.c_str());
        throw;
    }
    ::close(fd);
    if (::rename(temporary.c_str(), file.c_str()) != 0) {
        const int saved = errno;
        ::unlink(temporary.c_str());
        throw Error("Couldn't write " + file.filename().string() + ": " + std::strerror(saved));
    }
    syncFolder(file.has_parent_path() ? file.parent_path() : fs::path("."));
}

namespace {

constexpr std::string_view temporaryMark = ".tmp-";

// The process that made a temporarySibling name, or nothing for any other name.
std::optional<pid_t> temporaryOwner(const std::string& name) {
    const size_t mark = name.rfind(temporaryMark);
    if (!name.starts_with('.') || mark == std::string::npos) return std::nullopt;
    const size_t start = mark + temporaryMark.size();
    const size_t dash = name.find('-', start);
    if (dash == std::string::npos || dash == start) return std::nullopt;
    pid_t pid = 0;
    for (size_t i = start; i < dash; ++i) {
        if (name[i] < '0' || name[i] > '9') return std::nullopt;
        pid = pid * 10 + (name[i] - '0');
    }
    return pid;
}

bool hasEnded(pid_t pid) {
    return pid != ::getpid() && ::kill(pid, 0) != 0 && errno == ESRCH;
}

}  // namespace

void removeAbandonedTemporaries(const fs::path& folder) {
    std::error_code error;
    std::vector<fs::path> abandoned;
    for (auto it = fs::directory_iterator(folder, error); !error && it != fs::directory_iterator();
         it.increment(error)) {
        const auto owner = temporaryOwner(it->path().filename().string());
        if (owner && hasEnded(*owner)) abandoned.push_back(it->path());
    }
    for (const auto& path : abandoned) removeAll(path);
}

void moveIntoPlace(const fs::path& from, const fs::path& to) {
#ifdef __APPLE__
    const int result = ::renamex_np(from.c_str(), to.c_str(), RENAME_EXCL);
#else
    const int result = ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
#endif
    if (result != 0)
        throw Error("Couldn't move " + to.filename().string() +
                    " into place: " + std::strerror(errno));
}

void removeAll(const fs::path& target) {
    std::error_code error;
    if (!fs::exists(fs::symlink_status(target, error))) return;
    if (fs::is_directory(fs::symlink_status(target, error))) {
        fs::permissions(target, fs::perms::owner_all, fs::perm_options::add, error);
        for (auto it = fs::recursive_directory_iterator(target, error);
             !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
            if (!it->is_symlink())
                fs::permissions(it->path(), fs::perms::owner_write | fs::perms::owner_exec,
                                fs::perm_options::add, error);
        }
    }
    fs::remove_all(target, error);
    if (error)
        throw Error("Couldn't remove " + target.filename().string() + ": " + describe(error));
}

void syncFolder(const fs::path& folder) {
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    ::fsync(fd);
    ::close(fd);
}

}  // namespace bc::files

namespace bc {

std::filesystem::path StoreLocation::path() const {
    std::lock_guard guard(mutex_);
    return override_ ? *override_ : files::appDataFolder() / relativeName_;
}

void StoreLocation::setOverride(std::optional<std::filesystem::path> location) {
    std::lock_guard guard(mutex_);
    override_ = std::move(location);
}

std::optional<std::filesystem::path> StoreLocation::override() const {
    std::lock_guard guard(mutex_);
    return override_;
}

}  // namespace bc
