#include "counsel/ZipWriter.h"

#include <openssl/crypto.h>
#include <sys/stat.h>
#include <zip.h>

#include "support/Errors.h"

namespace bc {

namespace {

// The bulk of what goes into a bundle is photos, PDFs and video that hardly compress; the
// fastest level keeps the time close to that of copying.
constexpr uint32_t compressionLevel = 1;

int cancelRequested(zip_t*, void* state) {
    const auto* cancel = static_cast<const CancelFlag*>(state);
    return cancel->isCancelled() ? 1 : 0;
}

void reportProgress(zip_t*, double share, void* state) {
    (*static_cast<std::function<void(double)>*>(state))(share);
}

}  // namespace

ZipWriter::ZipWriter(const std::filesystem::path& file, Options options)
    : options_(std::move(options)) {
    if (options_.shownName.empty()) options_.shownName = file.filename().string();
    int code = 0;
    archive_ = zip_open(file.c_str(), ZIP_CREATE | ZIP_EXCL, &code);
    if (!archive_) {
        zip_error_t error;
        zip_error_init_with_code(&error, code);
        const std::string text = zip_error_strerror(&error);
        zip_error_fini(&error);
        throw Error("Couldn't create " + options_.shownName + ": " + text);
    }
    if (options_.cancel)
        zip_register_cancel_callback_with_state(archive_, cancelRequested, nullptr,
                                                const_cast<CancelFlag*>(options_.cancel));
    if (options_.progress)
        zip_register_progress_callback_with_state(archive_, 0.01, reportProgress, nullptr,
                                                  &options_.progress);
}

ZipWriter::~ZipWriter() {
    if (archive_) zip_discard(archive_);
    OPENSSL_cleanse(options_.password.data(), options_.password.size());
}

void ZipWriter::fail(const std::string& what) {
    throw Error("Couldn't add " + what + " to " + options_.shownName + ": " +
                zip_strerror(archive_));
}

void ZipWriter::added(int64_t index, const std::string& name, uint32_t unixMode) {
    const auto entry = static_cast<zip_uint64_t>(index);
    if (zip_file_set_external_attributes(archive_, entry, 0, ZIP_OPSYS_UNIX, unixMode << 16) != 0)
        fail(name);
    if ((unixMode & S_IFMT) == S_IFDIR) return;
    if (zip_set_file_compression(archive_, entry, ZIP_CM_DEFLATE, compressionLevel) != 0)
        fail(name);
    if (!options_.password.empty() &&
        zip_file_set_encryption(archive_, entry, ZIP_EM_AES_256, options_.password.c_str()) != 0)
        fail(name);
}

void ZipWriter::addSource(const std::string& name, zip_source_t* source, uint32_t mode) {
    if (!source) fail(name);
    const zip_int64_t index = zip_file_add(archive_, name.c_str(), source, ZIP_FL_ENC_UTF_8);
    if (index < 0) {
        zip_source_free(source);
        fail(name);
    }
    added(index, name, S_IFREG | mode);
}

void ZipWriter::addBytes(const std::string& name, std::string bytes, uint32_t mode) {
    const std::string& kept = buffers_.emplace_back(std::move(bytes));
    addSource(name, zip_source_buffer(archive_, kept.data(), kept.size(), 0), mode);
}

void ZipWriter::addFile(const std::string& name, const std::filesystem::path& file, uint32_t mode) {
    addSource(name, zip_source_file(archive_, file.c_str(), 0, 0), mode);
}

void ZipWriter::addFolder(const std::string& name) {
    const zip_int64_t index = zip_dir_add(archive_, name.c_str(), ZIP_FL_ENC_UTF_8);
    if (index < 0) fail(name);
    added(index, name, S_IFDIR | 0755);
}

void ZipWriter::close() {
    if (zip_close(archive_) == 0) {
        archive_ = nullptr;
        return;
    }
    // libzip has already removed its half-written temporary file.
    const bool cancelled = zip_error_code_zip(zip_get_error(archive_)) == ZIP_ER_CANCELLED;
    const std::string text = zip_strerror(archive_);
    zip_discard(archive_);
    archive_ = nullptr;
    if (cancelled) throw CancelledError();
    throw Error("Couldn't write " + options_.shownName + ": " + text);
}

}  // namespace bc
