#include "demo/LargeSample.h"

#include <sqlite3.h>

#include <cstdio>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "demo/DemoData.h"
#include "demo/DemoWriters.h"
#include "support/Files.h"
#include "support/Sqlite.h"

namespace bc::demo {

namespace fs = std::filesystem;

namespace {

// The shape of Messages' own tables and indexes, with the columns the reader asks for.
constexpr const char* schema = R"(
CREATE TABLE handle (ROWID INTEGER PRIMARY KEY, id TEXT, service TEXT);
CREATE TABLE chat (ROWID INTEGER PRIMARY KEY, guid TEXT, chat_identifier TEXT, display_name TEXT, service_name TEXT);
CREATE TABLE chat_handle_join (chat_id INTEGER, handle_id INTEGER, UNIQUE (chat_id, handle_id));
CREATE TABLE message (ROWID INTEGER PRIMARY KEY AUTOINCREMENT, guid TEXT UNIQUE NOT NULL, text TEXT,
    attributedBody BLOB, handle_id INTEGER DEFAULT 0, is_from_me INTEGER DEFAULT 0, date INTEGER,
    date_read INTEGER DEFAULT 0, date_delivered INTEGER DEFAULT 0, associated_message_type INTEGER DEFAULT 0,
    associated_message_guid TEXT, associated_message_emoji TEXT, item_type INTEGER DEFAULT 0,
    thread_originator_guid TEXT, date_edited INTEGER DEFAULT 0, date_retracted INTEGER DEFAULT 0,
    balloon_bundle_id TEXT, error INTEGER DEFAULT 0, expressive_send_style_id TEXT, message_summary_info BLOB);
CREATE TABLE chat_message_join (chat_id INTEGER, message_id INTEGER, message_date INTEGER DEFAULT 0,
    PRIMARY KEY (chat_id, message_id));
CREATE INDEX chat_message_join_idx_message_id_only ON chat_message_join(message_id);
CREATE TABLE attachment (ROWID INTEGER PRIMARY KEY AUTOINCREMENT, guid TEXT UNIQUE NOT NULL, filename TEXT,
    mime_type TEXT, uti TEXT, transfer_name TEXT, is_sticker INTEGER DEFAULT 0, hide_attachment INTEGER DEFAULT 0,
    total_bytes INTEGER DEFAULT 0, transfer_state INTEGER DEFAULT 0);
CREATE TABLE message_attachment_join (message_id INTEGER, attachment_id INTEGER, UNIQUE (message_id, attachment_id));
CREATE INDEX message_attachment_join_idx_attachment_id ON message_attachment_join(attachment_id);
CREATE TABLE chat_recoverable_message_join (chat_id INTEGER, message_id INTEGER, delete_date INTEGER,
    PRIMARY KEY (chat_id, message_id));
CREATE TABLE recoverable_message_part (chat_id INTEGER, message_id INTEGER, part_index INTEGER,
    delete_date INTEGER, part_text BLOB, PRIMARY KEY (chat_id, message_id, part_index));
)";

constexpr const char* words[] = {
    "the",  "rent",   "deposit", "is",       "due",     "on",      "Friday", "can",
    "you",  "send",   "it",      "I",        "will",    "call",    "later",  "thanks",
    "see",  "you",    "at",      "the",      "station", "movers",  "keys",   "lease",
    "paid", "not",    "yet",     "tomorrow", "morning", "ok",      "sure",   "what",
    "time", "dinner", "👍",       "great",    "sorry",   "running", "late",
};

class Generator {
public:
    Generator(const fs::path& file, int64_t totalMessages, int64_t chatCount)
        : db_(file, bc::sqlite::OpenMode::readWriteCreate),
          totalMessages(totalMessages),
          chatCount(chatCount) {}

