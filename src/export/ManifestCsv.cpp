#include "export/ManifestCsv.h"

#include <openssl/evp.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "model/MessageNotes.h"
#include "sources/MessageDecoding.h"
#include "support/DateFormat.h"
#include "support/Errors.h"

namespace bc::manifest {

namespace {

std::string flag(bool value) {
    return value ? "1" : "0";
}

// Standard alphabet, padded, no line breaks.
std::string base64(std::string_view bytes) {
    std::string out(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    const int written = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                                        reinterpret_cast<const unsigned char*>(bytes.data()),
                                        static_cast<int>(bytes.size()));
    out.resize(static_cast<size_t>(written));
    return out;
}

template <class T, class Fn>
std::string joinLines(const std::vector<T>& items, Fn&& lineOf) {
    std::string out;
    for (const auto& item : items) {
        const std::optional<std::string> text = lineOf(item);
        if (!text) continue;
        if (!out.empty()) out += '\n';
        out += *text;
    }
    return out;
}

std::string joinedIDs(const std::vector<Attachment>& attachments) {
    std::string out;
    for (const auto& a : attachments) {
        if (!out.empty()) out += ';';
        out += std::to_string(a.id);
    }
    return out;
}

std::string editHistory(const Message& m) {
    return joinLines(m.editHistory, [](const EditVersion& v) -> std::optional<std::string> {
        return "[" + date(v.date) + "] " + v.text.value_or("(unreadable)");
    });
}

std::string recoveredParts(const Message& m) {
    return joinLines(m.recoveredParts, [](const RecoveredPart& p) -> std::optional<std::string> {
        return "[part " + std::to_string(notes::partNumber(p)) + ", deleted " +
               (p.deletedAt ? date(*p.deletedAt) : "?") + "] " + p.text.value_or("(unreadable)");
    });
}

std::string attachmentMachineText(const Message& m, const MachineText& machineText) {
    return joinLines(m.attachments, [&](const Attachment& a) -> std::optional<std::string> {
        const auto found = machineText.find(a.id);
        if (found == machineText.end()) return std::nullopt;
        return "[attachment " + std::to_string(a.id) + ", machine-generated] " + found->second.text;
    });
}

// The reader's name for the reaction type; "type " + the number for one it does not know.
std::string reactionName(int64_t kind) {
    if (const auto name = messages::tapbackName(kind % 1000)) return std::string(*name);
    return "type " + std::to_string(kind);
}

std::string deletedAt(const Message& m) {
    if (m.deletedAt) return date(*m.deletedAt);
    return m.isInRecentlyDeleted ? "unknown" : "";
}

Row messageRow(const Message& m, const NameFor& nameFor, const MachineText& machineText) {
    return {std::to_string(m.id),
            m.guid,
            std::to_string(m.chatID),
            notes::isUndated(m.date) ? "" : date(m.date),
            nameFor(m.isFromMe, m.sender),
            m.sender,
            flag(m.isFromMe),
            m.text,
            m.textAsStored,
            m.undecodedBody ? base64(*m.undecodedBody) : "",
            joinedIDs(m.attachments),
            m.replyToGUID.value_or(""),
            flag(m.isEdited),
            editHistory(m),
            flag(m.isUnsent),
            std::to_string(m.errorCode),
            m.effect.value_or(""),
            m.appLabel.value_or(""),
            m.systemNotice.value_or(""),
            date(m.dateDelivered),
            date(m.dateRead),
            deletedAt(m),
            recoveredParts(m),
            attachmentMachineText(m, machineText)};
}

}  // namespace

std::string date(Date value) {
    return dates::iso8601Millis(value);
}

std::string date(const std::optional<Date>& value) {
    return value ? date(*value) : "";
}

std::string quotedField(std::string_view field) {
    std::string out;
    out.reserve(field.size() + 2);
    out += '"';
    for (size_t at = 0;;) {
        const size_t quote = field.find('"', at);
        out.append(field.substr(at, quote == std::string_view::npos ? quote : quote + 1 - at));
        if (quote == std::string_view::npos) break;
        out += '"';
        at = quote + 1;
    }
    out += '"';
    return out;
}

std::string line(const Row& row) {
    std::string out;
    for (size_t i = 0; i < row.size(); ++i) {
        if (i > 0) out += ',';
        out += quotedField(row[i]);
    }
    return out;
}

std::string text(const Rows& rows) {
    std::string out = "\xEF\xBB\xBF";
    size_t size = 0;
    for (const auto& row : rows)
        for (const auto& field : row) size += field.size() + 3;
    out.reserve(size + rows.size() * 2 + 3);
    for (const auto& row : rows) {
        out += line(row);
        out += "\r\n";
    }
    return out;
}

void writeCSV(const Rows& rows, const std::filesystem::path& file) {
    writeFile(file, text(rows));
}

CsvStream::CsvStream(std::ostream& out) : out_(out) {
    out_ << "\xEF\xBB\xBF";
}

void CsvStream::add(const Row& row) {
    line_ = line(row);
    line_ += "\r\n";
    out_.write(line_.data(), static_cast<std::streamsize>(line_.size()));
}

void writeFile(const std::filesystem::path& file, std::string_view bytes) {
    writeFile(file, [&](std::ostream& out) {
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    });
}

void writeFile(const std::filesystem::path& file, const std::function<void(std::ostream&)>& write) {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    write(out);
    out.close();
    if (!out)
        throw Error("Couldn't write " + file.filename().string() + ": " + std::strerror(errno));
}

Rows messageRows(const std::vector<const Message*>& messages, const NameFor& nameFor,
                 const MachineText& machineText) {
    Rows rows;
    rows.reserve(messages.size() + 1);
    messageRows(messages, nameFor, machineText, [&](const Row& row) { rows.push_back(row); });
    return rows;
}

void messageRows(const std::vector<const Message*>& messages, const NameFor& nameFor,
                 const MachineText& machineText, const std::function<void(const Row&)>& each) {
    each({"message_rowid",
          "guid",
          "chat_rowid",
          "date_utc",
          "sender",
          "handle",
          "is_from_me",
          "text",
          "text_as_stored",
          "undecoded_body_base64",
          "attachment_rowids",
          "reply_to_guid",
          "edited",
          "edit_history",
          "unsent",
          "error_code",
          "effect",
          "imessage_app",
          "notice",
          "date_delivered_utc",
          "date_read_utc",
          "deleted_at_utc",
          "recovered_deleted_parts",
          "attachment_machine_text"});
    for (const Message* m : messages) {
        if (!m->isCall()) each(messageRow(*m, nameFor, machineText));
    }
}

std::string MachineTextNote::label() const {
    return std::string(isTranscript ? "Transcript" : "Text in image") +
           " (machine-generated, may contain errors): ";
}

Rows machineTextRows(const MachineText& machineText) {
    Rows rows{{"attachment_id", "kind", "engine", "created_at", "file_bytes", "text"}};
    for (const auto& [id, note] : machineText)
        rows.push_back({std::to_string(id), note.isTranscript ? "transcript" : "imageText",
                        note.engine, date(note.createdAt), std::to_string(note.fileBytes),
                        note.text});
    return rows;
}

Rows reactionRows(const std::vector<ReactionEvent>& events,
                  const std::unordered_map<std::string, const Message*>& byGUID,
                  const NameFor& nameFor) {
    Rows rows{{"reaction_rowid", "date_utc", "sender", "handle", "is_from_me", "action", "reaction",
               "emoji", "target_message_rowid", "target_guid"}};
    rows.reserve(events.size() + 1);
    for (const auto& e : events) {
        const auto target = byGUID.find(e.targetGUID);
        rows.push_back({std::to_string(e.rowID), date(e.date), nameFor(e.isFromMe, e.sender),
                        e.sender, flag(e.isFromMe), e.isRemoval ? "removed" : "added",
                        reactionName(e.kind), e.emoji,
                        target == byGUID.end() ? "(target not in conversation)"
                                               : std::to_string(target->second->id),
                        e.targetGUID});
    }
    return rows;
}

const Row& attachmentsHeader() {
    static const Row header{"attachment_rowid", "message_rowid", "status",
                            "hidden",           "original_name", "mime_type",
                            "source_path",      "exported_path", "bytes",
                            "sha256_source",    "sha256_copy",   "copy_matches_source"};
    return header;
}

}  // namespace bc::manifest
