#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/Message.h"
#include "support/Errors.h"

namespace bc {

class MessageSource;

// A failure of the call history reader. Codes: 1 the file did not open, 2 the file is not the
// expected call table, 3 the rows could not all be read.
class CallHistoryError : public Error {
public:
    static constexpr std::string_view domain = "Kestrove.CallHistory";

    CallHistoryError(int code, const std::string& sentence) : Error(sentence), code_(code) {}
    int code() const { return code_; }

private:
    int code_;
};

// The Mac's own call history, read-only. Calls are offered only for the live Messages database
// (or the one database named by `overrideDatabasePath`), since the log describes this Mac as it is
// now.
class CallHistory {
public:
    // Process-wide settings; the application keeps `isEnabled` in its preferences and demo mode
    // sets both overrides.
    static bool isEnabled();
    static void setEnabled(bool enabled);
    static std::optional<std::filesystem::path> overridePath();
    static void setOverridePath(std::optional<std::filesystem::path> path);
    static std::optional<std::filesystem::path> overrideDatabasePath();
    static void setOverrideDatabasePath(std::optional<std::filesystem::path> path);

    static std::filesystem::path defaultPath();

    // The call history that belongs with a Messages source; absent when the source is not the
    // live one (nor the override) or no file exists.
    static std::optional<std::filesystem::path> path(const MessageSource& database);

    // Every call of the file, by date then record id. Throws CallHistoryError.
    static std::vector<CallInfo> readAll(const std::filesystem::path& path);

    // The one rule by which calls, messages and contacts meet: trimmed, e-mail addresses
    // lower-cased, anything else reduced to its last ten digits. Empty when nothing is left.
    static std::string normalize(std::string_view address);

    // All calls of the file, read again only when the file or its write-ahead log changed.
    // Safe from any thread. Throws CallHistoryError.
    std::vector<CallInfo> allCalls(const std::filesystem::path& path);

    // The calls whose address matches one of the handles, in the log's order.
    std::vector<CallInfo> calls(const std::vector<std::string>& handles,
                                const std::filesystem::path& path);

    // Adds the calls of the conversation to the transcript in date order. When the log cannot be
    // read the messages stay as they are and `callLogIssue` says why. Does nothing when calls are
    // switched off or the source has no call history.
    void mergeCalls(Transcript& transcript, const MessageSource& database,
                    const std::vector<int64_t>& chatIDs, const std::vector<std::string>& handles);

    // The process-wide instance, so every transcript shares one cache.
    static CallHistory& shared();

    // One call as a conversation row.
    static Message row(const CallInfo& call, int64_t chatID);
    // "Phone", "FaceTime Audio", … from the provider identifier and call type.
    static std::string service(const CallInfo& call);
    // One line: service, direction, answered with its duration or not answered.
    static std::string summary(const CallInfo& call);
    // The call list of an archive: a header, then one row per call row of the messages.
    static std::vector<std::vector<std::string>> csvRows(const std::vector<Message>& messages);

private:
    struct Entry {
        CallInfo call;
        std::string key;  // normalised address
    };
    using Stamp = std::vector<std::optional<std::filesystem::file_time_type>>;

    static Stamp stampOf(const std::filesystem::path& path);
    std::shared_ptr<const std::vector<Entry>> cachedEntries(const std::filesystem::path& path);

    std::mutex cacheLock_;
    std::optional<std::filesystem::path> cachedPath_;
    Stamp cachedStamp_;
    std::shared_ptr<const std::vector<Entry>> cachedEntries_;
};

}  // namespace bc
