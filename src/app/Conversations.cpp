#include "app/Conversations.h"

#include <unordered_map>

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

}  // namespace bc::app
