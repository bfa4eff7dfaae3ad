#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace bc {

class CancelFlag;

struct VerifiedCopy {
    int64_t bytes = 0;
    std::string sourceSHA256;
    std::string copySHA256;

    bool matches() const { return sourceSHA256 == copySHA256; }
};

// Copies `source` byte for byte into `destination` (which must not exist yet), hashing the
// source as it streams past, then hashes the copy as written. Throws Error, or CancelledError
// between chunks.
VerifiedCopy copyVerified(const std::filesystem::path& source,
                          const std::filesystem::path& destination, const CancelFlag* cancel);

}  // namespace bc
