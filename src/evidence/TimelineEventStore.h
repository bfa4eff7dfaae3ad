#pragma once

#include <filesystem>
#include <vector>

#include "model/TimelineEvent.h"
#include "support/Files.h"
#include "support/Json.h"
#include "support/SafeStore.h"

namespace bc {

void to_json(Json& j, const TimelineEvent& event);
// Rejects an `id` that is not a UUID; accepts it in either case and keeps it upper-case.
void from_json(const Json& j, TimelineEvent& event);

// "events.json": the user's own timeline events of every conversation, kept apart from the
// messages so that no export of the messages can pick them up.
class TimelineEventStore {
public:
    static StoreLocation& location();
    static std::filesystem::path url() { return location().path(); }

    // A missing file gives no events; a damaged one is set aside and reported in `loadError`.
    static std::vector<TimelineEvent> load();
    // Writes every event, oldest first (equal dates keep their order); throws bc::Error.
    static void save(std::vector<TimelineEvent> events);
    static StoreLoadError& loadError();
};

}  // namespace bc
