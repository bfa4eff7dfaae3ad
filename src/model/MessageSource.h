#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "model/CustodyRecord.h"
#include "model/Message.h"

namespace bc {

// What every source of messages offers: the live Messages database, a snapshot, WhatsApp,
// an import. Implementations hold one open database each; failures throw bc::Error.
class MessageSource {
public:
    virtual ~MessageSource() = default;

    virtual MessageService service() const = 0;
    virtual std::string path() const = 0;
    virtual std::string sourceDescription() const = 0;
    virtual bool isLive() const = 0;
    // Newest first.
    virtual std::vector<Chat> fetchChats() = 0;
    // A message in several of the conversations is listed once.
    virtual Transcript fetchTranscript(const std::vector<int64_t>& chatIDs) = 0;
    virtual std::optional<std::pair<Date, Date>> dateRange(const std::vector<int64_t>& chatIDs) = 0;
    // Changes whenever the content changes; the application reloads when it does.
    virtual std::string changeSignature() = 0;
    // What a custody record names as read: the kind of source and the file re-hashed now.
    virtual CustodyRecord::Source custodySource() const = 0;
    // Whether the write-ahead log beside the file ("-wal") was there before the source opened it.
    // One that appeared only then is the reader's own doing and no part of the record.
    virtual bool walPredatesOpening() const { return true; }

    std::vector<Message> fetchMessages(int64_t chatID) {
        return fetchTranscript({chatID}).messages;
    }
};

}  // namespace bc
