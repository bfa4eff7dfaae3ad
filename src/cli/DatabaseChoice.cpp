#include "cli/DatabaseChoice.h"

#include "cli/DemoStores.h"
#include "support/Errors.h"

namespace bc::cli {

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
    try {
        return std::make_unique<MessageDatabase>(path);
    } catch (const std::exception& error) {
        throw Error("Couldn't open the Messages database " + path.string() + ": " + error.what());
    }
}

}  // namespace bc::cli
