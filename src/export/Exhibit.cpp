#include "export/Exhibit.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include "export/Exporter.h"
#include "support/Text.h"

namespace bc {

namespace {

// Inclusive row indices.
struct Window {
    size_t first = 0;
    size_t last = 0;
};

std::string counted(int64_t count, const std::string& singular) {
    return std::to_string(count) + " " + singular + (count == 1 ? "" : "s");
}

bool isFlagged(const Message& message, const EvidenceFlagMap& flags) {
    return !message.isCall() && flags.contains(message.guid);
}

// One window per flag, joined where they overlap or touch, so every row is printed once.
std::vector<Window> contextWindows(const std::vector<Message>& rows, const EvidenceFlagMap& flags,
                                   int before, int after) {
    std::vector<Window> windows;
    for (size_t i = 0; i < rows.size(); ++i) {
        if (!isFlagged(rows[i], flags)) continue;
        const Window window{i - std::min(i, static_cast<size_t>(std::max(before, 0))),
                            std::min(rows.size() - 1, i + static_cast<size_t>(std::max(after, 0)))};
        if (!windows.empty() && window.first <= windows.back().last + 1)
            windows.back().last = std::max(windows.back().last, window.last);
        else
            windows.push_back(window);
    }
    return windows;
}

struct Omitted {
    int64_t messages = 0;
    int64_t calls = 0;
};

Omitted omittedBetween(const std::vector<Message>& rows, size_t begin, size_t end) {
    Omitted omitted;
    for (size_t i = begin; i < end; ++i) ++(rows[i].isCall() ? omitted.calls : omitted.messages);
    return omitted;
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    size_t start = 0;
    while (start <= text.size()) {
        const size_t end = std::min(text.find('\n', start), text.size());
        out.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return out;
}

std::map<std::string, std::string> recordOptions(const ExhibitRequest& request,
                                                 const Redactor& redactor, Omitted omitted) {
    std::map<std::string, std::string> options{
        {"Exhibit", request.label.empty() ? "(none)" : redactor.apply(request.label)},
        {"Context", std::to_string(request.contextBefore) + " before, " +
                        std::to_string(request.contextAfter) + " after"},
        {"Omitted", std::to_string(omitted.messages) + " messages and " +
                        std::to_string(omitted.calls) +
                        " calls not shown (marked where they occur)"},
        {"Private notes", request.includeNotes ? "included" : "not included"}};
    if (redactor.isActive())
        options["Redaction"] = counted(static_cast<int64_t>(redactor.terms().size()), "term") +
                               (redactor.contactDetails() ? " + phone numbers and emails" : "") +
                               "; the unredacted record is unchanged";
    return options;
}

}  // namespace

Redactor ExhibitRequest::redactor() const {
    return Redactor(lines(redactionTerms), redactContactDetails);
}

std::string ExhibitRequest::summary() const {
    return counted(flaggedCount, "flagged message") +
           ", each shown with surrounding messages so nothing is out of context.";
}

std::string ExhibitRequest::baseName() const {
    const std::string shown = redactor().apply(text::trim(label));
    return shown.empty() ? exhibit::title : Exporter::fileStem(shown) + " \u2013 " + exhibit::title;
}

namespace exhibit {

int64_t flaggedCount(const std::vector<Message>& messages, const EvidenceFlagMap& flags) {
    return std::count_if(messages.begin(), messages.end(),
                         [&](const Message& message) { return isFlagged(message, flags); });
}

ExportJob makeJob(const ExhibitRequest& request, ExportJob whole, const EvidenceFlagMap& flags) {
    const std::vector<Message> rows = std::move(whole.messages);
    const Redactor redactor = request.redactor();
    ExportJob job = std::move(whole);
    job.messages.clear();
    job.format = request.format;
    job.settings = request.settings;
    job.title = title;
    job.action = action;
    job.from.reset();
    job.to.reset();
    job.includeCertificatePage = request.includeCertificate;

    PageExporter::Options& options = job.pageOptions;
    if (!request.label.empty()) options.exhibitLabel = request.label;
    if (!request.batesPrefix.empty()) options.batesPrefix = request.batesPrefix;
    options.batesStart = request.batesStart;
    options.batesDigits = request.batesDigits;
    options.redactor = redactor;

    Omitted shown;  // left out before or between windows, marked by a gap row
    size_t next = 0;
    for (const Window& window :
         contextWindows(rows, flags, request.contextBefore, request.contextAfter)) {
        const Omitted gap = omittedBetween(rows, next, window.first);
        const int64_t id = rows[window.first].id;
        if (gap.messages > 0) options.omittedBefore[id] = gap.messages;
        if (gap.calls > 0) options.omittedCallsBefore[id] = gap.calls;
        shown.messages += gap.messages;
        shown.calls += gap.calls;
        for (size_t i = window.first; i <= window.last; ++i) {
            const Message& message = rows[i];
            job.messages.push_back(message);
            if (!isFlagged(message, flags)) continue;
            options.highlighted.insert(message.id);
            const std::string& note = flags.at(message.guid).note;
            if (request.includeNotes && !note.empty()) options.notes[message.id] = note;
        }
        next = window.last + 1;
    }
    const int64_t later = omittedBetween(rows, next, rows.size()).messages;
    job.rangeDescription = std::to_string(options.highlighted.size()) +
                           " flagged items with context \u00b7 " + job.rangeDescription;
    if (later > 0)
        job.rangeDescription += " \u00b7 " + std::to_string(later) + " later messages not included";
    job.recordOptions = recordOptions(request, redactor, shown);
    return job;
}

int64_t nextBatesNumber(const std::string& prefix, const std::vector<CustodyRecord>& records) {
    int64_t next = 1;
    for (const CustodyRecord& record : records) {
        const auto bates = record.options.find("Bates");
        if (bates == record.options.end()) continue;
        const std::string& range = bates->second;
        const size_t dash = range.rfind("\u2013");
        const std::string last = dash == std::string::npos ? range : range.substr(dash + 3);
        if (!last.starts_with(prefix) || last.size() == prefix.size()) continue;
        int64_t number = 0;
        const char* begin = last.data() + prefix.size();
        const char* end = last.data() + last.size();
        const auto [stop, error] = std::from_chars(begin, end, number);
        if (error == std::errc() && stop == end && std::isdigit(static_cast<unsigned char>(*begin)))
            next = std::max(next, number + 1);
    }
    return next;
}

}  // namespace exhibit

}  // namespace bc
