#include "sources/CallHistory.h"

#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <unordered_set>

#include "model/MessageSource.h"
#include "sources/IPhoneBackupMessages.h"
#include "support/DateFormat.h"
#include "support/Files.h"
#include "support/Sqlite.h"
#include "support/Text.h"

namespace bc {

namespace fs = std::filesystem;

namespace {

struct Settings {
    std::mutex mutex;
    bool isEnabled = true;
    std::optional<fs::path> overridePath;
    std::optional<fs::path> overrideDatabasePath;
};

Settings& settings() {
    static Settings instance;
    return instance;
}

constexpr std::string_view selectCalls =
    "SELECT Z_PK, COALESCE(ZUNIQUE_ID, ''), ZDATE, COALESCE(ZDURATION, 0), COALESCE(ZORIGINATED, "
    "0),\n"
    "       COALESCE(ZANSWERED, 0), COALESCE(ZCALLTYPE, 0), COALESCE(ZSERVICE_PROVIDER, ''), "
    "COALESCE(ZADDRESS, '')\n"
    "FROM ZCALLRECORD WHERE ZDATE IS NOT NULL ORDER BY ZDATE, Z_PK";

// Stored call type codes.
constexpr int64_t telephonyCall = 1;
constexpr int64_t faceTimeVideoCall = 8;
constexpr int64_t faceTimeAudioCall = 16;

std::string lowercased(std::string_view text) {
    std::string out;
    icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())))
        .toLower(icu::Locale::getRoot())
        .toUTF8String(out);
    return out;
}

// Every decimal digit of any script, as ASCII, so "٠٥٥" and "055" compare equal.
std::string decimalDigits(std::string_view text) {
    std::string digits;
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    const auto length = static_cast<int32_t>(text.size());
    int32_t i = 0;
    while (i < length) {
        UChar32 c;
        U8_NEXT(bytes, i, length, c);
        if (c >= 0 && u_charType(c) == U_DECIMAL_DIGIT_NUMBER) {
            digits += static_cast<char>('0' + u_charDigitValue(c));
        }
    }
    return digits;
}

bool samePath(const fs::path& a, const fs::path& b) {
    std::error_code error;
    if (fs::equivalent(a, b, error)) return true;
    return a.lexically_normal() == b.lexically_normal();
}

// "1 h 2 min 3 s", "4 min 5 s", "12 s".
std::string durationText(double seconds) {
    const auto total = static_cast<int64_t>(std::llround(std::max(seconds, 0.0)));
    const int64_t hours = total / 3600, minutes = total % 3600 / 60, rest = total % 60;
    std::string out;
    if (hours > 0) out += std::to_string(hours) + " h ";
    if (hours > 0 || minutes > 0) out += std::to_string(minutes) + " min ";
    return out + std::to_string(rest) + " s";
}

std::string fixedThreeDecimals(double value) {
    char buffer[64];
    const auto result =
        std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, 3);
    return std::string(buffer, result.ptr);
}

std::vector<std::string> csvRow(const CallInfo& call) {
    return {std::to_string(call.recordID),
            call.uniqueID,
            dates::iso8601Millis(call.date),
            call.isOutgoing ? "outgoing" : "incoming",
            call.answered ? "1" : "0",
            fixedThreeDecimals(call.duration),
            CallHistory::service(call),
            std::to_string(call.callType),
            call.serviceProvider,
            call.address,
            CallHistory::summary(call)};
}

}  // namespace

bool CallHistory::isEnabled() {
    std::lock_guard lock(settings().mutex);
    return settings().isEnabled;
}

void CallHistory::setEnabled(bool enabled) {
    std::lock_guard lock(settings().mutex);
    settings().isEnabled = enabled;
}

std::optional<fs::path> CallHistory::overridePath() {
    std::lock_guard lock(settings().mutex);
    return settings().overridePath;
}

void CallHistory::setOverridePath(std::optional<fs::path> path) {
    std::lock_guard lock(settings().mutex);
    settings().overridePath = std::move(path);
}

