#include "export/pages/Rows.h"

#include <algorithm>

#include "support/Calendar.h"

namespace bc::pages {

namespace {

std::string countPhrase(int64_t count, const char* singular, const char* plural) {
    return std::to_string(count) + (count == 1 ? singular : plural);
}

int64_t valueOr0(const std::map<int64_t, int64_t>& map, int64_t key) {
    const auto found = map.find(key);
    return found == map.end() ? 0 : found->second;
}

void addMessageRows(std::vector<Row>& rows, const Message& message, size_t index) {
    const size_t total = message.visibleAttachments().size();
    if (total <= attachmentsPerPiece) {
        rows.push_back({.kind = Row::Kind::message, .message = index, .attachmentCount = total});
        return;
    }
    for (size_t first = 0; first < total; first += attachmentsPerPiece) {
        const size_t count = std::min(attachmentsPerPiece, total - first);
        const bool isLast = first + count == total;
        rows.push_back(
            {.kind = Row::Kind::message,
             .message = index,
             .firstAttachment = first,
             .attachmentCount = count,
             .isFirst = first == 0,
             .isFinal = isLast,
             .partLabel = partLabel(message.id, first + 1, first + count, total, isLast)});
    }
}

}  // namespace

std::string gapText(int64_t messages, int64_t calls) {
    std::string phrase;
    if (messages > 0) phrase = countPhrase(messages, " message", " messages");
    if (calls > 0) {
        if (!phrase.empty()) phrase += " and ";
        phrase += countPhrase(calls, " call", " calls");
    }
    return phrase + " not included in this exhibit  · · ·";
}

std::string partLabel(int64_t messageID, size_t first, size_t last, size_t total, bool isLast) {
    std::string label = "Message #" + std::to_string(messageID) + " · attachments " +
                        std::to_string(first) + "–" + std::to_string(last) + " of " +
                        std::to_string(total);
    if (!isLast) label += " · continued below";
    return label;
}

std::vector<Row> buildRows(const std::vector<Message>& messages,
                           const PageExporter::Options& options) {
    std::vector<Row> rows;
    rows.reserve(messages.size() * 2 + 1);
    const PatternFormatter dayFormat("yyyy-MM-dd", "en_US_POSIX");
    std::string lastDay;
    for (size_t i = 0; i < messages.size(); ++i) {
        const Message& message = messages[i];
        if (std::string day = dayFormat.format(message.date); day != lastDay) {
            rows.push_back({.kind = Row::Kind::day, .date = message.date});
            lastDay = std::move(day);
        }
        const int64_t omitted = valueOr0(options.omittedBefore, message.id);
        const int64_t omittedCalls = valueOr0(options.omittedCallsBefore, message.id);
        if (omitted > 0 || omittedCalls > 0)
            rows.push_back(
                {.kind = Row::Kind::gap, .omittedMessages = omitted, .omittedCalls = omittedCalls});
        addMessageRows(rows, message, i);
    }
    if (options.certificate) rows.push_back({.kind = Row::Kind::certificate});
    return rows;
}

}  // namespace bc::pages
