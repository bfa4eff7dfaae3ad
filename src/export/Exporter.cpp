#include "export/Exporter.h"

#include <algorithm>

#include "export/ManifestCsv.h"
#include "model/MessageNotes.h"
#include "sources/CallHistory.h"
#include "support/Calendar.h"
#include "support/DateFormat.h"
#include "support/Json.h"
#include "support/Text.h"

namespace bc {

std::string_view rawValue(ExportFormat format) {
    switch (format) {
        case ExportFormat::text:
            return "txt";
        case ExportFormat::csv:
            return "csv";
        case ExportFormat::json:
            return "json";
    }
    return "txt";
}

std::string_view displayName(ExportFormat format) {
    switch (format) {
        case ExportFormat::text:
            return "Text";
        case ExportFormat::csv:
            return "CSV";
        case ExportFormat::json:
            return "JSON";
    }
    return "Text";
}

std::optional<ExportFormat> exportFormat(std::string_view raw) {
    for (ExportFormat format : allExportFormats) {
        if (rawValue(format) == raw) return format;
    }
    return std::nullopt;
}

namespace Exporter {

namespace {

std::string attachmentNames(const Message& m) {
    std::string out;
    for (const auto& a : m.attachments) out += " [Attachment: " + a.name + "]";
    return out;
}

std::string attachmentPaths(const Message& m) {
    std::string out;
    for (const auto& a : m.attachments) {
        if (!out.empty()) out += "; ";
        out += a.path;
    }
    return out;
}

// A stored date in ISO 8601; empty for an undated row.
std::string isoDate(const Message& m) {
    return notes::isUndated(m.date) ? std::string() : dates::iso8601(m.date);
}

Json jsonDate(const Message& m) {
    return notes::isUndated(m.date) ? Json() : Json(dates::iso8601(m.date));
}

std::string renderText(const std::string& title, const std::vector<Message>& messages,
                       const SenderName& senderName) {
    const PatternFormatter formatter("yyyy-MM-dd HH:mm");
    std::string out = title + "\n" + std::string(text::graphemeCount(title), '=') + "\n";
    for (const auto& m : messages) {
        out += "\n[" +
               (notes::isUndated(m.date) ? std::string(notes::undated) : formatter.format(m.date)) +
               "] ";
        if (m.call) {
            out += CallHistory::summary(*m.call) + " (call record " +
                   std::to_string(m.call->recordID) + ")";
        } else {
            out += senderName(m) + ": " + notes::text(m, false);
        }
        out += attachmentNames(m);
        if (const auto deleted = notes::recentlyDeleted(m)) out += " [" + *deleted + "]";
    }
    return out;
}

std::string renderCSV(const std::vector<Message>& messages, const SenderName& senderName) {
    std::string out = "date,sender,handle,is_from_me,text,attachments,record_type";
    for (const auto& m : messages) {
        out += '\n';
        out += manifest::line(
            {isoDate(m), senderName(m), m.sender, m.isFromMe ? "1" : "0",
             m.call ? CallHistory::summary(*m.call) : notes::text(m, false), attachmentPaths(m),
             m.call ? "call record " + std::to_string(m.call->recordID) : "message"});
    }
    return out;
}

Json callObject(const Message& m) {
    const CallInfo& call = *m.call;
    return {{"type", "call"},
            {"date", jsonDate(m)},
            {"call_record_id", call.recordID},
            {"direction", call.isOutgoing ? "outgoing" : "incoming"},
            {"answered", call.answered},
            {"duration_seconds", call.duration},
            {"service", CallHistory::service(call)},
            {"address", call.address},
            {"description", CallHistory::summary(*m.call)}};
}

Json messageObject(const Message& m, const SenderName& senderName) {
    Json attachments = Json::array();
    for (const auto& a : m.attachments) {
        attachments.push_back({{"name", a.name}, {"path", a.path}, {"mime_type", a.mimeType}});
    }
    return {{"type", "message"},         {"date", jsonDate(m)},
            {"sender", senderName(m)},   {"handle", m.sender},
            {"is_from_me", m.isFromMe},  {"text", notes::text(m, false)},
            {"attachments", attachments}};
}

std::string renderJSON(const std::string& title, const std::vector<Message>& messages,
                       const SenderName& senderName) {
    Json rows = Json::array();
    int64_t calls = 0;
    for (const auto& m : messages) {
        if (m.call) ++calls;
        rows.push_back(m.call ? callObject(m) : messageObject(m, senderName));
    }
    const Json document{{"chat", title},
                        {"message_count", static_cast<int64_t>(messages.size()) - calls},
                        {"call_count", calls},
                        {"messages", rows}};
    return json::encodePretty(document);  // invalid UTF-8 comes out as U+FFFD, never a failure
}

}  // namespace

std::string render(const std::string& title, const std::vector<Message>& messages,
                   ExportFormat format, const SenderName& senderName) {
    switch (format) {
        case ExportFormat::text:
            return renderText(title, messages, senderName);
        case ExportFormat::csv:
            return renderCSV(messages, senderName);
        case ExportFormat::json:
            return renderJSON(title, messages, senderName);
    }
    return {};
}

std::string countText(const std::vector<Message>& messages) {
    const auto calls = std::count_if(messages.begin(), messages.end(),
                                     [](const Message& m) { return m.isCall(); });
    std::string text = std::to_string(static_cast<int64_t>(messages.size()) - calls) + " messages";
    if (calls > 0) text += " and " + std::to_string(calls) + " calls";
    return text;
}

std::string fileStem(const std::string& title) {
    static constexpr std::string_view forbidden = "/:\\?%*|\"<>";
    std::string joined = title;
    std::replace_if(
        joined.begin(), joined.end(),
        [](char c) { return forbidden.find(c) != std::string_view::npos; }, '-');
    return text::firstGraphemes(joined, 80);
}

std::string fileName(const std::string& title, int64_t chatID, ExportFormat format) {
    return fileStem(title) + " (" + std::to_string(chatID) + ")." + std::string(rawValue(format));
}

}  // namespace Exporter

}  // namespace bc