std::optional<fs::path> CallHistory::overrideDatabasePath() {
    std::lock_guard lock(settings().mutex);
    return settings().overrideDatabasePath;
}

void CallHistory::setOverrideDatabasePath(std::optional<fs::path> path) {
    std::lock_guard lock(settings().mutex);
    settings().overrideDatabasePath = std::move(path);
}

fs::path CallHistory::defaultPath() {
    return files::homeFolder() / "Library/Application Support/CallHistoryDB/CallHistory.storedata";
}

std::optional<fs::path> CallHistory::path(const MessageSource& database) {
    // A phone's backup brings its own call history; this computer's has no part in it.
    if (const auto* backup = dynamic_cast<const IPhoneBackupMessages*>(&database))
        return backup->companions().callHistory;
    if (!database.isLive()) {
        const auto offered = overrideDatabasePath();
        if (!offered || !samePath(*offered, database.path())) return std::nullopt;
    }
    fs::path file = overridePath().value_or(defaultPath());
    std::error_code error;
    if (!fs::exists(file, error)) return std::nullopt;
    return file;
}

std::vector<CallInfo> CallHistory::readAll(const fs::path& path) {
    // The Mac's own log is read as the system shares it; a file named instead is left untouched.
    const auto mode = samePath(path, defaultPath()) ? sqlite::OpenMode::readOnly
                                                    : sqlite::OpenMode::readOnlyUntouched;
    std::optional<sqlite::Connection> db;
    try {
        db.emplace(path, mode);
    } catch (const DBError& error) {
        throw CallHistoryError(1, "Couldn't open the call log: " + error.text());
    }
    db->setBusyTimeout(10000);
    std::optional<sqlite::Statement> select;
    try {
        select.emplace(db->prepare(selectCalls));
    } catch (const DBError& error) {
        throw CallHistoryError(2, "The call log has an unexpected format: " + error.text());
    }
    std::vector<CallInfo> calls;
    try {
        while (select->step()) {
            calls.push_back(CallInfo{.recordID = select->int64(0),
                                     .uniqueID = select->text(1),
                                     .date = Date{select->real(2)},
                                     .duration = select->real(3),
                                     .isOutgoing = select->int64(4) != 0,
                                     .answered = select->int64(5) != 0,
                                     .callType = select->int64(6),
                                     .serviceProvider = select->text(7),
                                     .address = select->text(8)});
        }
    } catch (const DBError& error) {
        throw CallHistoryError(3, "The call log couldn't be read completely: " + error.text());
    }
    return calls;
}

std::string CallHistory::normalize(std::string_view address) {
    const std::string trimmed = text::trim(address);
    if (trimmed.find('@') != std::string::npos) return lowercased(trimmed);
    std::string digits = decimalDigits(trimmed);
    return digits.size() > 10 ? digits.substr(digits.size() - 10) : digits;
}

CallHistory::Stamp CallHistory::stampOf(const fs::path& path) {
    Stamp stamp;
    for (const fs::path& file : {path, sqlite::writeAheadLog(path)}) {
        std::error_code error;
        const auto modified = fs::last_write_time(file, error);
        stamp.push_back(error ? std::nullopt : std::optional(modified));
    }
    return stamp;
}

std::shared_ptr<const std::vector<CallHistory::Entry>> CallHistory::cachedEntries(
    const fs::path& path) {
    const Stamp stamp = stampOf(path);
    {
        std::lock_guard lock(cacheLock_);
        if (cachedEntries_ && cachedPath_ == path && cachedStamp_ == stamp) return cachedEntries_;
    }
    // Read outside the lock: two threads may both read, and the later store wins.
    auto entries = std::make_shared<std::vector<Entry>>();
    for (CallInfo& call : readAll(path)) {
        std::string key = normalize(call.address);
        entries->push_back(Entry{std::move(call), std::move(key)});
    }
    std::lock_guard lock(cacheLock_);
    cachedPath_ = path;
    cachedStamp_ = stamp;
    cachedEntries_ = entries;
    return entries;
}

