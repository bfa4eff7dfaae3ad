#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "counsel/Docx.h"
#include "custody/CustodyLog.h"
#include "model/CustodyRecord.h"
#include "support/Date.h"

namespace bc {

// A draft witness statement about how one conversation's messages were collected, for the user
// to complete with an attorney. Every fact comes from the program's own records; what it cannot
// know is left as [BRACKETED CAPITALS].
namespace CounselStatement {

struct Input {
    std::string conversation;
    std::vector<std::string> participants;
    std::vector<CustodyRecord> records;  // this conversation's records, in log order
    std::optional<CustodyLog::ChainCheck> chain;
    std::optional<std::string> chainError;  // set when the log could not be checked
    CustodySystemInfo system;
    std::string sourcePath;
    std::string sourceKind;
    std::optional<std::string> sourceNote;  // what the custody record notes of the source
    Date preparedAt;
};

std::vector<docx::Paragraph> document(const Input& input);

// The file name proposed when saving: the conversation's safe name + " – Draft statement for
// counsel.docx".
std::string defaultFileName(const std::string& conversation);

// The records whose chats include one of `chatIDs`, in log order.
std::vector<CustodyRecord> recordsFor(const std::vector<CustodyRecord>& all,
                                      const std::vector<int64_t>& chatIDs);

// The records of the conversation's chats and the chain check of the log now. A log that can't
// be read doesn't stop the draft: it becomes `chainError`.
void readLog(Input& input, const std::vector<int64_t>& chatIDs);

}  // namespace CounselStatement

}  // namespace bc
