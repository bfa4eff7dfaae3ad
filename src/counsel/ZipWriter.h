#pragma once

#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <string>

#include "support/CancelFlag.h"

struct zip;
struct zip_source;

namespace bc {

// A new zip file built with libzip. Entries are only listed until close() writes them all; a
// writer destroyed without a successful close() leaves no file behind.
class ZipWriter {
public:
    struct Options {
        // When not empty, every entry is AES-256 encrypted with it (WinZip AES, which 7-Zip,
        // Keka and The Unarchiver open). Only ever held in memory.
        std::string password;
        const CancelFlag* cancel = nullptr;
        std::function<void(double)> progress;  // share of the archive written, 0 to 1
        // How errors name the file; its file name when empty (it may be built under another).
        std::string shownName;
    };

    // Refuses a file that already exists.
    ZipWriter(const std::filesystem::path& file, Options options);
    ~ZipWriter();
    ZipWriter(const ZipWriter&) = delete;
    ZipWriter& operator=(const ZipWriter&) = delete;

    // `name` is the entry's path inside the archive, with "/" separators.
    void addBytes(const std::string& name, std::string bytes, uint32_t mode = 0644);
    void addFile(const std::string& name, const std::filesystem::path& file, uint32_t mode);
    void addFolder(const std::string& name);

    // Compresses (and encrypts) everything into the file. Throws Error, or CancelledError when
    // the flag is set meanwhile; either way nothing remains at the file's path.
    void close();

private:
    void addSource(const std::string& name, zip_source* source, uint32_t mode);
    void added(int64_t index, const std::string& name, uint32_t unixMode);
    [[noreturn]] void fail(const std::string& what);

    Options options_;
    zip* archive_ = nullptr;
    std::deque<std::string> buffers_;  // libzip reads them only when closing
};

}  // namespace bc
