#include "evidence/EvidenceStore.h"

namespace bc {

StoreLocation& EvidenceStore::location() {
    static StoreLocation location("evidence.json");
    return location;
}

StoreLoadError& EvidenceStore::loadError() {
    static StoreLoadError error;
    return error;
}

EvidenceFlagMap EvidenceStore::load() {
    return loadOrEmpty<EvidenceFlagMap>(location().path(), loadError());
}

void EvidenceStore::save(const EvidenceFlagMap& flags) {
    files::writeFileAtomically(location().path(), json::encodePretty(flags));
}

}  // namespace bc
