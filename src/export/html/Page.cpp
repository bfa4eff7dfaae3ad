#include "export/html/Page.h"

#include <algorithm>
#include <cstdio>
#include <ostream>
#include <span>
#include <unordered_map>

#include "embedded/archiveTemplate.h"
#include "export/html/Markup.h"
#include "model/MessageNotes.h"
#include "sources/CallHistory.h"
#include "support/Calendar.h"
#include "support/CivilClock.h"
#include "support/Date.h"
#include "support/DateFormat.h"
#include "support/Machine.h"

namespace bc::html {

namespace {

using Kind = RenderedAttachment::Kind;

constexpr size_t replyExcerptLength = 60;

// Every row formats several times; printf-style formatting would dominate a long export.
std::string twoDigits(int value) {
    return {static_cast<char>('0' + value / 10 % 10), static_cast<char>('0' + value % 10)};
}

std::string dayKey(const dates::CivilTime& t) {
    return twoDigits(t.year / 100) + twoDigits(t.year % 100) + "-" + twoDigits(t.month) + "-" +
           twoDigits(t.day);
}

// "yyyy-MM-dd HH:mm:ss ZZZZZ": the offset as ±hh:mm, "Z" for UTC.
std::string exactTime(const dates::CivilTime& t) {
    std::string out = dayKey(t) + " " + twoDigits(t.hour) + ":" + twoDigits(t.minute) + ":" +
                      twoDigits(t.second) + " ";
    if (t.offsetSeconds == 0) return out + "Z";
    const int offset = std::abs(t.offsetSeconds) / 60;
    return out + (t.offsetSeconds < 0 ? "-" : "+") + twoDigits(offset / 60) + ":" +
           twoDigits(offset % 60);
}

// "h:mm:ss a" in English.
std::string clockTime(const dates::CivilTime& t) {
    const int hour = t.hour % 12 == 0 ? 12 : t.hour % 12;
    return std::to_string(hour) + ":" + twoDigits(t.minute) + ":" + twoDigits(t.second) +
           (t.hour < 12 ? " AM" : " PM");
}

std::string excerpt(std::string_view text) {
    size_t characters = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        if ((text[i] & 0xC0) != 0x80 && characters++ == replyExcerptLength)
            return std::string(text.substr(0, i)) + "…";
    }
    return std::string(text);
}

std::string bodyText(const Message& m) {
    if (std::string text = withoutAttachmentMarks(m.text); !text.empty()) return text;
    if (m.undecodedBody) return "(unreadable)";
    return m.visibleAttachments().empty() ? "(no text)" : "(attachment)";
}

std::string recordLabel(const Message& m) {
    if (m.call) return "call record " + std::to_string(m.call->recordID);
    return "message " + std::to_string(m.id);
}

std::string longDate(Date date) {
    return dates::formatStyled(date, dates::Style::long_, dates::Style::none);
}

class BodyWriter {
public:
    explicit BodyWriter(const PageContent& content) : c_(content) {
        byGUID_.reserve(c_.context.size() + c_.rows.size());
        for (const Message* m : c_.rows) byGUID_.emplace(m->guid, Target{m, true});
        for (const auto& m : c_.context) byGUID_.emplace(m.guid, Target{&m, false});
    }

