#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace bc {

class CancelFlag;

// Incremental SHA-256, for hashing data while it streams past (copies, downloads).
class Sha256 {
public:
    Sha256();
    ~Sha256();
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;

    void update(const void* data, size_t size);
    void update(std::string_view bytes) { update(bytes.data(), bytes.size()); }
    // Lower-case hex, two digits per byte. The hasher can't be used afterwards.
    std::string finishHex();

    static std::string hex(std::string_view bytes);
    // Streams the file in fixed-size chunks; never holds it whole. Throws Error, or
    // CancelledError between chunks when the flag is set.
    static std::string hexOfFile(const std::filesystem::path& file,
                                 const CancelFlag* cancel = nullptr);

    static constexpr size_t chunkSize = 1 << 20;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace bc
