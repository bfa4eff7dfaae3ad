#pragma once

#include <string>

#include "model/CustodyRecord.h"

namespace bc {

class MessageSource;

// What a custody record says a source was: the file as it is now, re-hashed.
namespace custodySource {

// A database file of that kind, with its write-ahead log when one was there before the reader
// opened it; an unreadable file is noted, never fatal.
CustodyRecord::Source ofDatabase(const MessageSource& database, std::string kind);
// The snapshot's copy, with a note whether it still matches the hash recorded when it was sealed.
CustodyRecord::Source ofSnapshot(const SealedSnapshot& snapshot);

}  // namespace custodySource

}  // namespace bc
