#include "custody/ZipUnpacking.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "support/CancelFlag.h"
#include "support/Errors.h"

namespace bc {

namespace fs = std::filesystem;

namespace {

constexpr const char* unreadable = "The .zip file couldn't be unpacked.";
constexpr const char* macMetadata = "__MACOSX";

struct ArchiveCloser {
    void operator()(zip_t* archive) const { zip_discard(archive); }
};
struct EntryCloser {
    void operator()(zip_file_t* entry) const { zip_fclose(entry); }
};
using Archive = std::unique_ptr<zip_t, ArchiveCloser>;

struct Entry {
    zip_uint64_t index;
    std::string name;
    zip_uint64_t size;
    bool isFolder;
};

bool isLink(zip_t* archive, zip_uint64_t index) {
    zip_uint8_t system = 0;
    zip_uint32_t attributes = 0;
    if (zip_file_get_external_attributes(archive, index, 0, &system, &attributes) != 0)
        throw Error(unreadable);
    return system == ZIP_OPSYS_UNIX && ((attributes >> 16) & S_IFMT) == S_IFLNK;
}

bool climbsOut(const std::string& name) {
    if (name.empty() || name.front() == '/' || name.find('\\') != std::string::npos) return true;
    if (name.size() >= 2 && name[1] == ':') return true;  // a drive letter
    for (const auto& part : fs::path(name))
        if (part == "..") return true;
    return false;
}

bool isMacMetadata(const std::string& name) {
    return name == macMetadata || name.starts_with(std::string(macMetadata) + "/");
}

// Every refusal is decided here, before the first byte is written.
std::vector<Entry> checkedEntries(zip_t* archive, int64_t archiveBytes) {
    const zip_int64_t count = zip_get_num_entries(archive, 0);
    if (count > zipLimits::maxEntries)
        throw Error("The .zip holds more than " + std::to_string(zipLimits::maxEntries) +
                    " files, which is more than a chat export can hold.");
    std::vector<Entry> entries;
    int64_t total = 0;
    for (zip_int64_t i = 0; i < count; ++i) {
        const auto index = static_cast<zip_uint64_t>(i);
        zip_stat_t stat;
        if (zip_stat_index(archive, index, 0, &stat) != 0 || !(stat.valid & ZIP_STAT_NAME))
            throw Error(unreadable);
        const std::string name = stat.name;
        if (isLink(archive, index))
            throw Error("The .zip contains a symbolic link, which isn't allowed.");
        if (climbsOut(name))
            throw Error("The .zip contains a path outside its folder, which isn't allowed.");
        if ((stat.valid & ZIP_STAT_ENCRYPTION_METHOD) && stat.encryption_method != ZIP_EM_NONE)
            throw Error("The .zip contains an encrypted file, which can't be unpacked.");
        if (isMacMetadata(name)) continue;
        total += static_cast<int64_t>(stat.size);
        if (total > zipLimits::maxBytes)
            throw Error("The .zip would unpack to more than 20 GB, which isn't allowed.");
        entries.push_back({index, name, stat.size, name.ends_with('/')});
    }
    if (total > zipLimits::maxRatio * std::max<int64_t>(archiveBytes, 1))
        throw Error(
            "The .zip would unpack to more than 100 times its own size, which isn't allowed.");
    return entries;
}

void writeAll(int fd, const char* data, size_t size) {
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0)
            throw Error("Couldn't write an unpacked file: " + std::string(std::strerror(errno)));
        data += written;
        size -= static_cast<size_t>(written);
    }
}

void extract(zip_t* archive, const Entry& entry, const fs::path& destination,
             const CancelFlag* cancel) {
    const fs::path target = destination / entry.name;
    if (entry.isFolder) {
        fs::create_directories(target);
        return;
    }
    fs::create_directories(target.parent_path());
    std::unique_ptr<zip_file_t, EntryCloser> in(zip_fopen_index(archive, entry.index, 0));
    if (!in) throw Error(unreadable);
    const int fd =
        ::open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0) throw Error(unreadable);
    std::vector<char> buffer(1 << 20);
    try {
        zip_uint64_t read = 0;
        while (true) {
            if (cancel) cancel->check();
            const zip_int64_t got = zip_fread(in.get(), buffer.data(), buffer.size());
            if (got < 0) throw Error(unreadable);
            if (got == 0) break;
            read += static_cast<zip_uint64_t>(got);
            if (read > entry.size) throw Error(unreadable);
            writeAll(fd, buffer.data(), static_cast<size_t>(got));
        }
        if (read != entry.size) throw Error(unreadable);
    } catch (...) {
        ::close(fd);
        throw;
    }
    if (::close(fd) != 0) throw Error(unreadable);
}

// What was written must still lie inside the folder, with no link anywhere.
void checkUnpacked(const fs::path& destination) {
    const fs::path root = fs::canonical(destination);
    for (auto it = fs::recursive_directory_iterator(destination);
         it != fs::recursive_directory_iterator(); ++it) {
        if (it->is_symlink())
            throw Error("The .zip contains a symbolic link, which isn't allowed.");
        const fs::path resolved = fs::canonical(it->path());
        const auto relative = resolved.lexically_relative(root);
        if (relative.empty() || *relative.begin() == "..")
            throw Error("The .zip contains a path outside its folder, which isn't allowed.");
    }
}

}  // namespace

void unpackZip(const fs::path& archivePath, const fs::path& destination, const CancelFlag* cancel) {
    int error = 0;
    Archive archive(zip_open(archivePath.c_str(), ZIP_RDONLY, &error));
    if (!archive) throw Error(unreadable);
    const auto entries =
        checkedEntries(archive.get(), static_cast<int64_t>(fs::file_size(archivePath)));
    fs::create_directories(destination);
    for (const Entry& entry : entries) extract(archive.get(), entry, destination, cancel);
    checkUnpacked(destination);
}

}  // namespace bc
