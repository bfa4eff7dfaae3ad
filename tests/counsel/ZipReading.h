#pragma once

#include <zip.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace bc::testing {

// What a reader of the finished file sees, read back through libzip.
struct ZipEntry {
    std::string name;
    uint32_t unixMode = 0;
    uint16_t encryption = 0;
};

inline std::vector<ZipEntry> zipEntries(const std::filesystem::path& file) {
    int code = 0;
    zip_t* archive = zip_open(file.c_str(), ZIP_RDONLY, &code);
    if (!archive) return {};
    std::vector<ZipEntry> entries;
    for (zip_int64_t i = 0; i < zip_get_num_entries(archive, 0); ++i) {
        const auto index = static_cast<zip_uint64_t>(i);
        ZipEntry entry{zip_get_name(archive, index, 0)};
        uint8_t system = 0;
        uint32_t attributes = 0;
        zip_file_get_external_attributes(archive, index, 0, &system, &attributes);
        entry.unixMode = attributes >> 16;
        zip_stat_t stat;
        zip_stat_index(archive, index, 0, &stat);
        entry.encryption = stat.encryption_method;
        entries.push_back(entry);
    }
    zip_discard(archive);
    return entries;
}

inline std::optional<std::string> zipEntryText(const std::filesystem::path& file,
                                               const std::string& name) {
    int code = 0;
    zip_t* archive = zip_open(file.c_str(), ZIP_RDONLY, &code);
    if (!archive) return std::nullopt;
    std::optional<std::string> text;
    if (zip_file_t* entry = zip_fopen(archive, name.c_str(), 0)) {
        text.emplace();
        char buffer[65536];
        zip_int64_t n = 0;
        while ((n = zip_fread(entry, buffer, sizeof buffer)) > 0)
            text->append(buffer, static_cast<size_t>(n));
        zip_fclose(entry);
    }
    zip_discard(archive);
    return text;
}

}  // namespace bc::testing