    // Writes the sections to `out` one day at a time and returns DAYS, the script's list of
    // [day key, row count] pairs.
    std::string write(std::ostream& out) {
        if (c_.rows.empty()) {
            out << "<p class=\"empty\">There are no messages in this export's date range.</p>";
            return "[]";
        }
        std::string days = "[", key, section;
        int count = 0;
        size_t dated = 0;
        while (dated < c_.rows.size() && notes::isUndated(c_.rows[dated]->date)) ++dated;
        writeUndated(out, dated);
        for (const Message* m : std::span(c_.rows).subspan(dated)) {
            const dates::CivilTime time = clock_.at(m->date);
            std::string rowKey = dayKey(time);
            if (rowKey != key) {
                if (!key.empty()) closeSection(out, section, days, key, count);
                key = std::move(rowKey);
                count = 0;
                openSection(section, key, m->date);
            }
            ++count;
            writeRow(section, *m, time);
        }
        if (!key.empty()) closeSection(out, section, days, key, count);
        return days + "]";
    }

private:
    // Undated rows come first (they sort first). They belong to no day, so the day navigation
    // leaves them out.
    void writeUndated(std::ostream& out, size_t count) {
        if (count == 0) return;
        std::string section = "<section class=\"day\" id=\"d-undated\"><h2><span>" +
                              escape(notes::undated) + "</span></h2>";
        for (const Message* m : std::span(c_.rows).first(count))
            writeRow(section, *m, std::nullopt);
        section += "</section>\n";
        out.write(section.data(), static_cast<std::streamsize>(section.size()));
    }

    void openSection(std::string& section, const std::string& key, Date date) {
        section += "<section class=\"day\" id=\"d-" + key + "\"><h2><span>" +
                   escape(dayHeading_.format(date)) + "</span></h2>";
    }

    // Only one day is held at a time: the page of a long conversation never sits in memory.
    static void closeSection(std::ostream& out, std::string& section, std::string& days,
                             const std::string& key, int count) {
        section += "</section>\n";
        out.write(section.data(), static_cast<std::streamsize>(section.size()));
        section.clear();
        days += (days.size() > 1 ? ",[\"" : "[\"") + key + "\"," + std::to_string(count) + "]";
    }

    // `time` is absent for an undated row.
    void writeRow(std::string& out, const Message& m, const std::optional<dates::CivilTime>& time) {
        if (m.call || m.systemNotice) {
            // Calls are not message records: no anchor that a message could collide with.
            out += m.call ? std::string("<div class=\"sys\">")
                          : "<div class=\"sys\" id=\"m" + std::to_string(m.id) + "\">";
            out += escape(m.call ? CallHistory::summary(*m.call) : *m.systemNotice);
            out += " <span class=\"id\">" + recordLabel(m) + "</span></div>";
            skipAttachments(m);
            return;
        }
        out += m.isFromMe ? "<div class=\"m me\" id=\"m" : "<div class=\"m them\" id=\"m";
        out += std::to_string(m.id) + "\"><div class=\"b\" title=\"" +
               (time ? exactTime(*time) : escape(notes::undated)) + "\">";
        writeReply(out, m);
        // dir="auto": a right-to-left text keeps its punctuation on its own side.
        out += "<div class=\"text\" dir=\"auto\">" + linkify(bodyText(m)) + "</div>";
        const size_t firstAttachment = next_;
        for (const auto& a : m.attachments) {
            if (!a.isHidden) writeAttachment(out, c_.copies.at(next_++).rendered);
        }
        writeNotes(out, m, firstAttachment);
        writeEdits(out, m);
        writeMeta(out, m, time);
        writeReactions(out, m);
        out += "</div></div>";
    }

    void skipAttachments(const Message& m) {
        for (const auto& a : m.attachments) next_ += a.isHidden ? 0 : 1;
    }

    void writeReply(std::string& out, const Message& m) {
        if (!m.replyToGUID) return;
        const auto target = byGUID_.find(*m.replyToGUID);
        if (target == byGUID_.end()) {
            out +=
                "<div class=\"reply\">↩︎ Reply to a message not found in the exported "
                "conversation(s)</div>";
            return;
        }
        const Message& t = *target->second.message;
        const std::string who =
            escape(c_.nameFor(t.isFromMe, t.sender)) + " (“" + escape(excerpt(bodyText(t)));
        if (target->second.inPage) {
            out += "<a class=\"reply\" href=\"#m" + std::to_string(t.id) + "\">↩︎ Reply to " +
                   who + "”)</a>";
        } else {
            out += "<div class=\"reply\">↩︎ Reply to " + who +
                   "”, outside this export's date range)</div>";
        }
    }

