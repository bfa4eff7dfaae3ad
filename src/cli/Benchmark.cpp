#include "cli/Benchmark.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>

#include <sqlite3.h>
#include <sys/resource.h>

#include "cli/DatabaseChoice.h"
#include "demo/LargeSample.h"
#include "evidence/Timeline.h"
#include "export/HTMLExporter.h"
#include "sources/MessageDatabase.h"
#include "support/CancelFlag.h"
#include "support/Errors.h"
#include "support/Files.h"
#include "support/Machine.h"
#include "support/Sqlite.h"

namespace bc::cli {

namespace {

namespace fs = std::filesystem;

// Seconds of processor time this process used so far, every thread and the kernel included.
double processorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& t) {
        return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Wall and processor seconds of one phase: a shared machine's load shows in the first only.
struct Took {
    double wall = 0, processor = 0;
};

// Runs one phase, printing "%7.3f s" and its name, then its result line; `took` receives the
// time taken.
template <typename Work>
auto timed(std::ostream& out, const char* name, Work&& work, Took* took = nullptr) {
    const auto start = std::chrono::steady_clock::now();
    const double startProcessor = processorSeconds();
    auto result = work();
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    if (took) *took = {seconds.count(), processorSeconds() - startProcessor};
    char text[32];
    std::snprintf(text, sizeof text, "%7.3f s", seconds.count());
    out << text << "  " << name << std::endl;
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

// Written so that the floor's fetches are not optimised away.
volatile uint64_t floorSink = 0;

// The engine's own cost of what every transcript reads: each row of the tables the reader joins,
// stepped in row order with every column fetched as stored, through the C interface alone. The
// reader is judged by its ratio to this, taken in the same run on the same machine state.
size_t floorPass(const std::filesystem::path& path) {
    sqlite::Connection db(path, sqlite::OpenMode::readOnlyUntouched);
    // Read the way the reader reads.
    db.execute(MessageDatabase::mapPragma);
    size_t rows = 0;
    uint64_t touched = 0;
    for (const char* table :
         {"chat_message_join", "message_attachment_join", "attachment", "handle", "message"}) {
        sqlite3_stmt* raw = nullptr;
        const std::string sql = "SELECT * FROM " + std::string(table);
        if (sqlite3_prepare_v2(db.handle(), sql.c_str(), -1, &raw, nullptr) != SQLITE_OK)
            throw DBError::query(db.errorMessage());
        const std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> owned(raw, sqlite3_finalize);
        const int columns = sqlite3_column_count(raw);
        int result = SQLITE_ROW;
        while ((result = sqlite3_step(raw)) == SQLITE_ROW) {
            ++rows;
            for (int column = 0; column < columns; ++column) {
                switch (sqlite3_column_type(raw, column)) {
                    case SQLITE_INTEGER:
                        touched += static_cast<uint64_t>(sqlite3_column_int64(raw, column));
                        break;
                    case SQLITE_FLOAT:
                        touched += static_cast<uint64_t>(sqlite3_column_double(raw, column));
                        break;
                    case SQLITE_TEXT:
                        touched += sqlite3_column_text(raw, column)[0];
                        touched += static_cast<uint64_t>(sqlite3_column_bytes(raw, column));
                        break;
                    case SQLITE_BLOB:
                        touched += static_cast<uint64_t>(sqlite3_column_bytes(raw, column));
                        if (sqlite3_column_bytes(raw, column) > 0)
                            touched += static_cast<const unsigned char*>(
                                sqlite3_column_blob(raw, column))[0];
                        break;
                    default:
                        break;
                }
            }
        }
        if (result != SQLITE_DONE) throw DBError::query(db.errorMessage());
    }
    floorSink = touched;
    return rows;
}

// Resident memory of this process in bytes: now, or its peak since the last reset. Linux keeps
// both in /proc; elsewhere they are not measured (none).
std::optional<double> residentBytes(const char* field) {
#ifdef __linux__
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(field)) return std::atof(line.c_str() + std::strlen(field)) * 1024.0;
#else
    (void)field;
#endif
    return std::nullopt;
}

// Makes the peak the current size, so a phase's own peak can be read afterwards.
bool resetPeakMemory() {
    std::ofstream reset("/proc/self/clear_refs");
    reset << "5";
    reset.close();
    return static_cast<bool>(reset);
}

// The largest conversation read again and written as an HTML archive into a scratch folder that
// is removed afterwards; returns the growth of the peak resident memory over what was held
// before, when this system measures it.
std::optional<double> archivePeakGrowth(MessageDatabase& database, const std::vector<int64_t>& ids,
                                        size_t& messages) {
    const bool measured = resetPeakMemory();
    const auto before = residentBytes("VmRSS:");
    const fs::path folder = files::temporarySibling(fs::temp_directory_path() / "bc-benchmark");
    try {
        const Transcript transcript = database.fetchTranscript(ids);
        messages = transcript.messages.size();
        const HTMLExporter exporter(
            {.title = "Benchmark", .sourceDescription = MessageDatabase::description},
            [](bool isFromMe, const std::string& handle) { return isFromMe ? "Me" : handle; },
            transcript.messages, {});
        exporter.exportTranscript(transcript, folder, CancelFlag(), {});
    } catch (...) {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
        throw;
    }
    std::error_code ignored;
    fs::remove_all(folder, ignored);
    const auto peak = residentBytes("VmHWM:");
    if (!measured || !before || !peak) return std::nullopt;
    return *peak - *before;
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
        size_t archived = 0;
        const auto growth = timed(out_, "HTML archive of it, read again",
                                  [&] { return archivePeakGrowth(*database, ids, archived); });
        if (growth && archived > 0)
            out_ << "  peak resident memory +" << std::lround(*growth / 1e6) << " MB, "
                 << std::lround(*growth / static_cast<double>(archived)) << " bytes per message\n";
        const auto signature =
            timed(out_, "change signature", [&] { return database->changeSignature(); });
        out_ << "  " << signature << "\n";
        const auto unchanged = timed(out_, "change signature again, nothing changed",
                                     [&] { return database->changeSignature(); });
        out_ << "  " << (unchanged == signature ? "same" : "moved") << "\n";
        Took floorTook, everyTook;
        const auto stepped = timed(
            out_, "floor: one C pass over the rows transcripts read",
            [&] { return floorPass(path); }, &floorTook);
        out_ << "  rows stepped: " << stepped << "\n";
        const auto indexed = timed(
            out_, "every transcript (search index)",
            [&] {
                size_t rows = 0;
                for (const auto& chat : chats)
                    rows += database->fetchTranscript({chat.id}).messages.size();
                return rows;
            },
            &everyTook);
        char ratio[96];
        std::snprintf(ratio, sizeof ratio,
                      "%.2f\u00D7 the floor (processor time %.3f s, %.2f\u00D7)",
                      everyTook.wall / floorTook.wall, everyTook.processor,
                      everyTook.processor / floorTook.processor);
        out_ << "  rows indexed: " << indexed << ", " << ratio << "\n";
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
