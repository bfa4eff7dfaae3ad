#pragma once

#include <memory>
#include <optional>

namespace bc {

// An optional value kept out of line: a member that is absent on nearly every record costs one
// pointer instead of its full size. Copies are deep and comparison is by value, like optional.
template <class T>
class Indirect {
public:
    Indirect() = default;
    Indirect(std::nullopt_t) {}
    Indirect(T value) : value_(std::make_unique<T>(std::move(value))) {}
    Indirect(const Indirect& other) : value_(other ? std::make_unique<T>(*other) : nullptr) {}
    Indirect(Indirect&&) noexcept = default;
    Indirect& operator=(const Indirect& other) {
        if (this != &other) value_ = other ? std::make_unique<T>(*other) : nullptr;
        return *this;
    }
    Indirect& operator=(Indirect&&) noexcept = default;

    bool has_value() const { return value_ != nullptr; }
    explicit operator bool() const { return has_value(); }
    const T& operator*() const { return *value_; }
    T& operator*() { return *value_; }
    const T* operator->() const { return value_.get(); }
    T* operator->() { return value_.get(); }

    friend bool operator==(const Indirect& a, const Indirect& b) {
        return a.has_value() == b.has_value() && (!a || *a == *b);
    }
    friend bool operator==(const Indirect& a, const T& b) { return a && *a == b; }
    friend bool operator==(const Indirect& a, std::nullopt_t) { return !a; }

private:
    std::unique_ptr<T> value_;
};

}  // namespace bc
