#include "cli/DatabaseChoice.h"

#include <algorithm>

#include "custody/Imports.h"
#include "custody/Preservation.h"
#include "demo/DemoStores.h"
#include "sources/WhatsAppDatabase.h"
#include "support/Errors.h"

namespace bc::cli {

namespace fs = std::filesystem;

namespace {

std::string quoted(const std::string& text) {
    return "\u201C" + text + "\u201D";
}

std::string quoted(const fs::path& path) {
    return quoted(path.string());
}

std::string messagesReadFailure(const fs::path& path) {
    return "Couldn't read the Messages database " + quoted(path) + ": ";
}

constexpr std::string_view snapshotPrefix = "snapshot:";
constexpr std::string_view importPrefix = "import:";

// What --database names: a Messages database as before, else a WhatsApp ChatStorage file. A file
// that is neither fails with the Messages probe's words.
ChosenSource openDatabaseFile(const DatabaseChoice& choice) {
    try {
        return {choice.open(), choice.description, messagesReadFailure(choice.path)};
    } catch (const Error& messagesFailure) {
        try {
            auto whatsApp = std::make_unique<WhatsAppDatabase>(
                choice.path, std::nullopt, WhatsAppDatabase::Origin::chosenFile,
                "the WhatsApp database file " + choice.path.string() + " (read-only)");
            std::string description = whatsApp->sourceDescription();
            return {std::move(whatsApp), std::move(description),
                    "Couldn't read the WhatsApp database " + quoted(choice.path) + ": "};
        } catch (const DBError&) {
            throw messagesFailure;
        }
    }
}

ChosenSource openWhatsAppForMac() {
    const fs::path path = WhatsAppDatabase::macDatabasePath();
    if (!fs::exists(path))
        throw Error(
            "Couldn't open the source \u201Cwhatsapp\u201D: there is no WhatsApp for Mac "
            "database at " +
            path.string() + ".");
    try {
        return {WhatsAppDatabase::openMac(), WhatsAppDatabase::liveLabel,
                "Couldn't read WhatsApp for Mac's database: "};
    } catch (const DBError& error) {
        throw Error("Couldn't open the source \u201Cwhatsapp\u201D: " + error.text());
    }
}

// A sealed snapshot or import by its identifier; gone or never there, one sentence says so.
template <typename Info, typename Open>
ChosenSource openSealed(const std::string& name, const std::vector<Info>& sealed,
                        std::string_view id, const char* what, Open open) {
    const auto found =
        std::find_if(sealed.begin(), sealed.end(), [&](const Info& info) { return info.id == id; });
    if (found == sealed.end())
        throw Error("Couldn't open the source " + quoted(name) + ": there is no " + what +
                    " with that identifier (--list-sources lists them).");
    try {
        return open(*found);
    } catch (const std::exception& error) {
        throw Error("Couldn't open the source " + quoted(name) + ": " + error.what());
    }
}

}  // namespace

std::vector<std::string> participantHandles(MessageSource& source,
                                            const std::vector<int64_t>& chatIDs) {
    if (auto* messages = dynamic_cast<MessageDatabase*>(&source)) return messages->handles(chatIDs);
    std::vector<std::string> handles;
    for (const auto& chat : source.fetchChats()) {
        if (std::find(chatIDs.begin(), chatIDs.end(), chat.id) == chatIDs.end()) continue;
        for (const auto& handle : chat.participants)
            if (std::find(handles.begin(), handles.end(), handle) == handles.end())
                handles.push_back(handle);
    }
    return handles;
}

std::unique_ptr<MessageDatabase> openMessagesDatabase(
    const std::filesystem::path& path, std::optional<MessageDatabase::Origin> origin) {
    try {
        return std::make_unique<MessageDatabase>(path, origin);
    } catch (const DBError& error) {
        throw Error("Couldn't open the Messages database " + quoted(path) + ": " + error.text());
    }
}

DatabaseChoice DatabaseChoice::from(const Arguments& arguments) {
    if (arguments.contains("--demo"))
        return {redirectStoresToDemo(), "the generated sample Messages database (demo mode)",
                MessageDatabase::Origin::demoSample};
    if (const auto file = arguments.value("--database"))
        return {std::filesystem::absolute(*file), "the Messages database file " +
                                                      std::filesystem::absolute(*file).string() +
                                                      " (read-only)"};
    return {MessageDatabase::defaultPath(), MessageDatabase::description};
}

std::unique_ptr<MessageDatabase> DatabaseChoice::open() const {
    return openMessagesDatabase(path, origin);
}

std::optional<std::string> ChosenSource::argumentProblem(const Arguments& arguments) {
    const auto name = arguments.value("--source");
    if (!name) return std::nullopt;
    if (arguments.contains("--database")) return "choose either --source or --database";
    const auto names = [&](std::string_view prefix) {
        return name->starts_with(prefix) && name->size() > prefix.size();
    };
    if (*name == "messages" || *name == "whatsapp" || names(snapshotPrefix) || names(importPrefix))
        return std::nullopt;
    return "--source must be messages, whatsapp, snapshot:ID or import:ID (as --list-sources "
           "prints them), got " +
           quoted(*name);
}

ChosenSource ChosenSource::open(const Arguments& arguments) {
    // Demo mode moves every store first, so its snapshots and imports are the ones found.
    const DatabaseChoice messages = DatabaseChoice::from(arguments);
    const std::string name = arguments.value("--source").value_or("messages");
    if (name == "whatsapp") return openWhatsAppForMac();
    if (name.starts_with(snapshotPrefix))
        return openSealed(name, Preservation::list(), name.substr(snapshotPrefix.size()),
                          "snapshot", [](const SnapshotInfo& info) {
                              return ChosenSource{
                                  Preservation::open(info),
                                  "the preservation snapshot " + info.id + " (sealed, read-only)",
                                  "Couldn't read the snapshot " + info.id + ": "};
                          });
    if (name.starts_with(importPrefix)) {
        const auto [id, part] = Imports::parsePartName(name.substr(importPrefix.size()));
        return openSealed(name, Imports::list(), id, "import",
                          [part = part](const ImportInfo& info) {
                              auto source = Imports::open(info, part);
                              std::string description = source->sourceDescription();
                              return ChosenSource{std::move(source), std::move(description),
                                                  "Couldn't read the import " + info.id + ": "};
                          });
    }
    if (arguments.contains("--database")) return openDatabaseFile(messages);
    return {messages.open(), messages.description, messagesReadFailure(messages.path)};
}

}  // namespace bc::cli
