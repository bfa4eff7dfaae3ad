#include "cli/Benchmark.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "cli/DatabaseChoice.h"
#include "evidence/Timeline.h"
#include "demo/LargeSample.h"
#include "support/Machine.h"

namespace bc::cli {

namespace {

// Runs one phase, printing "%7.3f s" and its name, then its result line.
template <typename Work>
auto timed(std::ostream& out, const char* name, Work&& work) {
    const auto start = std::chrono::steady_clock::now();
    auto result = work();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%7.3f s", took.count());
    out << seconds << "  " << name << std::endl;
    return result;
}

// "1 day", "2 days".
std::string counted(size_t count, const std::string& noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string timelineLine(const Timeline& timeline) {
    return "  timeline: " + counted(timeline.days.size(), "day") + " in " +
           counted(timeline.roots.size(), "year") + ", " +
           counted(timeline.nodesByID.size(), "node");
}

// "  rows: 190139 (messages 180278, calls 0, reaction events 9861)"
std::string rowsLine(const Transcript& transcript) {
    const auto calls =
        static_cast<size_t>(std::count_if(transcript.messages.begin(), transcript.messages.end(),
                                          [](const Message& m) { return m.isCall(); }));
    const size_t reactions = transcript.reactionEvents.size();
    return "  rows: " + std::to_string(transcript.messages.size() + reactions) + " (messages " +
           std::to_string(transcript.messages.size() - calls) + ", calls " + std::to_string(calls) +
           ", reaction events " + std::to_string(reactions) + ")";
}

}  // namespace

int Benchmark::run() {
    const auto generate = arguments_.value("--generate");
    int64_t messages = 0;
    if (generate) {
        const auto [end, error] =
            std::from_chars(generate->data(), generate->data() + generate->size(), messages);
        if (error != std::errc() || end != generate->data() + generate->size() || messages < 1) {
            err_ << "error: --generate must be a number of messages, got \"" << *generate << "\"\n";
            return 2;
        }
    }
    std::filesystem::path path;
    try {
        path = generate ? demo::LargeSample{std::max<int64_t>(messages, 1000)}.cachedFile()
                        : DatabaseChoice::from(arguments_).path;
    } catch (const std::exception& e) {
        err_ << "error: " << e.what() << "\n";
        return 1;
    }
    std::unique_ptr<MessageDatabase> database;
    try {
        database = timed(out_, "open database", [&] { return openMessagesDatabase(path); });
    } catch (const std::exception& e) {
        err_ << "error: " << e.what() << "\n";
        return 1;
    }
    try {
        const auto chats =
            timed(out_, "list conversations", [&] { return database->fetchChats(); });
        out_ << "  conversations: " << chats.size() << "\n";
        const Chat* largest = nullptr;
        for (const auto& chat : chats)
            if (!largest || chat.messageCount > largest->messageCount) largest = &chat;
        std::vector<int64_t> ids =
            largest ? std::vector<int64_t>{largest->id} : std::vector<int64_t>{};
        const auto transcript = timed(out_, "largest conversation transcript",
                                      [&] { return database->fetchTranscript(ids); });
        out_ << rowsLine(transcript) << "\n";
        const auto timeline =
            timed(out_, "timeline for it", [&] { return Timeline(transcript.messages); });
        out_ << timelineLine(timeline) << "\n";
        const auto signature =
            timed(out_, "change signature", [&] { return database->changeSignature(); });
        out_ << "  " << signature << "\n";
        const auto indexed = timed(out_, "every transcript (search index)", [&] {
            size_t rows = 0;
            for (const auto& chat : chats)
                rows += database->fetchTranscript({chat.id}).messages.size();
            return rows;
        });
        out_ << "  rows indexed: " << indexed << "\n";
        const auto attachments =
            timed(out_, "attachment paths", [&] { return database->attachmentPaths(); });
        out_ << "  attachments: " << attachments.size() << "\n";
        const auto present = timed(out_, "check every attachment file exists", [&] {
            size_t found = 0;
            std::error_code error;
            for (const auto& [id, file] : attachments)
                found += std::filesystem::exists(file, error);
            return found;
        });
        out_ << "  attachments: " << attachments.size() << ", on " << thisMachine << ": " << present
             << "\n";
        return 0;
    } catch (const std::exception& e) {
        err_ << "error: " << e.what() << "\n";
        return 1;
    }
}

}  // namespace bc::cli
