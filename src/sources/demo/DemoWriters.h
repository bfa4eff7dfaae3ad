#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

// Byte formats the sample data needs beyond plain SQL values.
namespace bc::demo {

// A message_summary_info property list whose "ec" entry holds these versions of part 0,
// oldest first: (text, date in nanoseconds since 2001).
std::string editSummary(const std::vector<std::pair<std::string, int64_t>>& versions);

// A small real JPEG: a colour gradient chosen by `seed`.
std::string jpegImage(int width, int height, int seed);

// A WhatsApp ChatStorage database with the tables and columns the reader uses, filled by the
// given statements (INSERTs into ZWACHATSESSION, ZWAMESSAGE, ZWAMEDIAITEM, ZWAGROUPMEMBER).
void writeChatStorage(const std::filesystem::path& file, const std::string& inserts);

// A mono Ogg Opus file of silence, `seconds` long (at most 5: one page), as WhatsApp stores
// voice notes.
std::string opusSilence(int seconds);

}  // namespace bc::demo
