#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Byte formats the sample data needs beyond plain SQL values.
namespace bc::demo {

// A message_summary_info property list whose "ec" entry holds these versions of part 0,
// oldest first: (text, date in nanoseconds since 2001).
std::string editSummary(const std::vector<std::pair<std::string, int64_t>>& versions);

// A small real JPEG: a colour gradient chosen by `seed`.
std::string jpegImage(int width, int height, int seed);

}  // namespace bc::demo
