#include "sources/WhatsAppDatabase.h"

#include <cstdio>
#include <unordered_map>

#include "sources/CustodySource.h"
#include "support/Errors.h"
#include "support/Files.h"
#include "support/Sqlite.h"
#include "support/Text.h"

namespace bc {

namespace fs = std::filesystem;

namespace {

constexpr int busyTimeoutMilliseconds = 10000;
// WhatsApp's JID domains: phone-number accounts and groups.
constexpr std::string_view individualDomain = "s.whatsapp.net";
constexpr std::string_view groupDomain = "g.us";

enum MessageType : int64_t {
    text = 0,
    photo = 1,
    video = 2,
    voice = 3,
    contactCard = 4,
    location = 5,
    systemNotice = 6,
    linkPreview = 7,
    document = 8,
    groupNotice = 10,
    gif = 11,
    deleted = 14,
    sticker = 15,
};

struct MediaKind {
    const char* label;
    const char* mimeType;  // empty: from the file's extension
};

MediaKind mediaKind(int64_t type) {
    switch (type) {
        case photo:
            return {"Photo", "image/jpeg"};
        case video:
            return {"Video", "video/mp4"};
        case voice:
            return {"Voice message", "audio/mp4"};
        case document:
            return {"Document", ""};
        case gif:
            return {"GIF", "video/mp4"};
        case sticker:
            return {"Sticker", "image/jpeg"};
        default:
            return {"Media", ""};
    }
}

// ZMESSAGEDATE: seconds since 2001, stored as integer or real; 0 is no date.
std::optional<Date> storedDate(const sqlite::Statement& row, int column) {
    const double seconds = row.isNull(column) ? 0 : row.real(column);
    if (seconds == 0) return std::nullopt;
    return Date{seconds};
}

std::string placeholders(size_t count) {
    std::string list;
    for (size_t i = 0; i < count; ++i) list += i == 0 ? "?" : ",?";
    return list;
}

void bindIDs(sqlite::Statement& statement, const std::vector<int64_t>& ids) {
    for (size_t i = 0; i < ids.size(); ++i) statement.bind(static_cast<int>(i + 1), ids[i]);
}

struct Member {
    std::string handle;
    std::string name;
};

std::unordered_map<int64_t, Member> readMembers(sqlite::Connection& db) {
    std::unordered_map<int64_t, Member> members;
    auto statement = db.prepare(
        "SELECT Z_PK, IFNULL(ZMEMBERJID, ''), IFNULL(ZCONTACTNAME, IFNULL(ZFIRSTNAME, '')) FROM "
        "ZWAGROUPMEMBER");
    while (statement.step())
        members[statement.int64(0)] = {whatsapp::handle(statement.text(1)), statement.text(2)};
    return members;
}

std::unordered_map<int64_t, std::string> readChatJIDs(sqlite::Connection& db,
                                                      const std::vector<int64_t>& chatIDs) {
    std::unordered_map<int64_t, std::string> jids;
    auto statement =
        db.prepare("SELECT Z_PK, IFNULL(ZCONTACTJID, '') FROM ZWACHATSESSION WHERE Z_PK IN (" +
                   placeholders(chatIDs.size()) + ")");
    bindIDs(statement, chatIDs);
    while (statement.step()) jids[statement.int64(0)] = statement.text(1);
    return jids;
}

const char* const messageStatement =
    "SELECT m.Z_PK, IFNULL(m.ZSTANZAID, ''), m.ZMESSAGEDATE, m.ZISFROMME, IFNULL(m.ZTEXT, ''), "
    "m.ZMESSAGETYPE,\n"
    "       m.ZCHATSESSION, m.ZGROUPMEMBER, IFNULL(m.ZFROMJID, ''), m.ZSTARRED, m.ZMEDIAITEM,\n"
    "       IFNULL(mi.ZMEDIALOCALPATH, ''), IFNULL(mi.ZTITLE, ''), mi.ZFILESIZE, "
    "IFNULL(mi.ZVCARDNAME, ''),\n"
    "       mi.ZLATITUDE, mi.ZLONGITUDE, IFNULL(m.ZPUSHNAME, '')\n"
    "FROM ZWAMESSAGE m LEFT JOIN ZWAMEDIAITEM mi ON mi.Z_PK = m.ZMEDIAITEM\n"
    "WHERE m.ZCHATSESSION IN (";

class RowReader {
public:
    RowReader(std::unordered_map<int64_t, Member> members,
              std::unordered_map<int64_t, std::string> chatJIDs,
              const std::optional<fs::path>& mediaRoot)
        : members_(std::move(members)), chatJIDs_(std::move(chatJIDs)), mediaRoot_(mediaRoot) {}

