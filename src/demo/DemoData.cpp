#include "demo/DemoData.h"

#include <atomic>
#include <cmath>
#include <iostream>

#include "demo/DemoWriters.h"
#include "support/DateFormat.h"
#include "support/Errors.h"
#include "support/Files.h"
#include "support/Sqlite.h"

namespace bc {

namespace fs = std::filesystem;

namespace {

std::atomic<bool> demoEnabled{false};

constexpr const char* schema = R"(
CREATE TABLE handle (ROWID INTEGER PRIMARY KEY, id TEXT);
CREATE TABLE chat (ROWID INTEGER PRIMARY KEY, guid TEXT, chat_identifier TEXT, display_name TEXT, service_name TEXT);
CREATE TABLE chat_handle_join (chat_id INTEGER, handle_id INTEGER);
CREATE TABLE message (ROWID INTEGER PRIMARY KEY, guid TEXT, text TEXT, attributedBody BLOB, handle_id INTEGER,
    is_from_me INTEGER DEFAULT 0, date INTEGER, date_read INTEGER DEFAULT 0, date_delivered INTEGER DEFAULT 0,
    associated_message_type INTEGER DEFAULT 0, associated_message_guid TEXT, associated_message_emoji TEXT,
    item_type INTEGER DEFAULT 0, thread_originator_guid TEXT, date_edited INTEGER DEFAULT 0,
    date_retracted INTEGER DEFAULT 0, balloon_bundle_id TEXT, error INTEGER DEFAULT 0,
    expressive_send_style_id TEXT, message_summary_info BLOB);
CREATE TABLE chat_message_join (chat_id INTEGER, message_id INTEGER);
CREATE TABLE attachment (ROWID INTEGER PRIMARY KEY, guid TEXT, filename TEXT, mime_type TEXT, uti TEXT,
    transfer_name TEXT, is_sticker INTEGER DEFAULT 0, hide_attachment INTEGER DEFAULT 0,
    total_bytes INTEGER DEFAULT 0, transfer_state INTEGER DEFAULT 5);
CREATE TABLE message_attachment_join (message_id INTEGER, attachment_id INTEGER);
CREATE TABLE chat_recoverable_message_join (chat_id INTEGER, message_id INTEGER, delete_date INTEGER);
CREATE TABLE recoverable_message_part (chat_id INTEGER, message_id INTEGER, part_index INTEGER,
    delete_date INTEGER, part_text BLOB);
)";

// Handles: two e-mail addresses of the documentation domain, the rest numbers of the 555-01xx
// block reserved for fiction.
constexpr const char* handles[] = {
    "sam.taylor@example.com", "jordan.lee@example.com", "+12025550143", "+12025550178",
    "+13125550116",           "+14155550190",           "+16175550132", "+17185550155",
};
enum Handle : int64_t { me = 0, sam = 1, jordan, h0143, h0178, h0116, h0190, h0132, h0155 };

struct ChatRow {
    int64_t id;
    const char* identifier;
    const char* displayName;
    std::vector<int64_t> members;
};

const std::vector<ChatRow>& chats() {
    static const std::vector<ChatRow> rows = {
        {1, "sam.taylor@example.com", "", {sam}},
        {2, "+12025550143", "", {h0143}},
        {3, "+12025550178", "", {h0178}},
        {4, "+13125550116", "", {h0116}},
        {5, "+14155550190", "", {h0190}},
        {6, "jordan.lee@example.com", "", {jordan}},
        {7, "chat777", "Weekend Crew", {jordan, h0143, h0132, h0155}},
        {8, "+17185550155", "", {h0155}},
        {9, "+16175550132", "", {h0132}},
    };
    return rows;
}

// One sample message row; the defaults make a plain received text.
struct Row {
    int64_t chat = 1;
    int64_t from = me;
    double minutesAgo = 0;
    std::string text;
    bool bodyOnly = false;  // text only in attributedBody, as newer Messages stores it
    std::string rawBody;    // a stored body that isn't a readable archive
    int64_t reactionType = 0;
    std::string reactsTo;
    std::string emoji;
    int64_t itemType = 0;
    std::string replyTo;
    std::vector<std::string> earlierVersions;  // edited: the versions before `text`
    bool unsent = false;
    std::string balloon;
    int64_t error = 0;
    std::string effect;
    bool receipts = false;
    std::vector<int> photos;  // sample photo numbers
    // Recently Deleted: minutes since deletion (0 = date not recorded); parts deleted with it.
    std::optional<double> deletedMinutesAgo;
    std::vector<std::string> deletedParts;
};

// Absent values are stored as NULL, as Messages does.
void bindTextOrNull(sqlite::Statement& statement, int index, const std::string& value) {
    if (value.empty())
        statement.bindNull(index);
    else
        statement.bind(index, value);
}

std::string guid(size_t oneBasedIndex) {
    return "DEMO-MSG-" + std::to_string(oneBasedIndex);
}

class Writer {
public:
    Writer(const fs::path& file, const fs::path& attachments, Date now)
        : db_(file, sqlite::OpenMode::readWriteCreate), attachments_(attachments), now_(now) {}

