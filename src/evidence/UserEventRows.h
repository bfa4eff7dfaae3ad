#pragma once

#include <vector>

#include "model/Message.h"
#include "model/TimelineEvent.h"

// The user's timeline events shown among a conversation's messages. They are for display only:
// whatever builds an export is handed the messages without them.
namespace bc::userEvents {

// Event k becomes a row with id -1,000,000,000,000 - k (stored ids are positive) and guid
// "event:" + its UUID, marked as from me and carrying the event.
std::vector<Message> rows(const std::vector<TimelineEvent>& events);

// The messages with the events' rows in time order; at equal times a stored message comes first,
// otherwise the given order holds.
std::vector<Message> merge(const std::vector<TimelineEvent>& events,
                           const std::vector<Message>& into);

// The shown rows less every user event: what an export of the messages may receive.
std::vector<Message> withoutUserEvents(const std::vector<Message>& rows);

}  // namespace bc::userEvents
