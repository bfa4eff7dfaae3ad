#include "cli/DatabaseChoice.h"

#include "cli/DemoStores.h"
#include "support/Errors.h"

namespace bc::cli {

namespace {

std::string quoted(const std::filesystem::path& path) {
    return "\u201C" + path.string() + "\u201D";
}

}  // namespace

std::unique_ptr<MessageDatabase> openMessagesDatabase(const std::filesystem::path& path) {
    try {
        return std::make_unique<MessageDatabase>(path);
    } catch (const DBError& error) {
        throw Error("Couldn't open the Messages database " + quoted(path) + ": " + error.text());
    }
}

DatabaseChoice DatabaseChoice::from(const Arguments& arguments) {
    if (arguments.contains("--demo"))
        return {redirectStoresToDemo(), "the generated sample Messages database (demo mode)"};
    if (const auto file = arguments.value("--database"))
        return {std::filesystem::absolute(*file), "the Messages database file " +
                                                      std::filesystem::absolute(*file).string() +
                                                      " (read-only)"};
    return {MessageDatabase::defaultPath(), MessageDatabase::description};
}

std::unique_ptr<MessageDatabase> DatabaseChoice::open() const {
    return openMessagesDatabase(path);
}

std::string DatabaseChoice::readFailure(const DBError& error) const {
    return "Couldn't read the Messages database " + quoted(path) + ": " + error.text();
}

}  // namespace bc::cli