    void write(const std::vector<Row>& rows) {
        db_.execute(schema);
        db_.execute("BEGIN;");
        for (size_t i = 0; i < std::size(handles); ++i)
            db_.prepare("INSERT INTO handle (ROWID, id) VALUES (?, ?)")
                .bind(1, static_cast<int64_t>(i + 1))
                .bind(2, std::string_view(handles[i]))
                .step();
        for (const auto& chat : chats()) insertChat(chat);
        for (const auto& row : rows) insertMessage(row);
        db_.execute("COMMIT;");
    }

private:
    int64_t nanos(double minutesAgo) const {
        return static_cast<int64_t>(std::llround((now_.seconds - minutesAgo * 60) * 1e9));
    }

    void insertChat(const ChatRow& chat) {
        const std::string guid =
            chat.id == 7 ? "demo-chat-7" : "iMessage;-;" + std::string(chat.identifier);
        db_.prepare("INSERT INTO chat VALUES (?, ?, ?, ?, 'iMessage')")
            .bind(1, chat.id)
            .bind(2, guid)
            .bind(3, std::string_view(chat.identifier))
            .bind(4, std::string_view(chat.displayName))
            .step();
        for (const int64_t member : chat.members)
            db_.prepare("INSERT INTO chat_handle_join VALUES (?, ?)")
                .bind(1, chat.id)
                .bind(2, member)
                .step();
    }

