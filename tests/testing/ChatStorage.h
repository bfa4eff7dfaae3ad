#pragma once

#include <filesystem>
#include <string>

namespace bc::testing {

// A WhatsApp ChatStorage database with the tables and columns the reader uses, filled by the
// given statements (INSERTs into ZWACHATSESSION, ZWAMESSAGE, ZWAMEDIAITEM, ZWAGROUPMEMBER).
void writeChatStorage(const std::filesystem::path& file, const std::string& inserts);

}  // namespace bc::testing