    Message read(const sqlite::Statement& row) const {
        Message message;
        message.id = row.int64(0);
        message.guid = row.text(1);
        message.date = storedDate(row, 2).value_or(Date{});
        message.isFromMe = row.int64(3) != 0;
        message.text = row.text(4);
        message.textAsStored = message.text;
        message.chatID = row.int64(6);
        if (!message.isFromMe) message.sender = sender(row, message.chatID);
        if (row.int64(9) == 1) message.appLabel = "Starred in WhatsApp";
        const int64_t type = row.int64(5);
        if (!row.isNull(10)) message.attachments.push_back(attachment(row, type));
        applyType(message, row, type);
        return message;
    }

private:
    std::string sender(const sqlite::Statement& row, int64_t chatID) const {
        if (!row.isNull(7)) {
            const auto member = members_.find(row.int64(7));
            if (member != members_.end()) return member->second.handle;
        }
        const std::string fromJID = row.text(8);
        if (!fromJID.empty()) return whatsapp::handle(fromJID);
        const auto chat = chatJIDs_.find(chatID);
        return chat == chatJIDs_.end() ? std::string() : whatsapp::handle(chat->second);
    }

    Attachment attachment(const sqlite::Statement& row, int64_t type) const {
        const MediaKind kind = mediaKind(type);
        const std::string stored = row.text(11);
        Attachment attachment;
        attachment.id = row.int64(10);
        attachment.guid = "wa-media:" + row.text(1);
        // Without a media folder (an imported database alone) the file is not on this machine.
        if (!stored.empty() && mediaRoot_)
            attachment.path = (*mediaRoot_ / fs::path(stored).relative_path()).string();
        attachment.name = stored.empty() ? kind.label : fs::path(stored).filename().string();
        attachment.mimeType = *kind.mimeType ? kind.mimeType : whatsapp::mimeTypeForPath(stored);
        attachment.isSticker = type == sticker;
        if (!row.isNull(13)) attachment.totalBytes = row.int64(13);
        return attachment;
    }

    static void applyType(Message& message, const sqlite::Statement& row, int64_t type) {
        const std::string code = std::to_string(type);
        if (type == contactCard) {
            const std::string name = row.text(14);
            message.appLabel = "Shared contact card" + (name.empty() ? "" : ": " + name);
        } else if (type == location && !row.isNull(15)) {
            char label[96];
            std::snprintf(label, sizeof label, "Shared location: %.6f, %.6f", row.real(15),
                          row.real(16));
            message.appLabel = label;
        } else if (type == linkPreview) {
            const std::string title = row.text(12);
            if (!title.empty())
                message.text += (message.text.empty() ? "" : "\n") + ("Link preview: " + title);
        } else if (type == deleted) {
            message.isUnsent = true;
            message.systemNotice =
                "Deleted in WhatsApp (\"This message was deleted\"); the original content is not "
                "kept.";
        } else if (type == systemNotice || type == groupNotice) {
            if (message.text.empty())
                message.systemNotice =
                    "WhatsApp system notice (type " + code + "); no text is stored for it.";
        } else if (message.text.empty() && message.attachments.empty() && type != text) {
            message.systemNotice =
                "WhatsApp message of type " + code + " with no text or media stored.";
        }
    }

