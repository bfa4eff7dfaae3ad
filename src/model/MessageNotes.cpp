#include "model/MessageNotes.h"

#include <algorithm>

#include "support/DateFormat.h"

namespace bc::notes {

namespace {

constexpr std::string_view undecodableWithoutManifest =
    "Message text is stored but could not be decoded by this app.";

const Message& row(const Message& message) {
    return message;
}
const Message& row(const Message* message) {
    return *message;
}

template <class Rows>
void sortByDate(Rows& rows) {
    const auto earlier = [](const auto& a, const auto& b) { return row(a).date < row(b).date; };
    // Transcripts come in date order already, and moving a long one's records is costly.
    if (std::is_sorted(rows.begin(), rows.end(), earlier)) return;
    std::stable_sort(rows.begin(), rows.end(), earlier);
}

}  // namespace

bool isUndated(Date date) {
    return date == Date{};
}

void putInDateOrder(std::vector<Message>& messages) {
    sortByDate(messages);
}

void putInDateOrder(std::vector<const Message*>& messages) {
    sortByDate(messages);
}

std::optional<std::string> recentlyDeleted(const Message& message) {
    if (!message.isInRecentlyDeleted) return std::nullopt;
    const std::string when =
        message.deletedAt
            ? dates::formatStyled(*message.deletedAt, dates::Style::long_, dates::Style::short_)
            : "an unknown date";
    return "Deleted on " + when +
           ". Still stored in Messages' Recently Deleted (kept about 30 days).";
}

std::optional<std::string> appLabel(const Message& message) {
    if (!message.appLabel) return std::nullopt;
    return "Sent with the iMessage app: " + *message.appLabel;
}

int partNumber(const RecoveredPart& part) {
    return part.index + 1;
}

std::string recoveredPart(const RecoveredPart& part) {
    return "Recovered deleted part " + std::to_string(partNumber(part));
}

std::string editVersion(size_t index) {
    return index == 0 ? "Original" : "Edit " + std::to_string(index);
}

std::string text(const Message& message, bool exportHasMessagesCsv) {
    if (message.undecodedBody && !exportHasMessagesCsv)
        return std::string(undecodableWithoutManifest);
    return message.text;
}

}  // namespace bc::notes