    static void writeAttachment(std::string& out, const RenderedAttachment& a) {
        const std::string name = escape(a.name);
        const std::string original = urlPath(a.original);
        const std::string display = urlPath(a.display);
        const std::string fileLink = "<a class=\"file-link\" href=\"" + original +
                                     "\" target=\"_blank\">" + name +
                                     ": converted preview shown; original file</a>";
        switch (a.kind) {
            case Kind::image:
                out += "<a class=\"att img\" href=\"" + original +
                       "\" target=\"_blank\"><img loading=\"lazy\" src=\"" + display + "\" alt=\"" +
                       name + "\"></a>";
                if (a.isConverted) out += fileLink;
                break;
            case Kind::sticker:
                out += "<img class=\"sticker\" loading=\"lazy\" src=\"" + display +
                       "\" alt=\"Sticker\">";
                break;
            case Kind::video:
                out += "<video class=\"att\" controls preload=\"none\" src=\"" + display +
                       "\"></video>";
                break;
            case Kind::audio:
                out += "<audio controls preload=\"none\" src=\"" + display + "\"></audio>";
                if (a.isConverted) out += fileLink;
                break;
            case Kind::file:
                out += "<a class=\"att file\" href=\"" + original + "\" target=\"_blank\">📎 " +
                       name + "</a>";
                break;
            case Kind::hidden:
                out += "<a class=\"att file\" href=\"" + original +
                       "\" target=\"_blank\" title=\"Data file Messages keeps behind a message and "
                       "does not show as an attachment\">📎 " +
                       name + " (message data file)</a>";
                break;
            case Kind::missing:
                out += "<div class=\"att file missing\">⚠️ " + name +
                       ": listed in the database but not stored on " + thisMachine + "</div>";
                break;
            case Kind::failed:
                out += "<div class=\"att file missing\">⚠️ " + name + ": exists on " +
                       thisMachine + " but could not be copied (see attachments.csv)</div>";
                break;
        }
        if (a.problem) out += "<div class=\"note\">⚠️ " + escape(*a.problem) + "</div>";
    }

    void writeNotes(std::string& out, const Message& m, size_t firstAttachment) {
        if (m.isUnsent)
            out +=
                "<div class=\"note\">This message was unsent. Messages does not keep the "
                "original content.</div>";
        if (const auto deleted = notes::recentlyDeleted(m))
            out += "<div class=\"note\">" + escape(*deleted) + "</div>";
        if (const auto app = notes::appLabel(m))
            out += "<div class=\"note\">" + escape(*app) + "</div>";
        for (const auto& part : m.recoveredParts) {
            out += "<div class=\"note\">" + notes::recoveredPart(part);
            if (part.deletedAt) out += " (deleted " + exactTime(clock_.at(*part.deletedAt)) + ")";
            out += ": " + escape(part.text.value_or("(unreadable)")) + "</div>";
        }
        for (size_t i = firstAttachment; i < next_; ++i) {
            const CopiedAttachment& copy = c_.copies[i];
            const auto text = c_.machineText.find(copy.attachment.id);
            if (text == c_.machineText.end()) continue;
            out += "<div class=\"note\">" + escape(text->second.label()) +
                   escape(text->second.text) + "</div>";
        }
    }

    static void writeEdits(std::string& out, const Message& m) {
        if (!m.isEdited) return;
        const auto& versions = m.editHistory;
        if (versions.empty()) {
            out +=
                "<div class=\"edits\">Edited. Messages did not store the earlier versions.</div>";
            return;
        }
        out += "<details class=\"edits\"><summary>Edited · " + std::to_string(versions.size()) +
               " versions</summary><ol>";
        for (size_t i = 0; i < versions.size(); ++i) {
            const std::string label =
                i > 0 && i + 1 == versions.size() ? "Final" : notes::editVersion(i);
            out += "<li><b>" + label + "</b><div>" +
                   (versions[i].text ? escape(*versions[i].text)
                                     : "<em>(version could not be read)</em>") +
                   "</div></li>";
        }
        out += "</ol></details>";
    }