std::vector<CallInfo> CallHistory::allCalls(const fs::path& path) {
    const auto entries = cachedEntries(path);
    std::vector<CallInfo> calls;
    calls.reserve(entries->size());
    for (const Entry& entry : *entries) calls.push_back(entry.call);
    return calls;
}

std::vector<CallInfo> CallHistory::calls(const std::vector<std::string>& handles,
                                         const fs::path& path) {
    std::unordered_set<std::string> keys;
    for (const std::string& handle : handles) {
        std::string key = normalize(handle);
        if (!key.empty()) keys.insert(std::move(key));
    }
    if (keys.empty()) return {};
    std::vector<CallInfo> found;
    for (const Entry& entry : *cachedEntries(path)) {
        if (keys.contains(entry.key)) found.push_back(entry.call);
    }
    return found;
}

void CallHistory::mergeCalls(Transcript& transcript, const MessageSource& database,
                             const std::vector<int64_t>& chatIDs,
                             const std::vector<std::string>& handles) {
    if (!isEnabled()) return;
    const auto file = path(database);
    if (!file) return;
    std::vector<CallInfo> found;
    try {
        found = calls(handles, *file);
    } catch (const CallHistoryError& error) {
        transcript.callLogIssue = "Calls aren't shown: " + std::string(error.what());
        return;
    }
    if (found.empty()) return;
    // A row that belongs to several conversations carries the lowest id.
    const int64_t chatID = chatIDs.empty() ? 0 : *std::min_element(chatIDs.begin(), chatIDs.end());
    std::vector<Message> rows;
    rows.reserve(found.size());
    for (const CallInfo& call : found) rows.push_back(row(call, chatID));
    std::vector<Message> merged;
    merged.reserve(transcript.messages.size() + rows.size());
    // Both lists are already in date order; at equal dates the message comes first.
    std::merge(std::make_move_iterator(transcript.messages.begin()),
               std::make_move_iterator(transcript.messages.end()),
               std::make_move_iterator(rows.begin()), std::make_move_iterator(rows.end()),
               std::back_inserter(merged),
               [](const Message& a, const Message& b) { return a.date < b.date; });
    transcript.messages = std::move(merged);
}

CallHistory& CallHistory::shared() {
    static CallHistory instance;
    return instance;
}

Message CallHistory::row(const CallInfo& call, int64_t chatID) {
    Message message;
    message.guid = "call:" + (call.uniqueID.empty() ? "record-" + std::to_string(call.recordID)
                                                    : call.uniqueID);
    message.date = call.date;
    message.chatID = chatID;
    message.text = summary(call);
    message.call = call;
    return message;
}

std::string CallHistory::service(const CallInfo& call) {
    const std::string& provider = call.serviceProvider;
    if (provider == "com.apple.Telephony" || (provider.empty() && call.callType == telephonyCall))
        return "Phone";
    if (provider == "com.apple.FaceTime" || provider.empty()) {
        if (call.callType == faceTimeVideoCall) return "FaceTime Video";
        if (call.callType == faceTimeAudioCall) return "FaceTime Audio";
        if (!provider.empty()) return "FaceTime";
    }
    // A calling app names itself by its identifier; with neither, say so rather than guess.
    return provider.empty() ? "unknown service" : provider;
}

std::string CallHistory::summary(const CallInfo& call) {
    std::string line = service(call) + " call · " + (call.isOutgoing ? "outgoing" : "incoming");
    if (!call.answered) return line + " · not answered";
    return line + " · answered · " + durationText(call.duration);
}

std::vector<std::vector<std::string>> CallHistory::csvRows(const std::vector<Message>& messages) {
    std::vector<std::vector<std::string>> rows{
        {"call_record_id", "unique_id", "date_utc", "direction", "answered", "duration_seconds",
         "service", "call_type", "service_provider", "address", "description"}};
    for (const Message& message : messages) {
        if (message.call) rows.push_back(csvRow(*message.call));
    }
    return rows;
}

}  // namespace bc
