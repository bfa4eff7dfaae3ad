#include "cli/DatabaseChoice.h"

#include "cli/DemoStores.h"

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
    return std::make_unique<MessageDatabase>(path);
}

}  // namespace bc::cli
