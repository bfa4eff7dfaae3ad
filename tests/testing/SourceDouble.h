#pragma once

#include <filesystem>

#include "model/MessageSource.h"
#include "sources/CustodySource.h"

namespace bc::testing {

// A source that is only a path, a service and a live flag: for code that looks at where data
// comes from, not at the data.
class SourceDouble : public MessageSource {
public:
    SourceDouble(std::filesystem::path path, bool live,
                 MessageService service = MessageService::iMessage)
        : path_(std::move(path)), live_(live), service_(service) {}

    MessageService service() const override { return service_; }
    std::string path() const override { return path_.string(); }
    std::string sourceDescription() const override { return "a test database"; }
    bool isLive() const override { return live_; }
    std::vector<Chat> fetchChats() override { return {}; }
    Transcript fetchTranscript(const std::vector<int64_t>&) override { return {}; }
    std::optional<std::pair<Date, Date>> dateRange(const std::vector<int64_t>&) override {
        return std::nullopt;
    }
    std::string changeSignature() override { return ""; }
    CustodyRecord::Source custodySource() const override {
        return custodySource::ofDatabase(*this, live_ ? "live" : "files");
    }

private:
    std::filesystem::path path_;
    bool live_;
    MessageService service_;
};

}  // namespace bc::testing
