// Reading a 200,000-message WhatsApp ChatStorage transcript, against a plain C pass of the
// sqlite3 API over the very statements the reader ran (captured through the engine's trace
// hook, values expanded), reading every column of every row and building nothing.
// BC_BENCH_WHATSAPP_MESSAGES sets the size.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdlib>
#include <filesystem>

#include "StatementTrace.h"
#include "demo/DemoWriters.h"
#include "sources/WhatsAppDatabase.h"
#include "support/Files.h"
#include "support/Sqlite.h"

namespace {

namespace fs = std::filesystem;

int64_t configuredMessages() {
    const char* value = std::getenv("BC_BENCH_WHATSAPP_MESSAGES");
    return value ? std::max<int64_t>(std::atoll(value), 1000) : 200'000;
}

const int64_t totalMessages = configuredMessages();

// One conversation: texts of varied length, a photo in every twentieth row, a starred row in
// every fiftieth, every tenth row an older form with an integer date.
const fs::path& databaseFile() {
    static const fs::path file = [] {
        const fs::path path = fs::temp_directory_path() /
                              ("bc-bench-chatstorage-" + std::to_string(totalMessages) + ".sqlite");
        if (fs::exists(path)) return path;
        const fs::path partial = path.string() + ".partial";
        bc::files::removeAll(partial);
        bc::demo::writeChatStorage(partial,
                                   "INSERT INTO ZWACHATSESSION VALUES (1, 0, "
                                   "'4915112345678@s.whatsapp.net', 'Ann');");
        bc::sqlite::Connection db(partial, bc::sqlite::OpenMode::readWriteCreate);
        db.execute("BEGIN");
        auto message = db.prepare(
            "INSERT INTO ZWAMESSAGE (Z_PK, ZISFROMME, ZMESSAGETYPE, ZSTARRED, ZCHATSESSION, "
            "ZMEDIAITEM, ZMESSAGEDATE, ZFROMJID, ZSTANZAID, ZTEXT) VALUES (?, ?, ?, ?, 1, ?, ?, "
            "'4915112345678@s.whatsapp.net', ?, ?)");
        auto media = db.prepare(
            "INSERT INTO ZWAMEDIAITEM (Z_PK, ZFILESIZE, ZMEDIALOCALPATH) VALUES (?, 184320, ?)");
        const std::string words = "see you at the station tomorrow, the train is at eight ";
        for (int64_t row = 1; row <= totalMessages; ++row) {
            const bool photo = row % 20 == 0;
            message.bind(1, row).bind(2, row % 3 == 0 ? int64_t{1} : int64_t{0});
            message.bind(3, photo ? int64_t{1} : int64_t{0}).bind(4, int64_t{row % 50 == 0});
            if (photo) {
                media.bind(1, row).bind(
                    2, "Media/4915112345678@s.whatsapp.net/" + std::to_string(row) + ".jpg");
                media.step();
                media.reset();
                message.bind(5, row);
            } else {
                message.bindNull(5);
            }
            const double date = 600'000'000.0 + static_cast<double>(row) * 97.5;
            if (row % 10 == 0)
                message.bind(6, static_cast<int64_t>(date));
            else
                message.bind(6, date);
            message.bind(7, "3EB0" + std::to_string(row));
            message.bind(8, words.substr(0, static_cast<size_t>(8 + row % 48)));
            message.step();
            message.reset();
        }
        db.execute("COMMIT");
        fs::rename(partial, path);
        return path;
    }();
    return file;
}

bc::WhatsAppDatabase openReader() {
    return {databaseFile(), std::nullopt, bc::WhatsAppDatabase::Origin::sealedImport, "bench"};
}

void reportRate(benchmark::State& state) {
    state.counters["messages/s"] = benchmark::Counter(
        static_cast<double>(totalMessages), benchmark::Counter::kIsIterationInvariantRate);
}

void reader(benchmark::State& state) {
    auto db = openReader();
    benchmark::DoNotOptimize(db.fetchTranscript({1}));  // warm the page cache
    for (auto _ : state) benchmark::DoNotOptimize(db.fetchTranscript({1}));
    reportRate(state);
}
BENCHMARK(reader)->Unit(benchmark::kMillisecond)->UseRealTime();

// Every row's every column, as text or number by its stored type, into nothing.
void plainC(benchmark::State& state) {
    auto db = openReader();
    const auto statements = bench::statementsOf([&] { db.fetchTranscript({1}); });
    sqlite3* handle = nullptr;
    const std::string uri = "file:" + databaseFile().string() + "?immutable=1";
    if (sqlite3_open_v2(uri.c_str(), &handle, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, nullptr) !=
        SQLITE_OK) {
        state.SkipWithError(sqlite3_errmsg(handle));
        sqlite3_close(handle);
        return;
    }
    for (auto _ : state) {
        int64_t values = 0;
        for (const auto& sql : statements) {
            sqlite3_stmt* statement = nullptr;
            sqlite3_prepare_v2(handle, sql.c_str(), -1, &statement, nullptr);
            while (sqlite3_step(statement) == SQLITE_ROW) {
                for (int column = 0; column < sqlite3_column_count(statement); ++column) {
                    switch (sqlite3_column_type(statement, column)) {
                        case SQLITE_INTEGER:
                            values += sqlite3_column_int64(statement, column);
                            break;
                        case SQLITE_FLOAT:
                            values +=
                                static_cast<int64_t>(sqlite3_column_double(statement, column));
                            break;
                        case SQLITE_NULL:
                            break;
                        default:
                            values += sqlite3_column_bytes(statement, column) +
                                      (sqlite3_column_text(statement, column) != nullptr);
                    }
                }
            }
            sqlite3_finalize(statement);
        }
        benchmark::DoNotOptimize(values);
    }
    sqlite3_close(handle);
    state.counters["statements"] = static_cast<double>(statements.size());
    reportRate(state);
}
BENCHMARK(plainC)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
