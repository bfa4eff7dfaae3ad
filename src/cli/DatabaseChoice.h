#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/Arguments.h"
#include "sources/MessageDatabase.h"
#include "support/Errors.h"

namespace bc::cli {

// The Messages database a command reads: the generated sample with "--demo" (stores moved to the
// demo folder), the file named by "--database", else the signed-in user's live database.
struct DatabaseChoice {
    std::filesystem::path path;
    std::string description;  // how exports and certificates name the source, truthfully
    std::optional<MessageDatabase::Origin> origin;  // by its path unless demo mode chose it

    // Call only once the arguments are known to be valid: demo mode writes its sample files.
    static DatabaseChoice from(const Arguments& arguments);
    // Read-only. Throws Error naming the file, then the engine's words.
    std::unique_ptr<MessageDatabase> open() const;
};

// What an export reads. "--source" takes the identifiers --list-sources prints: "messages" (the
// database DatabaseChoice names), "whatsapp" (WhatsApp for Mac's), "snapshot:ID", "import:ID".
// Without it, "--database" may also name a WhatsApp ChatStorage file, told apart by its probe.
struct ChosenSource {
    std::unique_ptr<MessageSource> source;
    std::string description;        // how exports and certificates name the source, truthfully
    std::string readFailurePrefix;  // the sentence for a source that opened but failed to read

    // The usage problem of "--source", if any: a malformed value, or "--database" beside it.
    static std::optional<std::string> argumentProblem(const Arguments& arguments);
    // Call only once the arguments are valid. Throws Error: one sentence naming the source.
    static ChosenSource open(const Arguments& arguments);
    std::string readFailure(const DBError& error) const { return readFailurePrefix + error.text(); }
};

// The people of those conversations: the Messages reader's handles in row order, else every
// participant of the chats, by first appearance.
std::vector<std::string> participantHandles(MessageSource& source,
                                            const std::vector<int64_t>& chatIDs);

// The Messages database at `path`, read-only. Throws Error: "Couldn't open the Messages database
// “path”: " + the engine's words.
std::unique_ptr<MessageDatabase> openMessagesDatabase(
    const std::filesystem::path& path,
    std::optional<MessageDatabase::Origin> origin = std::nullopt);

}  // namespace bc::cli
