#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "support/Image.h"

// Byte formats the sample data needs beyond plain SQL values.
namespace bc::demo {

// A message_summary_info property list whose "ec" entry holds these versions of part 0,
// oldest first: (text, date in nanoseconds since 2001).
std::string editSummary(const std::vector<std::pair<std::string, int64_t>>& versions);

// A small real JPEG: a colour gradient chosen by `seed`.
std::string jpegImage(int width, int height, int seed);

// Dark lines of text on white, drawn with pango in Noto Sans at `fontPixels`, `margin` pixels
// from every edge; the picture is as large as the text needs, or `width` wide when that is more.
image::Bitmap textPicture(const std::vector<std::string>& lines, int fontPixels, int margin,
                          int width = 0);

// The printed text of the sample receipt, one entry per line.
const std::vector<std::string>& receiptLines();
// A photo of that receipt as a JPEG.
std::string receiptJPEG();

// A WhatsApp ChatStorage database with the tables and columns the reader uses, filled by the
// given statements (INSERTs into ZWACHATSESSION, ZWAMESSAGE, ZWAMEDIAITEM, ZWAGROUPMEMBER).
void writeChatStorage(const std::filesystem::path& file, const std::string& inserts);

// `words` spoken by espeak-ng into a Core Audio file at `file`, as Messages keeps voice
// messages. False when espeak-ng or ffmpeg is not installed; throws Error when they fail.
bool spokenVoiceMessage(const std::filesystem::path& file, const std::string& words);

// A mono Ogg Opus file of silence, `seconds` long (at most 5: one page), as WhatsApp stores
// voice notes.
std::string opusSilence(int seconds);

}  // namespace bc::demo
