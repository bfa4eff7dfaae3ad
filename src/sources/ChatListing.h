#pragma once

#include <optional>
#include <vector>

#include "model/Message.h"

namespace bc {

namespace sqlite {
class Connection;
}

// The conversation list of a Messages database: every chat with at least one counted message
// (reactions never count), newest first, with its participants. Callers hold the connection's
// lock and read in one transaction, so the several statements see one state.
namespace chatListing {

// The list, by the quickest way that gives exactly what `byStatement` gives.
std::vector<Chat> list(sqlite::Connection& db);

// One grouped join of every membership row with its message: the definition of the list, but a
// random lookup per membership, several seconds on a million messages.
std::vector<Chat> byStatement(sqlite::Connection& db);

// The same list from one pass over the messages and one over the memberships, joined here. No
// list (so the statement must decide) when an id or a date is stored as something other than an
// integer, where the engine's own comparisons would apply.
std::optional<std::vector<Chat>> byScan(sqlite::Connection& db);

}  // namespace chatListing
}  // namespace bc
