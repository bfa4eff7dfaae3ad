#include "evidence/EvidenceStore.h"

namespace bc {

void to_json(Json& j, const EvidenceFlag& flag) {
    j = Json{{"guid", flag.guid}, {"messageID", flag.messageID}, {"chatID", flag.chatID},
             {"note", flag.note}, {"flaggedAt", flag.flaggedAt}, {"updatedAt", flag.updatedAt}};
}

void from_json(const Json& j, EvidenceFlag& flag) {
    j.at("guid").get_to(flag.guid);
    flag.messageID = json::integer(j.at("messageID"), "a flag's messageID");
    flag.chatID = json::integer(j.at("chatID"), "a flag's chatID");
    j.at("note").get_to(flag.note);
    j.at("flaggedAt").get_to(flag.flaggedAt);
    j.at("updatedAt").get_to(flag.updatedAt);
}

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