    void writeMeta(std::string& out, const Message& m,
                   const std::optional<dates::CivilTime>& time) {
        out += "<div class=\"meta\">";
        if (!m.isFromMe) out += escape(c_.nameFor(false, m.sender)) + " · ";
        out += time ? clockTime(*time) : escape(notes::undated);
        if (m.effect) out += " · Sent with " + escape(*m.effect) + " effect";
        if (m.dateDelivered) out += " · Delivered " + clockTime(clock_.at(*m.dateDelivered));
        if (m.dateRead) out += " · Read " + clockTime(clock_.at(*m.dateRead));
        if (m.isUnsent) out += " · Unsent";
        if (m.errorCode != 0) out += " · Not delivered (error " + std::to_string(m.errorCode) + ")";
        out += " <span class=\"id\">" + recordLabel(m) + "</span></div>";
    }

    void writeReactions(std::string& out, const Message& m) {
        if (m.reactions.empty()) return;
        // Grouped by emoji in order of first appearance.
        std::vector<std::pair<std::string, std::vector<std::string>>> groups;
        for (const auto& r : m.reactions) {
            auto group = std::find_if(groups.begin(), groups.end(),
                                      [&](const auto& g) { return g.first == r.emoji; });
            if (group == groups.end()) group = groups.insert(groups.end(), {r.emoji, {}});
            group->second.push_back(c_.nameFor(r.isFromMe, r.sender));
        }
        out += "<div class=\"rx\">";
        for (const auto& [emoji, who] : groups) {
            std::string names;
            for (const auto& name : who) names += (names.empty() ? "" : ", ") + name;
            out += "<span title=\"" + escape(names) + "\">" + escape(emoji) + "<small>" +
                   escape(who.size() == 1 ? who[0] : std::to_string(who.size())) +
                   "</small></span>";
        }
        out += "</div>";
    }

