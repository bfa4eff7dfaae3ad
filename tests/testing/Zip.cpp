#include "testing/Zip.h"

#include <sys/stat.h>
#include <zip.h>

#include <stdexcept>

namespace bc::testing {

void writeZip(const std::filesystem::path& file, const std::vector<ZipEntry>& entries) {
    int error = 0;
    zip_t* archive = zip_open(file.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    if (!archive) throw std::runtime_error("zip_open failed");
    for (const auto& entry : entries) {
        zip_source_t* source =
            zip_source_buffer(archive, entry.bytes.data(), entry.bytes.size(), 0);
        const zip_int64_t index =
            zip_file_add(archive, entry.name.c_str(), source, ZIP_FL_ENC_UTF_8);
        if (index < 0) throw std::runtime_error(zip_strerror(archive));
        const auto at = static_cast<zip_uint64_t>(index);
        if (entry.kind == ZipEntry::Kind::symlink)
            zip_file_set_external_attributes(archive, at, 0, ZIP_OPSYS_UNIX,
                                             static_cast<zip_uint32_t>(S_IFLNK | 0777) << 16);
        if (entry.kind == ZipEntry::Kind::encrypted)
            zip_file_set_encryption(archive, at, ZIP_EM_AES_256, "secret");
    }
    if (zip_close(archive) != 0) throw std::runtime_error("zip_close failed");
}

}  // namespace bc::testing
