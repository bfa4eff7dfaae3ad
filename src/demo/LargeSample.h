#pragma once

#include <cstdint>
#include <filesystem>

namespace bc::demo {

// A large generated Messages database for timing the readers: `messages` rows spread over
// messages / 500 conversations, conversation 1 holding a fifth of them, with reactions, edits,
// replies, bodies stored only as attributed text and attachment rows whose files do not exist.
struct LargeSample {
    int64_t messages = 1'000'000;

    int64_t chatCount() const;
    static constexpr int64_t largestChat = 1;

    // Writes the database at `file` (which must not exist). Throws Error.
    void write(const std::filesystem::path& file) const;
    // The sample in the temporary folder, generated on first use and reused by later runs.
    std::filesystem::path cachedFile() const;
};

}  // namespace bc::demo