    void run() {
        db_.execute("PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF;");
        db_.execute(schema);
        db_.execute("BEGIN;");
        writeChats();
        auto message = db_.prepare(
            "INSERT INTO message (guid, text, attributedBody, handle_id, is_from_me, date, "
            "date_read, "
            "date_delivered, associated_message_type, associated_message_guid, "
            "thread_originator_guid, "
            "date_edited, message_summary_info) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, "
            "?11, ?12, ?13)");
        auto join = db_.prepare(
            "INSERT INTO chat_message_join (chat_id, message_id, message_date) VALUES (?, ?, ?)");
        auto attachment = db_.prepare(
            "INSERT INTO attachment (guid, filename, mime_type, uti, transfer_name, total_bytes, "
            "transfer_state) "
            "VALUES (?1, ?2, 'image/jpeg', 'public.jpeg', ?3, 1843200, 5)");
        auto attachmentJoin = db_.prepare("INSERT INTO message_attachment_join VALUES (?, ?)");
        std::vector<std::string> lastGUID(static_cast<size_t>(chatCount + 1));
        int64_t date = 600'000'000'000'000'000;  // nanoseconds since 2001, early 2020
        for (int64_t row = 1; row <= totalMessages; ++row) {
            const int64_t chat =
                row % 5 == 0 ? largestChat : 2 + static_cast<int64_t>(random_() % (chatCount - 1));
            date += 1'000'000'000 * static_cast<int64_t>(1 + random_() % 120);
            const std::string guid = guidFor(row);
            const bool fromMe = random_() % 2 == 0;
            const auto dice = random_() % 1000;
            const bool reaction = dice < 50 && !lastGUID[static_cast<size_t>(chat)].empty();
            message.bind(1, guid);
            message.bind(4, fromMe ? int64_t{0} : chat).bind(5, int64_t{fromMe}).bind(6, date);
            message.bind(7, fromMe ? date + 60'000'000'000 : int64_t{0})
                .bind(8, fromMe ? date + 1'000'000'000 : int64_t{0});
            if (reaction) {
                message.bindNull(2).bindNull(3);
                message.bind(9, int64_t{dice < 5 ? 3000 : 2000} + static_cast<int64_t>(dice % 6));
                message.bind(10, "p:0/" + lastGUID[static_cast<size_t>(chat)]);
            } else {
                const std::string text = sentence();
                const bool bodyOnly = dice < 450;
                if (bodyOnly)
                    message.bindNull(2);
                else
                    message.bind(2, text);
                message.bindBlob(3, bc::DemoData::demoBody(text));
                message.bind(9, int64_t{0}).bindNull(10);
                lastGUID[static_cast<size_t>(chat)] = guid;
            }
            if (dice >= 950 && dice < 960 && !lastGUID[static_cast<size_t>(chat)].empty())
                message.bind(11, lastGUID[static_cast<size_t>(chat)]);
            else
                message.bindNull(11);
            if (dice >= 960 && dice < 965) {
                message.bind(12, date + 30'000'000'000);
                message.bindBlob(13, bc::demo::editSummary({{sentence(), date},
                                                            {sentence(), date + 30'000'000'000}}));
            } else {
                message.bind(12, int64_t{0}).bindNull(13);
            }
            message.step();
            message.reset();
            join.bind(1, chat).bind(2, row).bind(3, date).step();
            join.reset();
            if (dice >= 970) {
                const std::string name = "IMG_" + std::to_string(row % 10000) + ".jpeg";
                attachment.bind(1, "at_" + guid)
                    .bind(2, std::string("~/Library/Messages/Attachments/")
                                 .append(guid, 0, 2)
                                 .append("/")
                                 .append(guid)
                                 .append("/")
                                 .append(name))
                    .bind(3, name)
                    .step();
                attachment.reset();
                attachmentJoin.bind(1, row)
                    .bind(2, static_cast<int64_t>(sqlite3_last_insert_rowid(db_.handle())))
                    .step();
                attachmentJoin.reset();
            }
        }
        db_.execute("COMMIT; ANALYZE;");
    }

private:
    void writeChats() {
        auto handle =
            db_.prepare("INSERT INTO handle (ROWID, id, service) VALUES (?, ?, 'iMessage')");
        auto chat = db_.prepare("INSERT INTO chat VALUES (?, ?, ?, ?, 'iMessage')");
        auto member = db_.prepare("INSERT INTO chat_handle_join VALUES (?, ?)");
        for (int64_t id = 1; id <= chatCount; ++id) {
            const std::string address = "+1202555" + std::to_string(1000000 + id).substr(1);
            handle.bind(1, id).bind(2, address).step();
            handle.reset();
            chat.bind(1, id)
                .bind(2, "iMessage;-;" + address)
                .bind(3, address)
                .bind(4, id % 50 == 0 ? "Group" : "")
                .step();
            chat.reset();
            member.bind(1, id).bind(2, id).step();
            member.reset();
        }
    }

    std::string guidFor(int64_t row) {
        char text[64];
        std::snprintf(
            text, sizeof text, "%08X-%04X-4%03X-A%03X-%012llX", static_cast<unsigned>(random_()),
            static_cast<unsigned>(random_() & 0xFFFF), static_cast<unsigned>(random_() & 0xFFF),
            static_cast<unsigned>(random_() & 0xFFF), static_cast<unsigned long long>(row));
        return text;
    }

    std::string sentence() {
        std::string out;
        const auto length = 3 + random_() % 18;
        for (unsigned i = 0; i < length; ++i) {
            if (!out.empty()) out += ' ';
            out += words[random_() % std::size(words)];
        }
        return out;
    }

    bc::sqlite::Connection db_;
    const int64_t totalMessages;
    const int64_t chatCount;
    static constexpr int64_t largestChat = LargeSample::largestChat;
    std::mt19937 random_{20240305};
};

}  // namespace

int64_t LargeSample::chatCount() const {
    return std::max<int64_t>(messages / 500, 2);
}

void LargeSample::write(const fs::path& file) const {
    Generator(file, messages, chatCount()).run();
}

fs::path LargeSample::cachedFile() const {
    auto path =
        fs::temp_directory_path() / ("bc-bench-messages-" + std::to_string(messages) + ".db");
    if (!fs::exists(path)) {
        std::cerr << "Generating " << messages << " messages in " << chatCount()
                  << " conversations\u2026\n";
        const auto partial = files::temporarySibling(path);
        write(partial);
        fs::rename(partial, path);
    }
    return path;
}

}  // namespace bc::demo
