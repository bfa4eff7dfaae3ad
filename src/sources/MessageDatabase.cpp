#include "sources/MessageDatabase.h"

#include "sources/CustodySource.h"

#include <algorithm>
#include <unordered_map>

#include "sources/ChatListing.h"
#include "sources/MessageDecoding.h"
#include "sources/TranscriptOrder.h"
#include "support/CancelFlag.h"
#include "support/Errors.h"
#include "support/Files.h"
#include "support/Sha256.h"
#include "support/Sqlite.h"

namespace bc {

namespace fs = std::filesystem;

namespace {

constexpr int busyTimeoutMilliseconds = 10000;
constexpr const char* recoverableJoin = "chat_recoverable_message_join";

// The transcript's rows after the ids prefix, in row id order: the membership columns are
// placeholders filled in by the reader, which also sorts (see TranscriptOrder). The last column
// says whether the date sorts as a plain integer. Column texts come from probes.
std::string messageStatement(const std::function<std::string(const char*, const char*)>& column) {
    return "\nSELECT m.ROWID, m.guid, m.date, m.is_from_me, IFNULL(h.id, ''), m.text, " +
           column("attributedBody", "NULL") + ",\n       " +
           column("associated_message_type", "0") + ", " + column("item_type", "0") + ", IFNULL(" +
           column("associated_message_guid", "NULL") + ", ''),\n       IFNULL(" +
           column("associated_message_emoji", "NULL") + ", ''), " +
           column("thread_originator_guid", "NULL") + ", " + column("date_edited", "0") +
           ",\n       " + column("date_retracted", "0") + ", IFNULL(" +
           column("balloon_bundle_id", "NULL") + ", ''), 0, " + column("error", "0") +
           ",\n       IFNULL(" + column("expressive_send_style_id", "NULL") + ", ''), " +
           column("message_summary_info", "NULL") + ",\n       " + column("date_delivered", "0") +
           ", " + column("date_read", "0") +
           ", NULL, typeof(m.date) IN ('integer', 'null')\n"
           "FROM message m\n"
           "LEFT JOIN handle h ON h.ROWID = m.handle_id\n"
           "WHERE m.ROWID IN (SELECT message_id FROM ids)";
}

messages::StoredRow storedRow(const sqlite::Statement& row) {
    auto text = row.optionalText(5);
    // The rich-text body is only read where no plain text is stored.
    const bool needsBody = !text || text->empty();
    return messages::StoredRow{
        .rowID = row.int64(0),
        .guid = row.text(1),
        .date = row.int64(2),
        .isFromMe = row.int64(3) != 0,
        .sender = row.text(4),
        .text = std::move(text),
        .attributedBody = needsBody ? row.optionalBlob(6) : std::nullopt,
        .associatedType = row.int64(7),
        .itemType = row.int64(8),
        .associatedGUID = row.text(9),
        .associatedEmoji = row.text(10),
        .threadOriginatorGUID = row.optionalText(11),
        .dateEdited = row.int64(12),
        .dateRetracted = row.int64(13),
        .balloonBundleID = row.text(14),
        .chatID = row.int64(15),
        .error = row.int64(16),
        .sendStyle = row.text(17),
        .summaryInfo = row.optionalBlob(18),
        .dateDelivered = row.int64(19),
        .dateRead = row.int64(20),
        .deleted = row.isNull(21) ? std::nullopt : std::optional<int64_t>(row.int64(21)),
    };
}

bool isPresent(const fs::path& file) {
    std::error_code error;
    return fs::exists(file, error);
}

template <typename Value>
std::vector<Value> takeFor(std::unordered_map<int64_t, std::vector<Value>>& byMessage,
                           int64_t messageID) {
    const auto found = byMessage.find(messageID);
    if (found == byMessage.end()) return {};
    return std::move(found->second);
}

}  // namespace

std::string idList(const std::vector<int64_t>& ids) {
    std::string out;
    for (const int64_t id : ids) {
        if (!out.empty()) out += ',';
        out += std::to_string(id);
    }
    return out;
}

std::string expandTilde(const std::string& path) {
    if (path == "~") return files::homeFolder().string();
    if (path.starts_with("~/")) return (files::homeFolder() / path.substr(2)).string();
    return path;
}

MessageDatabase::MessageDatabase(const fs::path& path, std::optional<Origin> origin,
                                 PathMapper pathMapper, std::optional<SealedSnapshot> sealed)
    : pathMapper_(std::move(pathMapper)),
      sealed_(std::move(sealed)),
      path_(path),
      origin_(origin.value_or(originOf(path))),
      walPredatesOpening_(isPresent(sqlite::writeAheadLog(path))) {
    // Only the live database is read in place, as Messages itself shares it with its readers.
    const auto mode = origin_ == Origin::sealedCopy ? sqlite::OpenMode::readOnlyImmutable
                      : isLive()                    ? sqlite::OpenMode::readOnly
                                                    : sqlite::OpenMode::readOnlyUntouched;
    db_ = std::make_unique<sqlite::Connection>(path, mode);
    db_->setBusyTimeout(busyTimeoutMilliseconds);
    probeAccess();
    db_->execute(mapPragma);
}

MessageDatabase::~MessageDatabase() = default;

// macOS lets a process without Full Disk Access open the file but not read it; so does a file
// that isn't a database. Either is an access problem, not a query failure.
void MessageDatabase::probeAccess() {
    std::lock_guard guard(lock_);
    try {
        auto statement = db_->prepare("SELECT 1 FROM message LIMIT 1");
        while (statement.step()) {
        }
    } catch (const DBError& error) {
        db_.reset();
        throw DBError::accessDenied(error.text());
    }
}

fs::path MessageDatabase::defaultPath() {
    return files::homeFolder() / "Library" / "Messages" / "chat.db";
}

MessageDatabase::Origin MessageDatabase::originOf(const fs::path& path) {
    return path == defaultPath() ? Origin::live : Origin::chosenFile;
}

bool MessageDatabase::isLive() const {
    return !sealed_ && (origin_ == Origin::live || origin_ == Origin::demoSample);
}

std::string MessageDatabase::optionalColumn(const std::string& table, const std::string& alias,
                                            const std::string& column,
                                            const std::string& fallback) {
    return db_->columnExists(table, column) ? alias + "." + column : fallback;
}

std::string MessageDatabase::messageColumn(const std::string& column, const std::string& fallback) {
    return optionalColumn("message", "m", column, fallback);
}

std::vector<Chat> MessageDatabase::fetchChats() {
    std::lock_guard guard(lock_);
    const sqlite::ReadTransaction oneState(*db_);
    return chatListing::list(*db_);
}

std::string MessageDatabase::idsPrefix(const std::string& ids) {
    return "WITH " + membershipTable("ids", ids);
}

// The common table of every membership row of the conversations, named `name`.
std::string MessageDatabase::membershipTable(const std::string& name, const std::string& ids) {
    std::string sql =
        name +
        "(message_id, chat_id, deleted) AS (\n"
        "    SELECT message_id, chat_id, NULL FROM chat_message_join WHERE chat_id IN (" +
        ids;
    if (db_->tableExists(recoverableJoin)) {
        sql +=
            ")\n"
            "    UNION ALL\n"
            "    -- -1 marks \"in Recently Deleted, date not recorded\", so membership never "
            "depends on the date.\n"
            "    SELECT message_id, chat_id, IFNULL(NULLIF(delete_date, 0), -1) FROM "
            "chat_recoverable_message_join WHERE chat_id IN (";
    } else {
        sql += ")\n    UNION ALL SELECT NULL, NULL, NULL WHERE 0 AND -1 NOT IN (";
    }
    return sql + ids + ")\n)";
}

// The ids prefix narrowed to the newest rows of the transcript's order.
std::string MessageDatabase::recentIDsPrefix(const std::string& ids, size_t rows) {
    auto statement = db_->prepare(idsPrefix(ids) +
                                  "\nSELECT m.ROWID FROM ids\n"
                                  "JOIN message m ON m.ROWID = ids.message_id\n"
                                  "GROUP BY m.ROWID\n"
                                  "ORDER BY m.date DESC, m.ROWID DESC LIMIT " +
                                  std::to_string(rows));
    std::vector<int64_t> recent;
    while (statement.step()) recent.push_back(statement.int64(0));
    return "WITH " + membershipTable("every", ids) +
           ",\nids(message_id, chat_id, deleted) AS (\n"
           "    SELECT message_id, chat_id, deleted FROM every WHERE message_id IN (" +
           idList(recent) + ")\n)";
}

std::vector<std::pair<int64_t, Attachment>> MessageDatabase::readAttachments(
    const std::string& prefix) {
    std::vector<std::pair<int64_t, Attachment>> rows;
    if (!db_->tableExists("attachment") || !db_->tableExists("message_attachment_join"))
        return rows;
    // Older databases lack these columns: no sticker, not hidden, nothing recorded.
    const auto optional = [&](const char* column, const char* fallback) {
        const std::string stored = optionalColumn("attachment", "a", column, "NULL");
        return "IFNULL(" + stored + ", " + fallback + ")";
    };
    auto statement =
        db_->prepare(prefix +
                     "\nSELECT DISTINCT maj.message_id, a.ROWID, IFNULL(a.filename, ''), "
                     "IFNULL(a.mime_type, ''), "
                     "IFNULL(a.uti, ''),\n"
                     "       IFNULL(a.transfer_name, ''), " +
                     optional("is_sticker", "0") + ", " + optional("hide_attachment", "0") +
                     ", IFNULL(a.guid, ''),\n       " + optional("transfer_state", "-1") + ", " +
                     optional("total_bytes", "-1") +
                     "\nFROM ids\n"
                     "JOIN message_attachment_join maj ON maj.message_id = ids.message_id\n"
                     "JOIN attachment a ON a.ROWID = maj.attachment_id\n"
                     "ORDER BY a.ROWID");
    while (statement.step()) {
        rows.emplace_back(statement.int64(0), Attachment{
                                                  .id = statement.int64(1),
                                                  .path = expandTilde(statement.text(2)),
                                                  .mimeType = statement.text(3),
                                                  .uti = statement.text(4),
                                                  .name = statement.text(5),
                                                  .isSticker = statement.int64(6) != 0,
                                                  .isHidden = statement.int64(7) != 0,
                                                  .guid = statement.text(8),
                                                  .totalBytes = statement.int64(10),
                                                  .transferState = statement.int64(9),
                                              });
    }
    return rows;
}

std::vector<std::pair<int64_t, std::vector<RecoveredPart>>> MessageDatabase::readRecoveredParts(
    const std::string& ids) {
    std::vector<std::pair<int64_t, std::vector<RecoveredPart>>> rows;
    if (!db_->tableExists("recoverable_message_part")) return rows;
    auto statement = db_->prepare(
        "SELECT message_id, part_index, delete_date, part_text FROM recoverable_message_part\n"
        "WHERE chat_id IN (" +
        ids + ") ORDER BY message_id, part_index");
    while (statement.step()) {
        const int64_t messageID = statement.int64(0);
        if (rows.empty() || rows.back().first != messageID)
            rows.emplace_back(messageID, std::vector<RecoveredPart>{});
        const auto stored = statement.optionalBlob(3);
        rows.back().second.push_back(RecoveredPart{
            .index = static_cast<int>(statement.int64(1)),
            .deletedAt = appleDate(statement.int64(2)),
            .text = stored ? messages::recoveredPartText(*stored) : std::nullopt,
        });
    }
    return rows;
}

Transcript MessageDatabase::fetchTranscript(const std::vector<int64_t>& chatIDs) {
    std::lock_guard guard(lock_);
    const sqlite::ReadTransaction oneState(*db_);
    const std::string ids = idList(chatIDs);
    return readTranscript(idsPrefix(ids), ids);
}

Transcript MessageDatabase::fetchRecentRows(const std::vector<int64_t>& chatIDs, size_t rows) {
    std::lock_guard guard(lock_);
    const sqlite::ReadTransaction oneState(*db_);
    const std::string ids = idList(chatIDs);
    return readTranscript(recentIDsPrefix(ids, rows), ids);
}

// The transcript of the memberships in `prefix`'s ids; `ids` lists the conversations.
Transcript MessageDatabase::readTranscript(const std::string& prefix, const std::string& ids) {
    std::unordered_map<int64_t, std::vector<Attachment>> attachments;
    for (auto& [messageID, attachment] : readAttachments(prefix)) {
        if (pathMapper_) attachment.path = pathMapper_(attachment.path, attachment.id);
        attachments[messageID].push_back(std::move(attachment));
    }
    std::unordered_map<int64_t, std::vector<RecoveredPart>> parts;
    for (auto& [messageID, list] : readRecoveredParts(ids))
        parts.emplace(messageID, std::move(list));

    // The cheap membership scan when ids are plain integers, else the grouped statement.
    auto memberships = transcriptOrder::membershipsByScan(*db_, prefix);
    std::optional<std::unordered_map<int64_t, transcriptOrder::Placement>> placements;
    if (!memberships) placements = transcriptOrder::placementsByStatement(*db_, prefix);
    const auto membershipOf = [&](int64_t rowID) -> const transcriptOrder::Membership* {
        if (memberships) {
            const auto found = memberships->find(rowID);
            return found == memberships->end() ? nullptr : &found->second;
        }
        const auto found = placements->find(rowID);
        return found == placements->end() ? nullptr : &found->second.membership;
    };

    Transcript transcript;
    transcriptOrder::ReadOrder order;
    // Allocated once: a huge conversation's list would otherwise double its way up.
    const size_t expected = memberships ? memberships->size() : placements->size();
    transcript.messages.reserve(expected);
    order.reserve(expected);
    auto statement =
        db_->prepare(prefix + messageStatement([this](const char* column, const char* fallback) {
                         return messageColumn(column, fallback);
                     }));
    while (statement.step()) {
        auto row = storedRow(statement);
        const auto* membership = membershipOf(row.rowID);
        if (!membership) continue;
        row.chatID = membership->chatID;
        row.deleted = membership->deleted;
        const bool isReaction = messages::isReaction(row.associatedType);
        order.add({.date = statement.isNull(2) ? std::nullopt : std::optional(row.date),
                   .rowID = row.rowID},
                  isReaction, statement.int64(22) != 0);
        if (isReaction) {
            transcript.reactionEvents.push_back(messages::reactionEvent(row));
            continue;
        }
        const int64_t id = row.rowID;
        messages::fillMessage(transcript.messages.emplace_back(), std::move(row),
                              takeFor(attachments, id), takeFor(parts, id));
    }
    if (!placements && !order.keysSortAsTheEngine())
        placements = transcriptOrder::placementsByStatement(*db_, prefix);
    order.apply(transcript.messages, transcript.reactionEvents,
                placements ? &*placements : nullptr);
    messages::foldReactions(transcript.messages, transcript.reactionEvents);
    return transcript;
}

std::optional<std::pair<Date, Date>> MessageDatabase::dateRange(
    const std::vector<int64_t>& chatIDs) {
    std::lock_guard guard(lock_);
    auto statement = db_->prepare("SELECT MIN(NULLIF(m.date, 0)), MAX(m.date) FROM (\n    " +
                                  memberIDs(idList(chatIDs), "UNION ALL") +
                                  "\n) ids JOIN message m ON m.ROWID = ids.message_id");
    if (!statement.step()) return std::nullopt;
    const auto first = appleDate(statement.int64(0));
    const auto last = appleDate(statement.int64(1));
    if (!first || !last) return std::nullopt;
    return std::pair{*first, *last};
}

// The message ids of the conversations, Recently Deleted included where the database has it.
std::string MessageDatabase::memberIDs(const std::string& ids, const std::string& combine) {
    std::string sql = "SELECT message_id FROM chat_message_join WHERE chat_id IN (" + ids + ")";
    if (db_->tableExists(recoverableJoin))
        sql += " " + combine +
               " SELECT message_id FROM chat_recoverable_message_join WHERE chat_id IN (" + ids +
               ")";
    return sql;
}

std::vector<std::string> MessageDatabase::handles(const std::vector<int64_t>& chatIDs) {
    std::lock_guard guard(lock_);
    std::vector<std::string> result;
    if (!db_->tableExists("chat_handle_join")) return result;
    auto statement = db_->prepare(
        "SELECT chj.chat_id, h.id FROM chat_handle_join chj JOIN handle h ON h.ROWID = "
        "chj.handle_id\n"
        "WHERE chj.chat_id IN (" +
        idList(chatIDs) + ")");
    while (statement.step()) result.push_back(statement.text(1));
    return result;
}

std::vector<std::pair<int64_t, std::string>> MessageDatabase::attachmentPaths(
    const std::optional<std::vector<int64_t>>& chatIDs) {
    std::lock_guard guard(lock_);
    std::vector<std::pair<int64_t, std::string>> result;
    if (!db_->tableExists("attachment")) return result;
    std::string sql = "SELECT ROWID, IFNULL(filename, '') FROM attachment";
    if (chatIDs) {
        sql =
            "SELECT DISTINCT a.ROWID, IFNULL(a.filename, '') FROM attachment a\n"
            "JOIN message_attachment_join maj ON maj.attachment_id = a.ROWID\n"
            "WHERE maj.message_id IN (" +
            memberIDs(idList(*chatIDs), "UNION") + ")";
    }
    auto statement = db_->prepare(sql);
    while (statement.step())
        result.emplace_back(statement.int64(0), expandTilde(statement.text(1)));
    return result;
}

int64_t MessageDatabase::messageRowCount() {
    std::lock_guard guard(lock_);
    auto statement = db_->prepare("SELECT COUNT(*) FROM message");
    statement.step();
    return statement.int64(0);
}

std::optional<Date> MessageDatabase::newestMessageDate() {
    std::lock_guard guard(lock_);
    auto statement =
        db_->prepare("SELECT MAX(m.date) FROM message m WHERE " +
                     messageColumn("associated_message_type", "0") + " NOT BETWEEN 2000 AND 3999");
    if (!statement.step()) return std::nullopt;
    return appleDate(statement.int64(0));
}

std::string MessageDatabase::changeSignature() {
    std::lock_guard guard(lock_);
    FileStamps stamps = fileStamps();
    if (lastSignature_ && lastSignature_->first == stamps) return lastSignature_->second;
    std::string signature = signatureByStatements();
    lastSignature_.emplace(std::move(stamps), signature);
    return signature;
}

MessageDatabase::FileStamps MessageDatabase::fileStamps() {
    const auto stamp =
        [](const fs::path& file) -> std::optional<std::pair<uintmax_t, fs::file_time_type>> {
        std::error_code error;
        const auto size = fs::file_size(file, error);
        if (error) return std::nullopt;
        const auto modified = fs::last_write_time(file, error);
        if (error) return std::nullopt;
        return std::pair{size, modified};
    };
    return {.dataVersion = dataVersion(),
            .database = stamp(path_),
            .log = stamp(sqlite::writeAheadLog(path_))};
}

std::string MessageDatabase::signatureByStatements() {
    const auto latest = [&](const char* column) {
        return db_->columnExists("message", column) ? "MAX(IFNULL(" + std::string(column) + ", 0))"
                                                    : std::string("0");
    };
    // (statement, number of values it gives)
    std::vector<std::pair<std::string, int>> statements = {
        {"SELECT MAX(ROWID), COUNT(*), " + latest("date_edited") + ", " + latest("date_retracted") +
             ",\n       " + latest("date_read") + ", " + latest("date_delivered") + " FROM message",
         6},
        {"SELECT COUNT(*) FROM chat_message_join", 1},
    };
    if (db_->tableExists(recoverableJoin))
        statements.emplace_back(
            "SELECT COUNT(*), MAX(IFNULL(delete_date, 0)) FROM chat_recoverable_message_join", 2);
    std::string signature;
    for (const auto& [sql, values] : statements) {
        auto statement = db_->prepare(sql);
        if (!statement.step()) continue;
        for (int column = 0; column < values; ++column) {
            if (!signature.empty()) signature += ':';
            signature += std::to_string(statement.int64(column));
        }
    }
    return signature;
}

int64_t MessageDatabase::dataVersion() {
    std::lock_guard guard(lock_);
    auto statement = db_->prepare("PRAGMA data_version");
    return statement.step() ? statement.int64(0) : 0;
}

CustodyRecord::Source MessageDatabase::custodySource() const {
    std::lock_guard guard(lock_);
    if (sealed_) return custodySource::ofSnapshot(*sealed_);
    if (!isLive()) return custodySource::ofDatabase(*this, "files");
    return custodySource::ofDatabase(*this, origin_ == Origin::demoSample ? "demo" : "live");
}

void MessageDatabase::backup(const fs::path& destination, const CancelFlag* cancel) {
    std::lock_guard guard(lock_);
    db_->backupTo(destination, cancel);
}

}  // namespace bc
