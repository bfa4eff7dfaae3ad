#pragma once

#include <string_view>
#include <vector>

#include "model/Message.h"

namespace bc::messages {

// Versions of edited parts from a message_summary_info property list; empty when it has none
// or doesn't parse.
std::vector<EditVersion> editHistory(std::string_view summaryInfo);

}  // namespace bc::messages
