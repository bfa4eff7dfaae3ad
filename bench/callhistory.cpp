// Cost of putting calls into a transcript: a cold read of a large call log, and the cached lookup
// that every later transcript pays.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>

#include "sources/CallHistory.h"
#include "support/Sqlite.h"

namespace {

namespace fs = std::filesystem;

fs::path writeLog(int64_t calls) {
    const fs::path file =
        fs::temp_directory_path() / ("bc-bench-calls-" + std::to_string(calls) + ".storedata");
    fs::remove(file);
    bc::sqlite::Connection db(file, bc::sqlite::OpenMode::readWriteCreate);
    db.execute(
        "CREATE TABLE ZCALLRECORD (Z_PK INTEGER PRIMARY KEY, ZANSWERED INTEGER, ZCALLTYPE INTEGER, "
        "ZORIGINATED "
        "INTEGER, ZDATE TIMESTAMP, ZDURATION FLOAT, ZADDRESS VARCHAR, ZSERVICE_PROVIDER VARCHAR, "
        "ZUNIQUE_ID VARCHAR);"
        "BEGIN");
    auto insert = db.prepare(
        "INSERT INTO ZCALLRECORD VALUES (?, 1, 1, 0, ?, 60.0, ?, 'com.apple.Telephony', ?)");
    for (int64_t i = 1; i <= calls; ++i) {
        // A thousand different people, written as a phone shows them.
        const std::string address =
            "+1 (555) 01" + std::to_string(i % 1000 + 1000).substr(1) + "-00";
        insert.bind(1, i).bind(2, double(i) * 60).bind(3, std::string_view(address));
        insert.bind(4, std::string_view("call-" + std::to_string(i)));
        insert.step();
        insert.reset();
    }
    db.execute("COMMIT");
    return file;
}

void coldRead(benchmark::State& state) {
    const fs::path file = writeLog(state.range(0));
    for (auto _ : state) benchmark::DoNotOptimize(bc::CallHistory::readAll(file));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
    fs::remove(file);
}

void cachedLookup(benchmark::State& state) {
    const fs::path file = writeLog(state.range(0));
    bc::CallHistory history;
    history.allCalls(file);
    for (auto _ : state) benchmark::DoNotOptimize(history.calls({"5550123400"}, file));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
    fs::remove(file);
}

}  // namespace

BENCHMARK(coldRead)->Arg(100'000)->Unit(benchmark::kMillisecond);
BENCHMARK(cachedLookup)->Arg(100'000)->Unit(benchmark::kMillisecond);
