#include "sources/WhatsAppExportSource.h"

#include <algorithm>

#include "support/DateFormat.h"
#include "support/Errors.h"
#include "support/Files.h"
#include "support/Sha256.h"
#include "support/Text.h"

namespace bc {

namespace fs = std::filesystem;

std::optional<fs::path> WhatsAppExportSource::findChatText(const fs::path& folder) {
    std::vector<fs::path> texts;
    std::error_code error;
    for (auto it = fs::recursive_directory_iterator(folder, error);
         !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        if (!it->is_regular_file()) continue;
        if (it->path().filename() == "_chat.txt") return it->path();
        if (text::toLowerAscii(it->path().extension().string()) == ".txt")
            texts.push_back(it->path());
    }
    if (texts.empty()) return std::nullopt;
    // Directory order differs between machines; the same import must always read the same file.
    return *std::min_element(texts.begin(), texts.end());
}

WhatsAppExportSource::WhatsAppExportSource(SealedChatExport sealed) : sealed_(std::move(sealed)) {
    const auto found = findChatText(sealed_.folder / "extracted");
    if (!found) throw Error(noChatText);
    chatText_ = *found;
    ImportSettings settings = sealed_.settings();
    const WhatsAppExportParser::Options options{
        .mediaFolder = chatText_.parent_path(),
        .ownerName = settings.ownerName,
        .guidPrefix = "wa-export:" + sealed_.id + ":",
        .timeZone = settings.timeZone.value_or(dates::currentTimeZone()),
        .dayFirstOverride = settings.dayFirst,
    };
    parsed_ = WhatsAppExportParser::parse(WhatsAppExportParser::decode(files::readFile(chatText_)),
                                          options);
    for (auto& message : parsed_.messages) message.chatID = chatID;
    if (!settings.dayFirst && parsed_.dayFirst) {
        settings.dayFirst = parsed_.dayFirst;
        sealed_.keepSettings(settings);
    }
}

std::string WhatsAppExportSource::sourceDescription() const {
    return "an imported WhatsApp chat export (" + sealed_.id + ", from " + sealed_.originalName +
           ")";
}

std::vector<Chat> WhatsAppExportSource::fetchChats() {
    Chat chat{.id = chatID,
              .identifier = sealed_.id,
              .displayName = sealed_.settings().chatName,
              .service = "WhatsApp (export)",
              .participants = parsed_.participants,
              .messageCount = static_cast<int64_t>(parsed_.messages.size())};
    if (const auto range = dateRange({chatID})) chat.lastDate = range->second;
    return {chat};
}

Transcript WhatsAppExportSource::fetchTranscript(const std::vector<int64_t>& chatIDs) {
    Transcript transcript;
    if (std::find(chatIDs.begin(), chatIDs.end(), chatID) != chatIDs.end())
        transcript.messages = parsed_.messages;
    return transcript;
}

std::optional<std::pair<Date, Date>> WhatsAppExportSource::dateRange(
    const std::vector<int64_t>& chatIDs) {
    if (parsed_.messages.empty() ||
        std::find(chatIDs.begin(), chatIDs.end(), chatID) == chatIDs.end())
        return std::nullopt;
    const auto [first, last] =
        std::minmax_element(parsed_.messages.begin(), parsed_.messages.end(),
                            [](const Message& a, const Message& b) { return a.date < b.date; });
    return std::pair{first->date, last->date};
}

CustodyRecord::Source WhatsAppExportSource::custodySource() const {
    CustodyRecord::Source source{.kind = "whatsapp-export-import", .path = chatText_.string()};
    try {
        source.databaseSHA256 = Sha256::hexOfFile(chatText_);
    } catch (const Error&) {
        source.databaseSHA256 = "unreadable";
    }
    source.note = "Uploaded file " + sealed_.originalName + ", " + sealed_.originalSHA256 +
                  ", SHA-256 as received. Sealed as " + sealed_.id + ".";
    return source;
}

}  // namespace bc
