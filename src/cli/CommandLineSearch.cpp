#include "cli/CommandLineSearch.h"

#include <filesystem>
#include <map>
#include <set>

#include "cli/CommandLineExport.h"
#include "cli/DatabaseChoice.h"
#include "evidence/MachineText.h"
#include "evidence/SearchExport.h"
#include "support/DateFormat.h"

namespace bc::cli {

namespace fs = std::filesystem;

namespace {

std::string oneLine(std::string text) {
    for (char& c : text)
        if (c == '\n' || c == '\r') c = ' ';
    return text;
}

std::string isoDate(Date date) {
    return dates::formatPattern(date, "yyyy-MM-dd'T'HH:mm:ssxxx", "en_US_POSIX");
}

}  // namespace

std::optional<std::pair<SearchQuery, std::vector<int64_t>>> CommandLineSearch::query() {
    CommandLineExport parsing(arguments_, out_, err_, cancel_);
    SearchQuery query{.text = arguments_.value("--search").value_or("")};
    std::vector<int64_t> chats;
    if (const auto list = arguments_.value("--chats")) {
        auto ids = parsing.chatIDs(*list);
        if (!ids) return std::nullopt;
        chats = *ids;
        if (chats.size() == 1) query.chatID = chats.front();
    }
    const auto from = parsing.day("--from");
    const auto to = parsing.day("--to");
    if (!from || !to) return std::nullopt;
    query.from = *from;
    query.to = *to;
    const std::string sender = arguments_.value("--sender").value_or("anyone");
    const auto named = searchSender::named(sender);
    if (!named) {
        err_ << "error: --sender must be anyone, me or others, got \"" << sender << "\"\n";
        return std::nullopt;
    }
    query.sender = *named;
    query.attachmentsOnly = arguments_.contains("--attachments-only");
    query.deletedOnly = arguments_.contains("--deleted-only");
    query.includeMachineText = arguments_.contains("--machine-text");
    if (query.isEmpty()) {
        err_ << "error: --search needs a text or a filter; an empty search is never run\n";
        return std::nullopt;
    }
    return std::pair{query, chats};
}

int CommandLineSearch::run() {
    const auto asked = query();
    if (!asked) return 2;
    const auto& [query, chats] = *asked;
    const auto format = rangeExportFormat::named(arguments_.value("--format").value_or("html"));
    if (!format) {
        err_ << "error: --format must be pdf, jpg, html or csv\n";
        return 2;
    }
    if (const auto problem = ChosenSource::argumentProblem(arguments_)) {
        err_ << "error: " << *problem << "\n";
        return 2;
    }
    const auto out = arguments_.value("--out");
    CommandLineExport exports(arguments_, out_, err_, cancel_);
    try {
        const auto chosen = ChosenSource::open(arguments_);
        auto& source = chosen.source;
        Searches searches;
        const auto index = searches.index(*source, cancel_, phasesTo(err_));
        const auto outcome =
            runSearch(*source, *index, query, chats, storedMachineTextLookup(), cancel_);
        if (outcome.notice) err_ << *outcome.notice << "\n";

        const auto nameFor = namesFor(arguments_.contains("--demo"), *source);
        std::map<int64_t, std::string> titles;
        for (const auto& chat : source->fetchChats())
            titles[chat.id] =
                chat.displayName.empty() ? nameFor(false, chat.identifier) : chat.displayName;
        std::set<int64_t> conversations;
        for (const auto& hit : outcome.messages) {
            conversations.insert(hit.chatID);
            out_ << titles[hit.chatID] << "  " << isoDate(hit.date) << "  "
                 << nameFor(hit.isFromMe, hit.sender) << ": " << oneLine(hit.text) << "\n";
        }
        out_ << outcome.messages.size() << " hits in " << conversations.size()
             << " conversations\n";
        if (!out || outcome.messages.empty()) return 0;

        const auto job = searchExport::makeJob(query, outcome.messages, *format, chosen.description,
                                               [&](int64_t chatID) { return titles[chatID]; });
        const fs::path folder = fs::absolute(*out).lexically_normal();
        if (fs::exists(fs::symlink_status(folder)))
            return exports.fail(*out + " already exists; choose a new folder");
        return exports.publish(
            job, folder, withStoredMachineText({*source, std::nullopt, nameFor, {}}, job.messages));
    } catch (const std::exception& e) {
        return exports.fail(e.what());
    }
}

}  // namespace bc::cli
