#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/Message.h"

namespace bc {

// Reads the text of a WhatsApp "Export Chat" in any platform's and region's form. Never fails:
// every assumption it had to make (date order, time zone, precision, impossible dates) is
// reported in `notes`, because the file itself carries no time zone and no date order.
class WhatsAppExportParser {
public:
    struct Result {
        std::vector<Message> messages;          // file order
        std::vector<std::string> participants;  // senders, by first appearance
        std::vector<std::string> notes;
        std::optional<bool> dayFirst;  // set when the file itself decided the order
    };

    struct Options {
        std::optional<std::filesystem::path> mediaFolder;
        std::optional<std::string> ownerName;
        std::string guidPrefix;
        std::string timeZone;  // ICU identifier; the current zone when empty
        std::optional<bool> dayFirstOverride;
    };

    static Result parse(std::string_view text, const Options& options);

    // The file's bytes as UTF-8: UTF-16 with a byte-order mark is converted, a UTF-8 mark dropped,
    // and invalid bytes become U+FFFD.
    static std::string decode(std::string_view bytes);
};

}  // namespace bc
