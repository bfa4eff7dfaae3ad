#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/Date.h"

namespace bc {

// Generated sample data of demo mode: a Messages database and a call history holding every kind
// of record the readers handle, all fictional, with dates relative to now.
class DemoData {
public:
    struct SampleCall {
        double minutesFromNow = 0;  // negative for the past
        std::string address;
        bool outgoing = false;
        bool answered = false;
        double duration = 0;  // seconds
        int64_t callType = 0;
        std::string provider;
    };

    // Demo mode is on for the whole process once the entry saw "--demo".
    static bool isEnabled();
    static void setEnabled(bool enabled);
    // "Kestrove-Demo" inside the system's temporary directory.
    static std::filesystem::path folder();

    // Writes the sample "chat.db" (and its photos) into the demo folder; returns its path.
    static std::filesystem::path databasePath();
    // The sample Messages database at `file`, photos in "Attachments" beside it. Written under a
    // temporary name and moved into place whole. Throws Error.
    static void writeMessagesDatabase(const std::filesystem::path& file, Date now);

    // "Sample contacts.vcf" in the demo folder, naming the sample people; returns its path.
    // Throws Error.
    static std::filesystem::path contactsPath();

    // Adds a voice message from Sam to the sample conversation, its recording at `voice`.
    // Throws Error.
    static void addVoiceMessage(const std::filesystem::path& database,
                                const std::filesystem::path& voice, Date now);
    // What the sample voice message says.
    static constexpr const char* voiceMessageWords =
        "Hi, it is Sam. The movers are booked for nine on the first. I will pay you back soon.";

    // The sample call-history database. Throws Error.
    static void writeCallLog(const std::filesystem::path& file,
                             const std::vector<SampleCall>& calls, Date now);
    static std::vector<SampleCall> sampleCalls();

    // A WhatsApp "Export Chat" of the sample dispute as a phone writes it: "_chat.txt" with a
    // photo and a voice note, dated in the days before `now` (file name, bytes).
    static std::vector<std::pair<std::string, std::string>> whatsAppExport(Date now);
    static constexpr const char* whatsAppOwner = "Alex Morgan";
    static constexpr const char* whatsAppChatName = "Sam Taylor (WhatsApp)";

    // An archived attributed string holding `text`, in the form Messages stores in attributedBody.
    static std::string demoBody(std::string_view text);
};

}  // namespace bc
