#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "model/EvidenceFlag.h"
#include "support/Date.h"
#include "support/Files.h"
#include "support/Json.h"
#include "support/SafeStore.h"

namespace bc {

void to_json(Json& j, const EvidenceFlag& flag);
void from_json(const Json& j, EvidenceFlag& flag);

// "evidence.json": the flags live here, never in the message source.
class EvidenceStore {
public:
    static StoreLocation& location();

    // A missing file gives no flags; a damaged one is set aside, reported in `loadError`, and
    // gives no flags, so the next save starts a fresh file.
    static EvidenceFlagMap load();
    // Writes the whole map atomically; throws bc::Error with the system's reason.
    static void save(const EvidenceFlagMap& flags);
    static StoreLoadError& loadError();
};

}  // namespace bc
