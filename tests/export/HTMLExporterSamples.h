#pragma once

#include <string>

#include "model/Message.h"
#include "sources/CallHistory.h"
#include "support/DateFormat.h"

namespace bc::testing {

// 2024-03-01T17:05:09Z plus `seconds`.
inline Date at(double seconds = 0) {
    return *dates::parseIso8601("2024-03-01T17:05:09Z") + seconds;
}

inline Message message(int64_t id, Date date, std::string text, bool fromMe = false) {
    Message m;
    m.id = id;
    m.guid = "G" + std::to_string(id);
    m.date = date;
    m.isFromMe = fromMe;
    m.sender = fromMe ? "" : "+15551234567";
    m.text = text;
    m.textAsStored = std::move(text);
    m.chatID = 7;
    return m;
}

// A phone call as the call history turns it into a conversation row.
inline Message callRow(int64_t id, Date date, bool answered) {
    Message m = CallHistory::row({.recordID = id,
                                  .uniqueID = "U" + std::to_string(id),
                                  .date = date,
                                  .duration = answered ? 125.5 : 0,
                                  .isOutgoing = !answered,
                                  .answered = answered,
                                  .callType = 1,
                                  .serviceProvider = "com.apple.Telephony",
                                  .address = "+15551234567"},
                                 7);
    return m;
}

inline Attachment attachment(int64_t id, std::string path, std::string name, std::string mime) {
    return {
        .id = id, .path = std::move(path), .mimeType = std::move(mime), .name = std::move(name)};
}

inline std::string nameFor(bool fromMe, const std::string& handle) {
    return fromMe ? "Me" : (handle == "+15551234567" ? "Ann" : handle);
}

}  // namespace bc::testing
