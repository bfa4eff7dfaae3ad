#include "evidence/TimelineEventStore.h"

#include <algorithm>
#include <cctype>

#include "support/Errors.h"

namespace bc {

namespace {

bool isUUID(const std::string& text) {
    if (text.size() != 36) return false;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        if (dash ? text[i] != '-' : !std::isxdigit(static_cast<unsigned char>(text[i])))
            return false;
    }
    return true;
}

std::string upperCased(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

}  // namespace

void to_json(Json& j, const TimelineEvent& event) {
    j = Json{{"id", event.id},
             {"conversation", event.conversation},
             {"date", event.date},
             {"title", event.title},
             {"note", event.note},
             {"createdAt", event.createdAt},
             {"updatedAt", event.updatedAt}};
}

void from_json(const Json& j, TimelineEvent& event) {
    const auto id = j.at("id").get<std::string>();
    if (!isUUID(id))
        throw Error("Couldn't read a timeline event: its id " + id + " is not a UUID.");
    event.id = upperCased(id);
    j.at("conversation").get_to(event.conversation);
    j.at("date").get_to(event.date);
    j.at("title").get_to(event.title);
    j.at("note").get_to(event.note);
    j.at("createdAt").get_to(event.createdAt);
    j.at("updatedAt").get_to(event.updatedAt);
}

StoreLocation& TimelineEventStore::location() {
    static StoreLocation location("events.json");
    return location;
}

StoreLoadError& TimelineEventStore::loadError() {
    static StoreLoadError error;
    return error;
}

std::vector<TimelineEvent> TimelineEventStore::load() {
    return loadOrEmpty<std::vector<TimelineEvent>>(url(), loadError());
}

void TimelineEventStore::save(std::vector<TimelineEvent> events) {
    std::stable_sort(
        events.begin(), events.end(),
        [](const TimelineEvent& a, const TimelineEvent& b) { return a.date < b.date; });
    files::writeFileAtomically(url(), json::encodePretty(events));
}

}  // namespace bc
