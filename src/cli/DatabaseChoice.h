#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "cli/Arguments.h"
#include "sources/MessageDatabase.h"
#include "support/Errors.h"

namespace bc::cli {

// The Messages database a command reads: the generated sample with "--demo" (stores moved to the
// demo folder), the file named by "--database", else the signed-in user's live database.
struct DatabaseChoice {
    std::filesystem::path path;
    std::string description;  // how exports and certificates name the source, truthfully

    // Call only once the arguments are known to be valid: demo mode writes its sample files.
    static DatabaseChoice from(const Arguments& arguments);
    // Read-only. Throws Error naming the file, then the engine's words.
    std::unique_ptr<MessageDatabase> open() const;
    // The sentence for a database that opened but could not be read through.
    std::string readFailure(const DBError& error) const;
};

// The Messages database at `path`, read-only. Throws Error: "Couldn't open the Messages database
// “path”: " + the engine's words.
std::unique_ptr<MessageDatabase> openMessagesDatabase(const std::filesystem::path& path);

}  // namespace bc::cli