    std::unordered_map<int64_t, Member> members_;
    std::unordered_map<int64_t, std::string> chatJIDs_;
    const std::optional<fs::path>& mediaRoot_;
};

}  // namespace

namespace whatsapp {

std::string handle(const std::string& jid) {
    const size_t at = jid.find('@');
    if (at == std::string::npos) return jid;
    const std::string_view local(jid.data(), at);
    const bool digits = !local.empty() && local.find_first_not_of("0123456789") == local.npos;
    return digits && std::string_view(jid).substr(at + 1) == individualDomain
               ? "+" + jid.substr(0, at)
               : jid;
}

bool isGroupJID(const std::string& jid) {
    const size_t at = jid.find('@');
    return at != std::string::npos && std::string_view(jid).substr(at + 1) == groupDomain;
}

std::string mimeTypeForPath(const std::string& path) {
    std::string extension = text::toLowerAscii(fs::path(path).extension().string());
    if (!extension.empty()) extension.erase(0, 1);
    const auto in = [&](std::initializer_list<std::string_view> list) {
        for (const auto item : list)
            if (extension == item) return true;
        return false;
    };
    if (extension == "jpg") return "image/jpeg";
    if (in({"jpeg", "png", "heic", "webp", "gif"})) return "image/" + extension;
    if (in({"mp4", "mov"})) return "video/" + extension;
    if (in({"opus", "m4a", "aac", "mp3", "ogg"})) return "audio/" + extension;
    return "application/octet-stream";
}

}  // namespace whatsapp

namespace {

sqlite::OpenMode openMode(WhatsAppDatabase::Origin origin) {
    switch (origin) {
        case WhatsAppDatabase::Origin::live:
            return sqlite::OpenMode::readOnly;
        case WhatsAppDatabase::Origin::sealedImport:
            return sqlite::OpenMode::readOnlyImmutable;
        case WhatsAppDatabase::Origin::chosenFile:
            break;
    }
    return sqlite::OpenMode::readOnlyUntouched;
}

}  // namespace

WhatsAppDatabase::WhatsAppDatabase(const fs::path& path, std::optional<fs::path> mediaRoot,
                                   Origin origin, std::string label)
    : path_(path), mediaRoot_(std::move(mediaRoot)), origin_(origin), label_(std::move(label)) {
    db_ = std::make_unique<sqlite::Connection>(path, openMode(origin));
    db_->setBusyTimeout(busyTimeoutMilliseconds);
    try {
        auto probe = db_->prepare("SELECT 1 FROM ZWAMESSAGE LIMIT 1");
        while (probe.step()) {
        }
    } catch (const DBError& error) {
        db_.reset();
        throw DBError::accessDenied(probeFailure + error.text());
    }
}

WhatsAppDatabase::~WhatsAppDatabase() = default;

fs::path WhatsAppDatabase::macContainer() {
    return files::homeFolder() / "Library" / "Group Containers" /
           "group.net.whatsapp.WhatsApp.shared";
}

std::unique_ptr<WhatsAppDatabase> WhatsAppDatabase::openMac() {
    return std::make_unique<WhatsAppDatabase>(macDatabasePath(), macContainer() / "Message",
                                              Origin::live, liveLabel);
}

std::vector<Chat> WhatsAppDatabase::fetchChats() {
    std::lock_guard guard(lock_);
    const sqlite::ReadTransaction oneState(*db_);
    std::unordered_map<int64_t, std::vector<std::string>> groupMembers;
    auto members = db_->prepare(
        "SELECT ZCHATSESSION, ZMEMBERJID FROM ZWAGROUPMEMBER WHERE ZMEMBERJID IS NOT NULL");
    while (members.step())
        groupMembers[members.int64(0)].push_back(whatsapp::handle(members.text(1)));

    std::vector<Chat> chats;
    auto rows = db_->prepare(
        "SELECT c.Z_PK, IFNULL(c.ZCONTACTJID, ''), IFNULL(c.ZPARTNERNAME, ''), c.ZSESSIONTYPE,\n"
        "       COUNT(m.Z_PK), MAX(m.ZMESSAGEDATE)\n"
        "FROM ZWACHATSESSION c JOIN ZWAMESSAGE m ON m.ZCHATSESSION = c.Z_PK\n"
        "GROUP BY c.Z_PK ORDER BY MAX(m.ZMESSAGEDATE) DESC");
    while (rows.step()) {
        Chat chat{.id = rows.int64(0),
                  .identifier = rows.text(1),
                  .displayName = rows.text(2),
                  .service = "WhatsApp",
                  .messageCount = rows.int64(4),
                  .lastDate = storedDate(rows, 5)};
        if (whatsapp::isGroupJID(chat.identifier))
            chat.participants = std::move(groupMembers[chat.id]);
        else
            chat.participants = {whatsapp::handle(chat.identifier)};
        chats.push_back(std::move(chat));
    }
    return chats;
}

Transcript WhatsAppDatabase::fetchTranscript(const std::vector<int64_t>& chatIDs) {
    std::lock_guard guard(lock_);
    Transcript transcript;
    if (chatIDs.empty()) return transcript;
    const sqlite::ReadTransaction oneState(*db_);
    const RowReader reader(readMembers(*db_), readChatJIDs(*db_, chatIDs), mediaRoot_);
    auto rows = db_->prepare(messageStatement + placeholders(chatIDs.size()) +
                             ")\nORDER BY m.ZMESSAGEDATE, m.Z_PK");
    bindIDs(rows, chatIDs);
    while (rows.step()) transcript.messages.push_back(reader.read(rows));
    return transcript;
}

std::optional<std::pair<Date, Date>> WhatsAppDatabase::dateRange(
    const std::vector<int64_t>& chatIDs) {
    std::lock_guard guard(lock_);
    if (chatIDs.empty()) return std::nullopt;
    auto statement = db_->prepare(
        "SELECT MIN(NULLIF(ZMESSAGEDATE, 0)), MAX(ZMESSAGEDATE) FROM ZWAMESSAGE WHERE "
        "ZCHATSESSION IN (" +
        placeholders(chatIDs.size()) + ")");
    bindIDs(statement, chatIDs);
    if (!statement.step()) return std::nullopt;
    const auto first = storedDate(statement, 0);
    const auto last = storedDate(statement, 1);
    if (!first || !last) return std::nullopt;
    return std::pair{*first, *last};
}

std::string WhatsAppDatabase::changeSignature() {
    std::lock_guard guard(lock_);
    try {
        auto statement =
            db_->prepare("SELECT MAX(Z_PK), COUNT(*), SUM(ZMESSAGETYPE = 14) FROM ZWAMESSAGE");
        if (!statement.step()) return {};
        const auto number = [&](int column) {
            return std::to_string(statement.isNull(column) ? 0 : statement.int64(column));
        };
        return number(0) + ":" + number(1) + ":" + number(2);
    } catch (const DBError&) {
        return {};
    }
}

CustodyRecord::Source WhatsAppDatabase::custodySource() const {
    std::lock_guard guard(lock_);
    switch (origin_) {
        case Origin::live:
            return custodySource::ofDatabase(*this, "whatsapp-live");
        case Origin::sealedImport:
            return custodySource::ofDatabase(*this, "whatsapp-database-import");
        case Origin::chosenFile:
            break;
    }
    return custodySource::ofDatabase(*this, "files");
}

}  // namespace bc
