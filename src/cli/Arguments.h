#pragma once

#include <optional>
#include <string>
#include <vector>

namespace bc::cli {

// The process arguments after the program's name.
class Arguments {
public:
    explicit Arguments(std::vector<std::string> items) : items_(std::move(items)) {}

    bool contains(const std::string& name) const;
    // The argument after the first occurrence of `name`; nothing when it is absent or last.
    std::optional<std::string> value(const std::string& name) const;
    // The first of `options` that is present without a value (the last argument), if any.
    std::optional<std::string> withoutValue(const std::vector<std::string>& options) const;
    bool empty() const { return items_.empty(); }
    const std::vector<std::string>& items() const { return items_; }

private:
    std::vector<std::string> items_;
};

}  // namespace bc::cli
