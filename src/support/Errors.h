#pragma once

#include <stdexcept>
#include <string>

namespace bc {

// Every failure the user can see carries exactly one sentence: what could not be done, then why.
class Error : public std::runtime_error {
public:
    explicit Error(const std::string& sentence) : std::runtime_error(sentence) {}
};

// Raised when a long task notices its CancelFlag; callers tell it apart from a failure.
class CancelledError : public Error {
public:
    CancelledError() : Error("The operation was cancelled.") {}
};

// Failures of a database reader. The text is the engine's message or the underlying error.
class DBError : public Error {
public:
    enum class Kind { accessDenied, query };

    static DBError accessDenied(const std::string& text) { return {Kind::accessDenied, text}; }
    static DBError query(const std::string& text) { return {Kind::query, text}; }

    Kind kind() const { return kind_; }
    const std::string& text() const { return text_; }

private:
    DBError(Kind kind, const std::string& text) : Error(text), kind_(kind), text_(text) {}
    Kind kind_;
    std::string text_;
};

// A reader's failure handed across to the application model.
struct DBErrorMessage {
    std::string message;
    bool operator==(const DBErrorMessage&) const = default;
};

}  // namespace bc
