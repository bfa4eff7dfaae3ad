#pragma once

#include <cstdint>
#include <filesystem>

namespace bc {

class CancelFlag;

// Unpacks an archive the user chose into `destination` (created). Every entry is checked before
// anything is written: links, names that climb out of the folder, encrypted entries and
// archives that would unpack far beyond their size are refused with their own sentence (Error).
// "__MACOSX" entries are left out.
void unpackZip(const std::filesystem::path& archive, const std::filesystem::path& destination,
               const CancelFlag* cancel);

namespace zipLimits {
constexpr int64_t maxBytes = 20LL * 1000 * 1000 * 1000;
constexpr int64_t maxRatio = 100;
constexpr int64_t maxEntries = 50000;
}  // namespace zipLimits

}  // namespace bc
