#include "app/transcript/Conversations.h"

#include <algorithm>
#include <unordered_map>

#include "evidence/Search.h"
#include "support/Text.h"

namespace bc::app {

namespace {

std::string groupKey(const Chat& chat, const PersonLookup& people) {
    if (chat.participants.size() == 1) return people.identity(chat.participants.front());
    return "chat:" + chat.identifier;
}

std::string titleOf(const Chat& chat, const PersonLookup& people) {
    if (!chat.displayName.empty()) return chat.displayName;
    std::string title;
    for (const auto& handle : chat.participants) {
        if (!title.empty()) title += ", ";
        title += people.name(handle).value_or(handle);
    }
    return title.empty() ? chat.identifier : title;
}

void add(Conversation& conversation, const Chat& chat) {
    conversation.chatIDs.push_back(chat.id);
    conversation.identifiers.push_back(chat.identifier);
    conversation.messageCount += chat.messageCount;
    if (chat.lastDate && (!conversation.lastDate || *chat.lastDate > *conversation.lastDate))
        conversation.lastDate = chat.lastDate;
    conversation.isGroup = conversation.isGroup || chat.participants.size() > 1;
    conversation.onlyRecentlyDeleted =
        conversation.onlyRecentlyDeleted && chat.isDeletedConversation;
}

}  // namespace

std::vector<Conversation> groupConversations(const std::vector<Chat>& chats,
                                             const PersonLookup& people) {
    std::vector<Conversation> list;
    std::unordered_map<std::string, size_t> indexByKey;
    for (const auto& chat : chats) {
        auto key = groupKey(chat, people);
        auto [found, isNew] = indexByKey.try_emplace(key, list.size());
        if (isNew) {
            list.push_back(Conversation{.key = std::move(key),
                                        .title = titleOf(chat, people),
                                        .onlyRecentlyDeleted = true});
        }
        add(list[found->second], chat);
    }
    return list;
}

namespace {

std::string digitsOf(std::string_view text) {
    std::string digits;
    for (const char c : text)
        if (c >= '0' && c <= '9') digits += c;
    return digits;
}

// A query of a phone number's characters only is compared by digits.
bool looksLikeNumber(std::string_view query) {
    return digitsOf(query).size() >= 3 &&
           query.find_first_not_of("0123456789 +-().") == std::string_view::npos;
}

// Everything a conversation can be found by, folded for comparison.
std::vector<std::string> namesOf(const Conversation& conversation,
                                 const std::unordered_map<int64_t, const Chat*>& chatByID,
                                 const PersonLookup& people) {
    std::vector<std::string> names{conversation.title};
    for (const auto id : conversation.chatIDs) {
        const auto found = chatByID.find(id);
        if (found == chatByID.end()) continue;
        names.push_back(found->second->identifier);
        names.push_back(found->second->displayName);
        for (const auto& handle : found->second->participants) {
            names.push_back(handle);
            if (auto name = people.name(handle)) names.push_back(std::move(*name));
        }
    }
    return names;
}

}  // namespace

std::vector<bool> conversationsFound(const std::vector<Conversation>& list,
                                     const std::vector<Chat>& chats, const PersonLookup& people,
                                     std::string_view query) {
    const auto folded = foldForSearch(text::trim(query));
    if (folded.empty()) return std::vector<bool>(list.size(), true);
    const bool byDigits = looksLikeNumber(folded);
    const auto wanted = byDigits ? digitsOf(folded) : folded;
    std::unordered_map<int64_t, const Chat*> chatByID;
    for (const auto& chat : chats) chatByID.emplace(chat.id, &chat);
    std::vector<bool> found;
    found.reserve(list.size());
    for (const auto& conversation : list) {
        const auto names = namesOf(conversation, chatByID, people);
        found.push_back(std::any_of(names.begin(), names.end(), [&](const std::string& name) {
            const auto candidate = byDigits ? digitsOf(name) : foldForSearch(name);
            return candidate.find(wanted) != std::string::npos;
        }));
    }
    return found;
}

}  // namespace bc::app
