#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "export/PageExporter.h"
#include "model/Message.h"

namespace bc::pages {

// One unit of the printed flow, in message order.
struct Row {
    enum class Kind { day, gap, message, certificate };
    Kind kind = Kind::message;
    Date date;                    // day
    int64_t omittedMessages = 0;  // gap
    int64_t omittedCalls = 0;     // gap
    size_t message = 0;           // message: index into the printed messages
    size_t firstAttachment = 0;   // message: range of visible attachments shown in this piece
    size_t attachmentCount = 0;
    bool isFirst = true;  // the body is shown with the first piece only
    bool isFinal = true;  // notes, edits and flags close the last piece
    std::optional<std::string> partLabel;
};

// Messages with more attachments than this are printed in pieces of this many.
constexpr size_t attachmentsPerPiece = 2;

// "3 messages and 1 call not included in this exhibit  · · ·"
std::string gapText(int64_t messages, int64_t calls);

// "Message #12 · attachments 1–2 of 5 · continued below"
std::string partLabel(int64_t messageID, size_t first, size_t last, size_t total, bool isLast);

// The flow of rows for `messages` (already redacted where asked): day headings, gap markers,
// message pieces, then the certificate when the options carry one.
std::vector<Row> buildRows(const std::vector<Message>& messages,
                           const PageExporter::Options& options);

}  // namespace bc::pages
