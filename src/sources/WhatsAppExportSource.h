#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "model/ImportSettings.h"
#include "model/MessageSource.h"
#include "sources/WhatsAppExportParser.h"

namespace bc {

// A sealed chat export as its reader needs it; whoever sealed it keeps its settings.
struct SealedChatExport {
    std::string id;
    std::filesystem::path folder;
    std::string originalName;
    std::string originalSHA256;
    std::function<ImportSettings()> settings;  // read afresh: the user may rename the chat
    std::function<void(const ImportSettings&)> keepSettings;
};

// One sealed chat export as a source of one conversation. The text is read once, when the
// source is made; a sealed import never changes.
class WhatsAppExportSource : public MessageSource {
public:
    static constexpr int64_t chatID = 1;
    static constexpr const char* noChatText =
        "No WhatsApp chat text file was found in this import.";

    // Reads the chat text under "extracted" with the import's settings. When the file itself
    // decided the day/month order and no order was stored yet, the order is stored, so later
    // openings read the file the same way on any machine. Throws Error.
    explicit WhatsAppExportSource(SealedChatExport sealed);

    // "_chat.txt" first, else any ".txt" (any case), searched recursively.
    static std::optional<std::filesystem::path> findChatText(const std::filesystem::path& folder);

    const std::vector<std::string>& notes() const { return parsed_.notes; }
    const std::vector<std::string>& participants() const { return parsed_.participants; }

    MessageService service() const override { return MessageService::whatsApp; }
    std::string path() const override { return chatText_.string(); }
    std::string sourceDescription() const override;
    bool isLive() const override { return false; }
    std::vector<Chat> fetchChats() override;
    Transcript fetchTranscript(const std::vector<int64_t>& chatIDs) override;
    std::optional<std::pair<Date, Date>> dateRange(const std::vector<int64_t>& chatIDs) override;
    std::string changeSignature() override { return sealed_.id; }
    CustodyRecord::Source custodySource() const override;

private:
    SealedChatExport sealed_;
    std::filesystem::path chatText_;
    WhatsAppExportParser::Result parsed_;
};

}  // namespace bc