    void insertMessage(const Row& row) {
        const int64_t id = ++messages_;
        const int64_t date = nanos(row.minutesAgo);
        auto insert = db_.prepare(
            "INSERT INTO message (ROWID, guid, text, attributedBody, handle_id, is_from_me, date, "
            "date_read, "
            "date_delivered, associated_message_type, associated_message_guid, "
            "associated_message_emoji, item_type, "
            "thread_originator_guid, date_edited, date_retracted, balloon_bundle_id, error, "
            "expressive_send_style_id, message_summary_info) "
            "VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14, ?15, ?16, ?17, "
            "?18, ?19, ?20)");
        insert.bind(1, id).bind(2, guid(static_cast<size_t>(id)));
        bindTextOrNull(insert, 3, row.bodyOnly || row.unsent ? "" : row.text);
        if (!row.rawBody.empty())
            insert.bindBlob(4, row.rawBody);
        else if (!row.text.empty() && !row.unsent)
            insert.bindBlob(4, DemoData::demoBody(row.text));
        else
            insert.bindNull(4);
        insert.bind(5, row.from).bind(6, static_cast<int64_t>(row.from == me)).bind(7, date);
        insert.bind(8, row.receipts ? date + 90'000'000'000 : int64_t{0});
        insert.bind(9, row.receipts ? date + 2'000'000'000 : int64_t{0});
        insert.bind(10, row.reactionType);
        bindTextOrNull(insert, 11, row.reactsTo.empty() ? "" : "p:0/" + row.reactsTo);
        bindTextOrNull(insert, 12, row.emoji);
        insert.bind(13, row.itemType);
        bindTextOrNull(insert, 14, row.replyTo);
        insert.bind(15, row.earlierVersions.empty() ? int64_t{0} : date + 120'000'000'000);
        insert.bind(16, row.unsent ? date + 60'000'000'000 : int64_t{0});
        bindTextOrNull(insert, 17, row.balloon);
        insert.bind(18, row.error);
        bindTextOrNull(insert, 19, row.effect);
        if (row.earlierVersions.empty())
            insert.bindNull(20);
        else
            insert.bindBlob(20, editSummary(row, date));
        insert.step();
        joinMessage(row, id);
        for (const int photo : row.photos) insertPhoto(id, photo);
    }

    std::string editSummary(const Row& row, int64_t date) const {
        std::vector<std::pair<std::string, int64_t>> versions;
        int64_t at = date;
        for (const auto& earlier : row.earlierVersions) {
            versions.emplace_back(earlier, at);
            at += 60'000'000'000;
        }
        versions.emplace_back(row.text, date + 120'000'000'000);
        return demo::editSummary(versions);
    }

    void joinMessage(const Row& row, int64_t id) {
        if (!row.deletedMinutesAgo) {
            db_.prepare("INSERT INTO chat_message_join VALUES (?, ?)")
                .bind(1, row.chat)
                .bind(2, id)
                .step();
            return;
        }
        const int64_t deleted = *row.deletedMinutesAgo == 0 ? 0 : nanos(*row.deletedMinutesAgo);
        db_.prepare("INSERT INTO chat_recoverable_message_join VALUES (?, ?, ?)")
            .bind(1, row.chat)
            .bind(2, id)
            .bind(3, deleted)
            .step();
        for (size_t part = 0; part < row.deletedParts.size(); ++part)
            db_.prepare("INSERT INTO recoverable_message_part VALUES (?, ?, ?, ?, ?)")
                .bind(1, row.chat)
                .bind(2, id)
                .bind(3, static_cast<int64_t>(part))
                .bind(4, deleted)
                .bindBlob(5, DemoData::demoBody(row.deletedParts[part]))
                .step();
    }

    void insertPhoto(int64_t messageID, int number) {
        const fs::path file = attachments_ / ("demo-photo-" + std::to_string(number) + ".jpg");
        db_.prepare(
               "INSERT INTO attachment (ROWID, guid, filename, mime_type, uti, transfer_name, "
               "total_bytes) "
               "VALUES (?, ?, ?, 'image/jpeg', 'public.jpeg', ?, 2481152)")
            .bind(1, static_cast<int64_t>(number))
            .bind(2, "DEMO-ATTACHMENT-" + std::to_string(number))
            .bind(3, file.string())
            .bind(4, "IMG_" + std::to_string(4100 + number) + ".jpg")
            .step();
        db_.prepare("INSERT INTO message_attachment_join VALUES (?, ?)")
            .bind(1, messageID)
            .bind(2, static_cast<int64_t>(number))
            .step();
    }

    sqlite::Connection db_;
    fs::path attachments_;
    Date now_;
    int64_t messages_ = 0;
};

constexpr double day = 24 * 60;
const std::string mark = "\xEF\xBF\xBC";  // where an attachment stood inline

// The sample conversations. Row n (1-based) gets the guid "DEMO-MSG-n".
std::vector<Row> sampleRows() {
    return {
        // 1: the flat share, with every kind of record.
        {.from = sam,
         .minutesAgo = 30 * day,
         .text = "Hi! Is the spare room in your flat still free?",
         .receipts = true},
        {.minutesAgo = 30 * day - 6,
         .text = "It is! The lease runs to next August, rent is $1,150 a month split two ways.",
         .bodyOnly = true,
         .receipts = true},
        {.from = sam,
         .minutesAgo = 29 * day,
         .text = "Great. How much is the deposit?",
         .receipts = true},
        {.minutesAgo = 29 * day - 4,
         .text = "One month's rent, so $575 each. I'll send the lease tonight.",
         .receipts = true},
        {.minutesAgo = 28 * day,
         .text = mark + "This is the room.",
         .receipts = true,
         .photos = {1}},
        {.from = sam, .minutesAgo = 28 * day - 3, .reactionType = 2000, .reactsTo = guid(5)},
        {.from = sam,
         .minutesAgo = 27 * day,
         .text = "Movers are booked for the 1st at 9am.",
         .effect = "com.apple.MobileSMS.expressivesend.impact"},
        {.minutesAgo = 27 * day - 2, .reactionType = 2001, .reactsTo = guid(7)},
        {.minutesAgo = 27 * day - 3, .reactionType = 3001, .reactsTo = guid(7)},
        {.minutesAgo = 27 * day - 4, .reactionType = 2006, .reactsTo = guid(7), .emoji = "🎉"},
        {.from = sam,
         .minutesAgo = 25 * day,
         .text = "Could you lend me $400 for the movers? I'll pay it back by the 15th, promise.",
         .bodyOnly = true},
        {.minutesAgo = 25 * day - 5, .text = "Sure, sending it now."},
        {.from = sam,
         .minutesAgo = 25 * day - 9,
         .text = "Got it, thanks! I'll pay you back when I can.",
         .earlierVersions = {"Got it, thanks! $400 back by the 15th."}},
        {.from = sam, .minutesAgo = 24 * day, .unsent = true},
        {.minutesAgo = 20 * day,
         .text = mark + mark + "Keys are under the mat. Meter readings attached.",
         .photos = {2, 3}},
        {.minutesAgo = 15 * day,
         .text = "It's the 15th. Can you send the $400?",
         .replyTo = guid(11)},
        {.from = sam,
         .minutesAgo = 15 * day - 30,
         .text = "I never said the 15th.",
         .bodyOnly = true},
        {.minutesAgo = 15 * day - 31, .reactionType = 2005, .reactsTo = guid(17)},
        {.minutesAgo = 10 * day, .text = mark, .photos = {4}},
        {.from = sam, .minutesAgo = 10 * day - 1, .itemType = 2},
        {.minutesAgo = 5 * day,
         .text = "Reminder: rent is due on the 1st. Utilities came to $84.20 this month.",
         .receipts = true},
        {.from = sam,
         .minutesAgo = 4 * day,
         .rawBody = std::string("\x04\x0bstreamtyped\x81\xe8\x03\x84\x01@", 18)},
        {.from = sam,
         .minutesAgo = 3 * day,
         .text = "Fine, I'll pay you when my paycheck clears.",
         .deletedMinutesAgo = 1 * day,
         .deletedParts = {"Fine, I'll pay you when my paycheck clears."}},
        {.minutesAgo = 2 * day, .text = "Did you get my last message?", .error = 22},
        {.from = sam,
         .minutesAgo = 1 * day,
         .text = "$50 toward the utilities",
         .balloon = "com.apple.messages.MSMessageExtensionBalloonPlugin:0000000000:"
                    "com.apple.PassbookUIService.PeerPaymentMessagesExtension"},
        {.from = sam,
         .minutesAgo = 1 * day - 2,
         .text = "https://example.com/lease-renewal",
         .balloon = "com.apple.messages.URLBalloonProvider"},
        // Short one-line chats.
        {.chat = 2, .from = h0143, .minutesAgo = 6 * 60, .text = "Running 20 minutes late, sorry!"},
        {.chat = 3,
         .from = h0178,
         .minutesAgo = 2 * day,
         .text = "Invoice #1042 is attached to the email.",
         .bodyOnly = true},
        {.chat = 4, .from = h0116, .minutesAgo = 3 * day, .text = "Happy birthday! 🎂"},
        {.chat = 5,
         .from = h0190,
         .minutesAgo = 4 * day,
         .text = "Please call me back when you get a chance."},
        {.chat = 6,
         .from = jordan,
         .minutesAgo = 5 * day,
         .text = "Meeting moved to Thursday at 10."},
        {.chat = 8,
         .from = h0155,
         .minutesAgo = 8 * day,
         .text = "Tickets are booked for Saturday.",
         .bodyOnly = true},
        // 7: the group.
        {.chat = 7,
         .from = jordan,
         .minutesAgo = 2 * day,
         .text = "Who's in for hiking on Saturday?"},
        {.chat = 7, .from = h0143, .minutesAgo = 2 * day - 5, .text = "Me! I'll bring snacks."},
        {.chat = 7, .minutesAgo = 2 * day - 8, .text = "Count me in.", .bodyOnly = true},
        {.chat = 7,
         .from = h0132,
         .minutesAgo = 2 * day - 9,
         .reactionType = 2003,
         .reactsTo = guid(34)},
        {.chat = 7,
         .from = h0155,
         .minutesAgo = 2 * day - 20,
         .text = "Meet at the trailhead at 8.",
         .replyTo = guid(33)},
        // 9: a conversation that is only in Recently Deleted.
        {.chat = 9,
         .from = h0132,
         .minutesAgo = 12 * day,
         .text = "Are we still on for the weekend?",
         .deletedMinutesAgo = 2 * day},
        {.chat = 9,
         .minutesAgo = 12 * day - 3,
         .text = "Yes, see you then.",
         .deletedMinutesAgo = 0},
    };
}

void writePhotos(const fs::path& folder) {
    fs::create_directories(folder);
    // Photo 4 is listed in the database but deliberately absent, like a file removed from disk.
    for (int number = 1; number <= 3; ++number)
        files::writeFileAtomically(
            folder / ("demo-photo-" + std::to_string(number) + ".jpg"),
            number == 2 ? demo::receiptJPEG() : demo::jpegImage(96, 64, number));
    fs::remove(folder / "demo-photo-4.jpg");
}

}  // namespace

bool DemoData::isEnabled() {
    return demoEnabled.load();
}

void DemoData::setEnabled(bool enabled) {
    demoEnabled.store(enabled);
}

fs::path DemoData::folder() {
    return fs::temp_directory_path() / "Kestrove-Demo";
}

fs::path DemoData::databasePath() {
    fs::path file = folder() / "chat.db";
    writeMessagesDatabase(file, Clock::now());
    const fs::path voice = file.parent_path() / "Attachments" / "demo-voice-1.caf";
    if (demo::spokenVoiceMessage(voice, voiceMessageWords))
        addVoiceMessage(file, voice, Clock::now());
    else
        std::cerr << "Note: espeak-ng or ffmpeg is not installed, so the demo has no voice "
                     "message.\n";
    return file;
}

fs::path DemoData::contactsPath() {
    // Each handle of the sample database with a fictional name; the owner is not among them.
    static constexpr std::pair<const char*, const char*> people[] = {
        {"Sam Taylor", "EMAIL:sam.taylor@example.com"},
        {"Jordan Lee", "EMAIL:jordan.lee@example.com"},
        {"Priya Shah", "TEL:+12025550143"},
        {"Marcus Webb", "TEL:+12025550178"},
        {"Dana Whitfield", "TEL:+13125550116"},
        {"Riley Chen", "TEL:+14155550190"},
        {"Morgan Ellis", "TEL:+16175550132"},
        {"Casey Nguyen", "TEL:+17185550155"},
    };
    std::string cards;
    for (const auto& [name, handle] : people)
        cards += std::string("BEGIN:VCARD\r\nVERSION:3.0\r\nFN:") + name + "\r\n" + handle +
                 "\r\nEND:VCARD\r\n";
    fs::path file = folder() / "Sample contacts.vcf";
    fs::create_directories(file.parent_path());
    files::writeFileAtomically(file, cards);
    return file;
}

void DemoData::addVoiceMessage(const fs::path& database, const fs::path& voice, Date now) {
    try {
        sqlite::Connection db(database, sqlite::OpenMode::readWriteCreate);
        const int64_t date = static_cast<int64_t>(std::llround((now.seconds - 26 * 86400) * 1e9));
        db.execute("BEGIN;");
        db.prepare(
              "INSERT INTO message (guid, text, handle_id, is_from_me, date) "
              "VALUES ('DEMO-VOICE-1', ?, ?, 0, ?)")
            .bind(1, mark)
            .bind(2, static_cast<int64_t>(sam))
            .bind(3, date)
            .step();
        db.execute(
            "INSERT INTO chat_message_join SELECT 1, ROWID FROM message WHERE guid = "
            "'DEMO-VOICE-1'");
        db.prepare(
              "INSERT INTO attachment (guid, filename, mime_type, uti, transfer_name, total_bytes) "
              "VALUES ('DEMO-ATTACHMENT-VOICE-1', ?, 'audio/x-caf', 'com.apple.coreaudio-format', "
              "'Audio Message.caf', ?)")
            .bind(1, voice.string())
            .bind(2, static_cast<int64_t>(fs::file_size(voice)))
            .step();
        db.execute(
            "INSERT INTO message_attachment_join SELECT m.ROWID, a.ROWID FROM message m, "
            "attachment a WHERE m.guid = 'DEMO-VOICE-1' AND a.guid = 'DEMO-ATTACHMENT-VOICE-1'");
        db.execute("COMMIT;");
    } catch (const std::exception& error) {
        throw Error("Couldn't add the sample voice message: " + std::string(error.what()));
    }
}

void DemoData::writeMessagesDatabase(const fs::path& file, Date now) {
    const fs::path temporary = files::temporarySibling(file);
    try {
        fs::create_directories(file.parent_path());
        writePhotos(file.parent_path() / "Attachments");
        Writer(temporary, file.parent_path() / "Attachments", now).write(sampleRows());
        for (const char* suffix : {"-wal", "-shm", "-journal"}) fs::remove(file.string() + suffix);
        fs::rename(temporary, file);
    } catch (const std::exception& error) {
        std::error_code ignored;
        fs::remove(temporary, ignored);
        throw Error("Couldn't write the sample Messages database: " + std::string(error.what()));
    }
}

std::vector<DemoData::SampleCall> DemoData::sampleCalls() {
    return {
        {-26 * day, "sam.taylor@example.com", true, true, 312.0, 8, "com.apple.FaceTime"},
        {-15 * day - 50, "sam.taylor@example.com", true, false, 0, 16, "com.apple.FaceTime"},
        {-14 * day, "(202) 555-0143", false, true, 95.5, 1, "com.apple.Telephony"},
        {-3 * day, "+1 415-555-0190", false, false, 0, 1, "com.apple.Telephony"},
        {-2 * 60, "+14155550190", true, true, 184.25, 1, "com.apple.Telephony"},
    };
}

void DemoData::writeCallLog(const fs::path& file, const std::vector<SampleCall>& calls, Date now) {
    try {
        fs::remove(file);
        fs::create_directories(file.parent_path());
        sqlite::Connection db(file, sqlite::OpenMode::readWriteCreate);
        db.execute(
            "CREATE TABLE ZCALLRECORD (Z_PK INTEGER PRIMARY KEY, ZANSWERED INTEGER, ZCALLTYPE "
            "INTEGER, "
            "ZORIGINATED INTEGER,\n    ZDATE TIMESTAMP, ZDURATION FLOAT, ZADDRESS VARCHAR, "
            "ZSERVICE_PROVIDER "
            "VARCHAR, ZUNIQUE_ID VARCHAR);\nBEGIN;");
        int64_t number = 0;
        for (const auto& call : calls) {
            ++number;
            db.prepare("INSERT INTO ZCALLRECORD VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)")
                .bind(1, number)
                .bind(2, int64_t{call.answered})
                .bind(3, call.callType)
                .bind(4, int64_t{call.outgoing})
                .bind(5, now.seconds + call.minutesFromNow * 60)
                .bind(6, call.duration)
                .bind(7, call.address)
                .bind(8, call.provider)
                .bind(9, "demo-0000-call-" + std::to_string(number))
                .step();
        }
        db.execute("COMMIT;");
    } catch (const std::exception& error) {
        throw Error("Couldn't write the sample call log: " + std::string(error.what()));
    }
}

std::vector<std::pair<std::string, std::string>> DemoData::whatsAppExport(Date now) {
    struct Line {
        int daysAgo;
        const char* time;
        const char* sender;
        std::string text;
    };
    const auto at = [&](int daysAgo, const char* time) {
        return dates::formatPattern(now - daysAgo * 86400.0, "yyyy-MM-dd", "en_US_POSIX") + "-" +
               time;
    };
    // iPhone names media by message number, kind and time.
    const std::string photo = "00000004-PHOTO-" + at(9, "09-14-27") + ".jpg";
    const std::string voice = "00000006-AUDIO-" + at(8, "21-40-55") + ".opus";
    const std::vector<Line> lines{
        {10, "18:02:11", "Sam Taylor",
         "Hey, it's Sam. Switched to WhatsApp, my phone plan ran out."},
        {10, "18:02:40", whatsAppOwner, "Hi Sam. Any news on the $400 for the movers?"},
        {10, "18:05:03", "Sam Taylor", "I know, I know. Next week for sure."},
        {9, "09:14:27", whatsAppOwner, "\u200e<attached: " + photo + ">"},
        {9, "09:15:02", whatsAppOwner, "That's the movers' receipt: $400, paid on the 1st."},
        {8, "21:40:55", "Sam Taylor", "\u200e<attached: " + voice + ">"},
        {8, "21:41:30", "Sam Taylor", "Sorry, long day. Listen to the voice note."},
        {8, "21:43:12", whatsAppOwner, "You said the 15th. That was three weeks ago."},
        {8, "21:47:09", "Sam Taylor", "This message was deleted"},
        {7, "08:30:44", "Sam Taylor",
         "I'll send $200 on Friday and the rest at the end of the month. <This message was "
         "edited>"},
        {7, "08:31:15", whatsAppOwner, "Please put that in writing.\nBy Friday, as you say."},
    };
    std::string chat;
    for (const auto& line : lines)
        chat += "[" +
                dates::formatPattern(now - line.daysAgo * 86400.0, "dd/MM/yyyy", "en_US_POSIX") +
                ", " + line.time + "] " + line.sender + ": " + line.text + "\n";
    return {
        {"_chat.txt", chat}, {photo, demo::jpegImage(160, 120, 4)}, {voice, demo::opusSilence(3)}};
}

}  // namespace bc
