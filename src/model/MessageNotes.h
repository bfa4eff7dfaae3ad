#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/Message.h"

// What a row says beside its text. Every rendering (the archive page, printed pages, plain
// exports, the window) takes its wording from here, so no two formats can disagree.
namespace bc::notes {

// Messages stores 0 for a row without a date; such rows are shown undated, never as 2001.
bool isUndated(Date date);
inline constexpr std::string_view undated = "Undated (no date is stored for this row)";

// The order every format shows: by date, undated rows first, equal dates in the source's order.
void putInDateOrder(std::vector<Message>& messages);
void putInDateOrder(std::vector<const Message*>& messages);

// "Deleted on … Still stored in Messages' Recently Deleted (kept about 30 days)."
std::optional<std::string> recentlyDeleted(const Message& message);

// "Sent with the iMessage app: " + the app's label.
std::optional<std::string> appLabel(const Message& message);

// Recovered parts are numbered from 1 wherever they are shown.
int partNumber(const RecoveredPart& part);
// The label of a recovered part, numbered from 1 as above.
std::string recoveredPart(const RecoveredPart& part);

// "Original", then "Edit 1", "Edit 2", …
std::string editVersion(size_t index);

// The readable text. An undecodable body's notice names messages.csv only where the export
// carries one.
std::string text(const Message& message, bool exportHasMessagesCsv);

}  // namespace bc::notes
