#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "model/MessageSource.h"

namespace bc {

namespace sqlite {
class Connection;
}

// Reads a WhatsApp ChatStorage database strictly read-only: WhatsApp for Mac's own, or a sealed
// copy made by an import. One connection per object; every public operation holds a recursive
// lock. Failures throw DBError.
class WhatsAppDatabase : public MessageSource {
public:
    static constexpr const char* liveLabel = "WhatsApp for Mac's database (read-only)";
    static constexpr const char* probeFailure =
        "Not a WhatsApp ChatStorage database, or it can't be read: ";

    // Where the file comes from decides how it is opened and how custody records name it.
    enum class Origin {
        live,          // WhatsApp for Mac's own, which it may be writing
        sealedImport,  // an import's copy, opened as a "file:…?immutable=1" URI
        chosenFile,    // a file the user pointed at, whose folder is left exactly as it was
    };

    // The probe runs here, so a file that is not a ChatStorage database never becomes an object.
    WhatsAppDatabase(const std::filesystem::path& path,
                     std::optional<std::filesystem::path> mediaRoot, Origin origin,
                     std::string label);
    ~WhatsAppDatabase() override;

    // WhatsApp for Mac's app-group container under the home folder.
    static std::filesystem::path macContainer();
    static std::filesystem::path macDatabasePath() { return macContainer() / "ChatStorage.sqlite"; }
    static std::unique_ptr<WhatsAppDatabase> openMac();

    const std::string& label() const { return label_; }
    const std::optional<std::filesystem::path>& mediaRoot() const { return mediaRoot_; }

    MessageService service() const override { return MessageService::whatsApp; }
    std::string path() const override { return path_.string(); }
    std::string sourceDescription() const override { return label_; }
    bool isLive() const override { return origin_ == Origin::live; }
    std::vector<Chat> fetchChats() override;
    Transcript fetchTranscript(const std::vector<int64_t>& chatIDs) override;
    std::optional<std::pair<Date, Date>> dateRange(const std::vector<int64_t>& chatIDs) override;
    std::string changeSignature() override;
    CustodyRecord::Source custodySource() const override;

private:
    std::filesystem::path path_;
    std::optional<std::filesystem::path> mediaRoot_;
    Origin origin_;
    std::string label_;
    std::unique_ptr<sqlite::Connection> db_;
    mutable std::recursive_mutex lock_;
};

namespace whatsapp {

// The handle a JID stands for: "+" and the digits for a phone-number account, else the JID.
std::string handle(const std::string& jid);
bool isGroupJID(const std::string& jid);
// The MIME type WhatsApp media of that file extension has.
std::string mimeTypeForPath(const std::string& path);

}  // namespace whatsapp

}  // namespace bc
