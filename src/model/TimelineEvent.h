#pragma once

#include <string>

#include "support/Date.h"

namespace bc {

// An event the user entered on a conversation's timeline; never part of the source's data.
struct TimelineEvent {
    std::string id;  // upper-case UUID
    std::string conversation;
    Date date;
    std::string title;
    std::string note;
    Date createdAt;
    Date updatedAt;

    bool operator==(const TimelineEvent&) const = default;
};

}  // namespace bc
