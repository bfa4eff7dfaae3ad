#include "support/Sha256.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "support/CancelFlag.h"
#include "support/Errors.h"

namespace bc {

struct Sha256::State {
    EVP_MD_CTX* context = nullptr;
};

Sha256::Sha256() : state_(std::make_unique<State>()) {
    state_->context = EVP_MD_CTX_new();
    if (!state_->context || EVP_DigestInit_ex(state_->context, EVP_sha256(), nullptr) != 1)
        throw Error("Couldn't start a SHA-256 digest: the cryptography library refused.");
}

Sha256::~Sha256() {
    EVP_MD_CTX_free(state_->context);
}

void Sha256::update(const void* data, size_t size) {
    EVP_DigestUpdate(state_->context, data, size);
}

std::string Sha256::finishHex() {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(state_->context, digest, &length);
    static constexpr char digits[] = "0123456789abcdef";
    std::string out;
    out.reserve(static_cast<size_t>(length) * 2);
    for (unsigned int i = 0; i < length; ++i) {
        out += digits[digest[i] >> 4];
        out += digits[digest[i] & 0x0F];
    }
    return out;
}

std::string Sha256::hex(std::string_view bytes) {
    Sha256 hasher;
    hasher.update(bytes);
    return hasher.finishHex();
}

std::string Sha256::hexOfFile(const std::filesystem::path& file, const CancelFlag* cancel) {
    const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        throw Error("Couldn't compute the SHA-256 of " + file.filename().string() + ": " +
                    std::strerror(errno));
    Sha256 hasher;
    // Left uninitialised: zeroing a fresh megabyte per file costs more than hashing small files.
    const std::unique_ptr<char[]> buffer(new char[chunkSize]);
    for (;;) {
        if (cancel && cancel->isCancelled()) {
            ::close(fd);
            throw CancelledError();
        }
        const ssize_t n = ::read(fd, buffer.get(), chunkSize);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            const int error = errno;
            ::close(fd);
            throw Error("Couldn't compute the SHA-256 of " + file.filename().string() + ": " +
                        std::strerror(error));
        }
        if (n == 0) break;
        hasher.update(buffer.get(), static_cast<size_t>(n));
    }
    ::close(fd);
    return hasher.finishHex();
}

}  // namespace bc
