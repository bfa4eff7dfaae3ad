// Sealing a plain iPhone backup whose Messages database has 1,000,000 messages and 20,000
// attachment files (copy, SHA-256 of every file as found and as sealed, manifest, lock, custody
// record), against `cp` of the same content files followed by `sha256sum` over the copies, both
// timed in one run. BC_BENCH_BACKUP_FILES and BC_BENCH_BACKUP_KIB set the number and size of
// the attachment files (default 20,000 × 64 KiB).
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <random>

#include "custody/CustodyLog.h"
#include "custody/Imports.h"
#include "demo/LargeSample.h"
#include "support/Files.h"
#include "support/Process.h"
#include "support/Sqlite.h"
#include "testing/IPhoneBackupWriter.h"

namespace {

namespace fs = std::filesystem;

int setting(const char* name, int fallback) {
    const char* value = std::getenv(name);
    return value ? std::atoi(value) : fallback;
}

double seconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// The large sample as the phone keeps it: its first `count` attachment rows point into the
// backup's attachment folder, each file of its own random bytes.
std::vector<bc::testing::BackupEntry> backupEntries(const fs::path& folder, int count,
                                                    size_t bytes) {
    const fs::path database = folder / "sms.db";
    fs::copy_file(bc::demo::LargeSample{}.cachedFile(), database);
    std::vector<bc::testing::BackupEntry> entries;
    std::mt19937_64 random(42);
    {
        bc::sqlite::Connection db(database, bc::sqlite::OpenMode::readWriteCreate);
        db.execute("BEGIN");
        auto rows = db.prepare("SELECT ROWID FROM attachment ORDER BY ROWID LIMIT ?");
        rows.bind(1, static_cast<int64_t>(count));
        std::vector<int64_t> ids;
        while (rows.step()) ids.push_back(rows.int64(0));
        for (const int64_t id : ids) {
            const std::string path = "Library/SMS/Attachments/" + std::to_string(id % 100) + "/" +
                                     std::to_string(id) + "/IMG_" + std::to_string(id) + ".jpg";
            db.prepare("UPDATE attachment SET filename = ? WHERE ROWID = ?")
                .bind(1, std::string_view("~/" + path))
                .bind(2, id)
                .step();
            std::string content(bytes, '\0');
            for (char& byte : content) byte = static_cast<char>(random());
            entries.push_back({"MediaDomain", path, std::move(content)});
        }
        db.execute("COMMIT");
    }
    entries.push_back({"HomeDomain", "Library/SMS/sms.db", bc::files::readFile(database)});
    return entries;
}

void importVersusCopyAndHash(benchmark::State& state) {
    const fs::path folder = fs::temp_directory_path() / "bc-bench-backup";
    bc::files::removeAll(folder);
    fs::create_directories(folder);
    const int count = setting("BC_BENCH_BACKUP_FILES", 20000);
    const auto bytes = static_cast<size_t>(setting("BC_BENCH_BACKUP_KIB", 64)) * 1024;
    const fs::path backup = folder / "backup";
    bc::testing::writeIPhoneBackup(backup, backupEntries(folder, count, bytes));
    bc::Imports::setOverrideRoot(folder / "Imports");
    bc::CustodyLog::setOverrideURL(folder / "custody-log.jsonl");

    double importTotal = 0, baselineTotal = 0;
    int round = 0;
    for (auto _ : state) {
        bc::Clock::setFixed(bc::Date{1e9 + 3600.0 * ++round});
        auto start = std::chrono::steady_clock::now();
        const auto imported = bc::Imports::importBackup(backup, std::nullopt);
        const double sealing = seconds(start);
        if (imported.info.files.size() < static_cast<size_t>(count))
            state.SkipWithError("not every file was sealed");

        // The content files (the database's and every attachment's), copied and hashed.
        start = std::chrono::steady_clock::now();
        const auto baseline = bc::runProcess(
            {.executable = "sh",
             .arguments = {"-c",
                           "mkdir \"$1\" && cp -r \"$0\"/?? \"$1\" && find \"$1\" -type f -exec "
                           "sha256sum {} + > /dev/null",
                           backup.string(),
                           (folder / ("copied-" + std::to_string(round))).string()},
             .timeoutSeconds = 1200});
        const double copyAndHash = seconds(start);
        if (!baseline.succeeded()) state.SkipWithError(baseline.standardError.c_str());

        state.SetIterationTime(sealing);
        importTotal += sealing;
        baselineTotal += copyAndHash;
    }
    bc::Clock::setFixed(std::nullopt);
    for (const auto& info : bc::Imports::list()) bc::Imports::unlock(info);
    state.counters["import_s"] = importTotal / static_cast<double>(state.iterations());
    state.counters["cp_sha256sum_s"] = baselineTotal / static_cast<double>(state.iterations());
    state.counters["ratio"] = importTotal / baselineTotal;
    bc::Imports::setOverrideRoot(std::nullopt);
    bc::CustodyLog::setOverrideURL(std::nullopt);
    bc::files::removeAll(folder);
}

}  // namespace

BENCHMARK(importVersusCopyAndHash)->UseManualTime()->Iterations(2)->Unit(benchmark::kSecond);
