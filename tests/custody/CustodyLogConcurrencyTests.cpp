#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <set>
#include <thread>

#include "custody/CustodyLog.h"
#include "custody/CustodyLogTesting.h"
#include "support/Uuid.h"

namespace bc::testing {
namespace {

constexpr int processes = 2;
constexpr int threadsPerProcess = 4;
constexpr int appendsPerThread = 15;

// Runs in a forked child: several threads append at once; the exit status says whether all
// appends succeeded.
[[noreturn]] void appendFromThreads(int process) {
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < threadsPerProcess; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < appendsPerThread; ++i) {
                CustodyRecord record = sampleRecord("p" + std::to_string(process) + " t" +
                                                    std::to_string(t) + " #" + std::to_string(i));
                record.id = newUUID();
                try {
                    CustodyLog::append(record);
                } catch (...) {
                    ++failures;
                }
            }
        });
    }
    for (auto& thread : threads) thread.join();
    ::_exit(failures == 0 ? 0 : 1);
}

using CustodyLogConcurrency = CustodyLogTest;

TEST_F(CustodyLogConcurrency, ProcessesAndThreadsAppendingAtOnceKeepTheChain) {
    std::vector<pid_t> children;
    for (int p = 0; p < processes; ++p) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) appendFromThreads(p);
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 0) << "an append failed in a child";
    }

    constexpr int total = processes * threadsPerProcess * appendsPerThread;
    EXPECT_EQ(CustodyLog::verify(), (CustodyLog::ChainCheck{.records = total}));
    std::set<std::string> titles, ids;
    for (const auto& record : CustodyLog::readAll()) {
        titles.insert(record.title);
        ids.insert(record.id);
    }
    EXPECT_EQ(titles.size(), static_cast<size_t>(total));
    EXPECT_EQ(ids.size(), static_cast<size_t>(total));
}

}  // namespace
}  // namespace bc::testing
