#include "cli/CounselCommands.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <memory>

#include "cli/CommandLineExport.h"
#include "cli/DatabaseChoice.h"
#include "cli/PasswordInput.h"
#include "counsel/CounselBundle.h"
#include "counsel/CounselStatement.h"
#include "custody/CustodySystemInfo.h"
#include "demo/DemoStores.h"
#include "sources/MessageDatabase.h"

namespace bc::cli {

namespace fs = std::filesystem;

namespace {

struct Conversation {
    std::string title;
    std::vector<std::string> participants;
};

Conversation conversation(MessageSource& database, const std::vector<int64_t>& ids) {
    Conversation found;
    for (const auto& chat : database.fetchChats()) {
        if (std::find(ids.begin(), ids.end(), chat.id) == ids.end()) continue;
        found.title = chat.displayName.empty() ? chat.identifier : chat.displayName;
        break;
    }
    found.participants = participantHandles(database, ids);
    return found;
}

// "--source": a source as --list-sources names it, a snapshot folder (its sealed chat.db) or a
// database file; else the usual choice.
struct StatementSource {
    std::unique_ptr<MessageSource> database;
    std::string kind;
    std::string path;
    std::optional<std::string> note;
};

StatementSource openSource(const Arguments& arguments) {
    if (const auto given = arguments.value("--source");
        given && !ChosenSource::argumentProblem(arguments)) {
        auto chosen = ChosenSource::open(arguments);
        const auto custody = chosen.source->custodySource();
        return {std::move(chosen.source), custody.kind, custody.path, custody.note};
    }
    const auto source = [](std::unique_ptr<MessageSource> database, std::string kind) {
        std::string path = database->path();
        return StatementSource{std::move(database), std::move(kind), std::move(path)};
    };
    if (const auto given = arguments.value("--source")) {
        const fs::path path = fs::absolute(*given);
        if (fs::is_directory(path))
            return source(std::make_unique<MessageDatabase>(path / "chat.db",
                                                            MessageDatabase::Origin::sealedCopy),
                          "snapshot");
        return source(std::make_unique<MessageDatabase>(path), "live");
    }
    return source(DatabaseChoice::from(arguments).open(), "live");
}

}  // namespace

bool CounselCommands::refuseExisting(const fs::path& file) {
    if (!fs::exists(fs::symlink_status(file))) return false;
    err_ << "error: " << file.string() << " already exists; choose a new file\n";
    return true;
}

std::optional<std::string> CounselCommands::password() {
    std::string password, confirmation;
    if (&in_ == &std::cin && ::isatty(STDIN_FILENO)) {
        password = askHidden(in_, err_, "Password for the bundle: ");
        confirmation = askHidden(in_, err_, "The same password again: ");
    } else {
        std::getline(in_, password);
        confirmation = password;
    }
    if (const auto problem = CounselBundle::passwordProblem(password, confirmation)) {
        err_ << "error: " << *problem << "\n";
        return std::nullopt;
    }
    return password;
}

int CounselCommands::bundle() {
    std::optional<std::string> title, destination;
    std::vector<fs::path> items;
    const auto& all = arguments_.items();
    for (size_t i = 0; i < all.size(); ++i) {
        if (all[i] == "--bundle" || all[i] == "--demo") continue;
        if ((all[i] == "--title" || all[i] == "--out") && i + 1 < all.size()) {
            auto& option = all[i] == "--title" ? title : destination;
            option = all[++i];
        } else if (all[i].starts_with("--")) {
            err_ << "Unknown option " << all[i] << ".\n" << bundleUsage << "\n";
            return 2;
        } else {
            // "Folder/", as shells complete it, names the folder itself.
            const fs::path item = fs::absolute(all[i]);
            items.push_back(item.has_filename() ? item : item.parent_path());
        }
    }
    if (!title || !destination || items.empty()) {
        err_ << bundleUsage << "\n";
        return 2;
    }
    const auto secret = password();
    if (!secret) return 2;
    const fs::path file = fs::absolute(*destination);
    if (refuseExisting(file)) return 1;
    try {
        if (arguments_.contains("--demo")) redirectStoresToDemo();
    } catch (const std::exception& e) {
        err_ << "error: " << e.what() << "\n";
        return 1;
    }
    const auto outcome = CounselBundle::make(items, *title, *secret, file, cancel_, phasesTo(err_));
    if (outcome.status == CounselBundle::Outcome::Status::saved) {
        out_ << outcome.message << "\n";
        return 0;
    }
    err_ << (outcome.fileKept() ? "" : "error: ") << outcome.message << "\n";
    return 1;
}

int CounselCommands::statement() {
    const auto list = arguments_.value("--chats");
    const auto destination = arguments_.value("--out");
    if (!list || !destination) {
        err_ << statementUsage << "\n";
        return 2;
    }
    const auto ids = CommandLineExport(arguments_, out_, err_, cancel_).chatIDs(*list);
    if (!ids) return 2;
    const fs::path file = fs::absolute(*destination);
    if (refuseExisting(file)) return 1;
    try {
        auto source = openSource(arguments_);
        const auto chat = conversation(*source.database, *ids);
        CounselStatement::Input input{.conversation = chat.title,
                                      .participants = chat.participants,
                                      .system = custodySystemInfo::current(),
                                      .sourcePath = source.path,
                                      .sourceKind = source.kind,
                                      .sourceNote = source.note,
                                      .preparedAt = Clock::now()};
        CounselStatement::readLog(input, *ids);
        docx::write(CounselStatement::document(input), file);
        out_ << "Draft statement saved to \u201C" << file.filename().string() << "\u201D\n";
        return 0;
    } catch (const std::exception& e) {
        err_ << "error: " << e.what() << "\n";
        return 1;
    }
}

}  // namespace bc::cli
