#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/Message.h"

namespace bc::app {

// One entry of the conversation list: every chat with the same person shown as one.
struct Conversation {
    std::string key;  // the person's identity, or the chat's own for a group
    std::string title;
    std::optional<Date> lastDate;
    int64_t messageCount = 0;
    bool onlyRecentlyDeleted = false;  // every chat of it is known only from Recently Deleted
    bool isGroup = false;              // more than one other person: rows name their sender
    std::vector<int64_t> chatIDs;
    std::vector<std::string> identifiers;  // the chats' own identifiers, newest chat first

    // Events are filed under a chat identifier, which stays the same whatever Contacts says.
    const std::string& eventKey() const { return identifiers.front(); }
    bool operator==(const Conversation&) const = default;
};

struct PersonLookup {
    std::function<std::string(const std::string& handle)> identity;
    std::function<std::optional<std::string>(const std::string& handle)> name;
};

// Chats come newest first and the list keeps that order. One-person chats merge when their
// participant has the same identity; group chats stay on their own.
std::vector<Conversation> groupConversations(const std::vector<Chat>& chats,
                                             const PersonLookup& people);

// Which of `list` a typed `query` finds: by its title, or by the identifier, handle or name of
// any chat or person in it. Case does not matter; numbers compare by their digits, so
// "(202) 555-0143" finds "+12025550143". An empty query finds all.
std::vector<bool> conversationsFound(const std::vector<Conversation>& list,
                                     const std::vector<Chat>& chats, const PersonLookup& people,
                                     std::string_view query);

}  // namespace bc::app
