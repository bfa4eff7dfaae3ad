// A preservation snapshot of a database with many attachment files, against `cp -r` followed by
// `sha256sum` over the same files, both timed in one run. BC_BENCH_SNAPSHOT_FILES and
// BC_BENCH_SNAPSHOT_KIB set the number and size of the files (default 2,000 × 200 KiB).
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>

#include "custody/Preservation.h"
#include "custody/SnapshotLock.h"
#include "demo/DemoData.h"
#include "sources/MessageDatabase.h"
#include "support/Files.h"
#include "support/Process.h"
#include "support/Sqlite.h"

namespace {

namespace fs = std::filesystem;

int setting(const char* name, int fallback) {
    const char* value = std::getenv(name);
    return value ? std::atoi(value) : fallback;
}

// The sample database plus `count` attachment rows, each a file of its own random bytes.
fs::path writeSource(const fs::path& folder, int count, size_t bytes) {
    const fs::path database = folder / "Messages" / "chat.db";
    bc::DemoData::writeMessagesDatabase(database, bc::Clock::now());
    std::mt19937_64 random(42);
    std::string content(bytes, '\0');
    bc::sqlite::Connection db(database, bc::sqlite::OpenMode::readWriteCreate);
    db.execute("BEGIN");
    for (int number = 0; number < count; ++number) {
        for (size_t i = 0; i + 8 <= content.size(); i += 8) {
            const uint64_t word = random();
            std::memcpy(content.data() + i, &word, 8);
        }
        const fs::path file = folder / "Messages" / "Attachments" / std::to_string(number % 100) /
                              ("IMG_" + std::to_string(number) + ".jpg");
        fs::create_directories(file.parent_path());
        bc::files::writeFileAtomically(file, content);
        db.prepare("INSERT INTO attachment (filename) VALUES (?)").bind(1, file.string()).step();
    }
    db.execute("COMMIT");
    return database;
}

double seconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

void snapshotVersusCopyAndHash(benchmark::State& state) {
    const fs::path folder = fs::temp_directory_path() / "bc-bench-snapshot";
    bc::files::removeAll(folder);
    const int count = setting("BC_BENCH_SNAPSHOT_FILES", 2000);
    const auto bytes = static_cast<size_t>(setting("BC_BENCH_SNAPSHOT_KIB", 200)) * 1024;
    const fs::path database = writeSource(folder, count, bytes);
    bc::Preservation::setOverrideRoot(folder / "Snapshots");

    // Nothing is removed until the end: creating files right after deleting as many is slowed
    // by the file system's inode search, and would weigh on whichever ran second.
    double snapshotTotal = 0, baselineTotal = 0;
    int round = 0;
    for (auto _ : state) {
        bc::Clock::setFixed(bc::Date{1e9 + 3600.0 * ++round});
        auto start = std::chrono::steady_clock::now();
        bc::MessageDatabase source(database);
        const auto info = bc::Preservation::create(source, std::nullopt, "All", nullptr, {});
        const double snapshot = seconds(start);
        if (info.attachmentsCopied < count) state.SkipWithError("not every file was copied");

        start = std::chrono::steady_clock::now();
        const auto baseline = bc::runProcess(
            {.executable = "sh",
             .arguments = {"-c",
                           "cp -r \"$0/Messages\" \"$0/copy-$1\" && find \"$0/copy-$1\" -type f "
                           "-exec sha256sum {} + > /dev/null",
                           folder.string(), std::to_string(round)},
             .timeoutSeconds = 600});
        const double copyAndHash = seconds(start);
        if (!baseline.succeeded()) state.SkipWithError(baseline.standardError.c_str());

        state.SetIterationTime(snapshot);
        snapshotTotal += snapshot;
        baselineTotal += copyAndHash;
    }
    bc::Clock::setFixed(std::nullopt);
    for (const auto& snapshot : bc::Preservation::list())
        bc::snapshotLock::unlock(bc::Preservation::folder(snapshot));
    state.counters["snapshot_s"] = snapshotTotal / static_cast<double>(state.iterations());
    state.counters["cp_sha256sum_s"] = baselineTotal / static_cast<double>(state.iterations());
    state.counters["ratio"] = snapshotTotal / baselineTotal;
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * count *
                            static_cast<int64_t>(bytes));
    bc::Preservation::setOverrideRoot(std::nullopt);
    bc::files::removeAll(folder);
}

}  // namespace

BENCHMARK(snapshotVersusCopyAndHash)->UseManualTime()->Iterations(3)->Unit(benchmark::kSecond);