    const PageContent& c_;
    dates::CivilClock clock_;
    PatternFormatter dayHeading_{"EEEE, d MMMM yyyy", "en_US_POSIX"};
    struct Target {
        const Message* message;
        bool inPage;
    };
    std::unordered_map<std::string_view, Target> byGUID_;  // views of the messages' own guids
    size_t next_ = 0;  // the next attachment copy, in page order
};

struct Counts {
    int64_t messages = 0, calls = 0, attachments = 0, copied = 0, missing = 0, failed = 0;
};

Counts countsOf(const PageContent& c) {
    Counts counts;
    for (const Message* m : c.rows) ++(m->call ? counts.calls : counts.messages);
    counts.attachments = static_cast<int64_t>(c.copies.size());
    for (const auto& copy : c.copies) {
        counts.copied += copy.copied() ? 1 : 0;
        counts.missing += copy.isMissing() ? 1 : 0;
        counts.failed += copy.isFailed() ? 1 : 0;
    }
    return counts;
}

// The dates the rows span; undated rows have no place in it.
std::string rowsRange(const PageContent& c) {
    const auto first = std::find_if(c.rows.begin(), c.rows.end(),
                                    [](const Message* m) { return !notes::isUndated(m->date); });
    if (first == c.rows.end()) return c.rows.empty() ? "no messages" : "no dates stored";
    return longDate((*first)->date) + " – " + longDate(c.rows.back()->date);
}

std::string subtitle(const PageContent& c, const Counts& n) {
    std::string out = std::to_string(n.messages) + " messages · ";
    if (n.calls > 0) out += std::to_string(n.calls) + " calls · ";
    return out + std::to_string(n.attachments) + " attachments · " + rowsRange(c);
}

std::string participants(const PageContent& c) {
    const auto& names = c.options.participants;
    if (names.empty()) return "Me (no other participants are recorded)";
    std::string list;
    for (size_t i = 0; i < names.size(); ++i) {
        list += i == 0 ? "" : (i + 1 == names.size() ? " and " : ", ");
        list += names[i];
    }
    return "Me and " + list + " (" + std::to_string(names.size() + 1) +
           " people, as recorded by the source)";
}

std::string requestedRange(const ArchiveOptions& o) {
    if (!o.from && !o.to) return "Entire conversation";
    return (o.from ? longDate(*o.from) : "the first message") + " – " +
           (o.to ? longDate(*o.to) : "the last message") + " (inclusive)";
}

std::string zoneLine() {
    const dates::CivilTime now = dates::CivilClock().at(Clock::now());
    const std::string exact = exactTime(now);
    const std::string offset = exact.substr(exact.rfind(' ') + 1);
    return "Shown in " + dates::currentTimeZone() + " (currently UTC" +
           (offset == "Z" ? "" : offset) +
           "). Hover over a message for its exact timestamp with UTC offset; messages.csv has UTC "
           "times.";
}

std::string about(const PageContent& c, const Counts& n) {
    std::vector<std::pair<std::string, std::string>> items{
        {"Participants", participants(c)},
        {"Date range requested", requestedRange(c.options)},
        {"Messages included",
         std::to_string(n.messages) + (c.rows.empty() ? "" : ", dated " + rowsRange(c))}};
    if (n.calls > 0)
        items.emplace_back("Calls included",
                           std::to_string(n.calls) + " phone and FaceTime calls from " +
                               thisMachine +
                               "'s call history, shown between the messages and listed in "
                               "calls.csv. Only calls synced to " +
                               thisMachine + " are known.");
    if (c.options.callLogIssue) items.emplace_back("Calls", *c.options.callLogIssue);
    items.emplace_back("Times", zoneLine());
    items.emplace_back(
        "Source", c.options.sourceDescription + ". Exported " +
                      dates::formatStyled(Clock::now(), dates::Style::long_, dates::Style::long_));
    items.emplace_back(
        "Completeness",
        "Every database row in the range is included. Text that could not be decoded, unsent "
        "messages, edits and deleted parts are marked where they occur; messages.csv keeps every "
        "stored detail.");
    items.emplace_back(
        "Attachments",
        std::to_string(n.copied) +
            " copied byte-for-byte into attachments/ and verified by SHA-256 (see "
            "attachments.csv). HEIC photos and voice memos also have a converted preview for "
            "browsers; the preview is labelled and the original file is linked beside it.");
    items.emplace_back("Missing attachments",
                       n.missing == 0 ? "None"
                                      : std::to_string(n.missing) +
                                            " files are listed in the Messages database but are "
                                            "not stored on " +
                                            thisMachine +
                                            " (usually kept only in iCloud). "
                                            "They are marked where they occur and listed in "
                                            "attachments.csv.");
    items.emplace_back("Copy failures",
                       n.failed == 0 ? "None"
                                     : std::to_string(n.failed) + " files exist on " + thisMachine +
                                           " but could not be read or "
                                           "copied; each is marked where it occurs and the error "
                                           "is in attachments.csv.");
    items.emplace_back("Integrity",
                       "checksums.txt lists the SHA-256 of every file in this folder.");
    std::string out = "<details class=\"about\"><summary>About this export</summary><dl>";
    for (const auto& [term, text] : items)
        out += "<dt>" + escape(term) + "</dt><dd>" + escape(text) + "</dd>";
    return out + "</dl></details>";
}

}  // namespace

void writePage(const PageContent& content, std::ostream& out) {
    constexpr std::string_view bodyMark = "{{BODY}}";
    const std::string_view page = embedded::archiveTemplate;
    const size_t body = page.find(bodyMark);
    const Counts counts = countsOf(content);
    out << fill(page.substr(0, body), {{"TITLE", escape(content.options.title)},
                                       {"SUBTITLE", escape(subtitle(content, counts))},
                                       {"ABOUT", about(content, counts)}});
    const std::string days = BodyWriter(content).write(out);
    out << fill(page.substr(body + bodyMark.size()), {{"DAYS", days}});
}

}  // namespace bc::html
