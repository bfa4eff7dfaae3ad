#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/Message.h"

namespace bc {

// The plain one-file formats of a conversation; the raw value is also the file extension.
enum class ExportFormat { text, csv, json };

inline constexpr std::array<ExportFormat, 3> allExportFormats{ExportFormat::text, ExportFormat::csv,
                                                              ExportFormat::json};

std::string_view rawValue(ExportFormat format);
// "Text", "CSV", "JSON": the name menus show.
std::string_view displayName(ExportFormat format);
std::optional<ExportFormat> exportFormat(std::string_view rawValue);

// Renders one conversation as a readable text file, a seven-column CSV or a JSON document:
// LF line ends, no byte-order mark, no trailing newline, whole-second dates.
namespace Exporter {

using SenderName = std::function<std::string(const Message&)>;

// Rows are written in the order given (sorted by date, calls merged in).
std::string render(const std::string& title, const std::vector<Message>& messages,
                   ExportFormat format, const SenderName& senderName);

// The message count + " messages", and " and " + n + " calls" when there are calls: calls are
// counted apart, as the JSON document's two counts are.
std::string countText(const std::vector<Message>& messages);

// "Ann/Bob", 12, csv -> "Ann-Bob (12).csv"
std::string fileName(const std::string& title, int64_t chatID, ExportFormat format);

// The title with the ten characters file systems and shells trip over replaced by "-",
// cut to 80 characters: the stem of every file named after a conversation.
std::string fileStem(const std::string& title);

}  // namespace Exporter

}  // namespace bc
