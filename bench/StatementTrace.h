#pragma once

// Every statement any connection of this process runs while capturing, collected through the
// engine's trace hook with its bound values written in, so benchmarks can time the very same
// statements outside the reader.
#include <sqlite3.h>

#include <string>
#include <utility>
#include <vector>

namespace bench {

inline std::vector<std::string> captured;
inline bool capturing = false;

inline int traceStatement(unsigned, void*, void* statement, void*) {
    if (!capturing) return 0;
    char* sql = sqlite3_expanded_sql(static_cast<sqlite3_stmt*>(statement));
    captured.emplace_back(sql ? sql : "");
    sqlite3_free(sql);
    return 0;
}

inline int installTrace(sqlite3* db, char**, const sqlite3_api_routines*) {
    sqlite3_trace_v2(db, SQLITE_TRACE_STMT, traceStatement, nullptr);
    return SQLITE_OK;
}

[[maybe_unused]] inline const bool traceInstalled = [] {
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(installTrace));
    return true;
}();

template <typename Work>
std::vector<std::string> statementsOf(Work&& work) {
    captured.clear();
    capturing = true;
    work();
    capturing = false;
    return std::move(captured);
}

}  // namespace bench
