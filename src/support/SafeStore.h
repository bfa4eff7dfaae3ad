#pragma once

#include <filesystem>
#include <mutex>
#include <optional>
#include <string>

#include "support/Json.h"

namespace bc {

// The one way the application's JSON data files are loaded. A file that cannot be read is never
// left in place to be overwritten by the next save: it is moved aside and the move is reported.
class SafeStore {
public:
    struct LoadError {
        std::string message;
        bool operator==(const LoadError&) const = default;
    };

    // Success carries `value` (absent when there is no file); failure carries only `error`.
    template <class T>
    struct Loaded {
        std::optional<T> value;
        std::optional<LoadError> error;
    };

    template <class T>
    static Loaded<T> load(const std::filesystem::path& file) {
        try {
            const auto bytes = readIfPresent(file);
            if (!bytes) return {};
            return {json::decode(*bytes).template get<T>(), std::nullopt};
        } catch (const std::exception& error) {
            return {std::nullopt, setAside(file, error.what())};
        }
    }

private:
    static std::optional<std::string> readIfPresent(const std::filesystem::path& file);
    static LoadError setAside(const std::filesystem::path& file, const std::string& reason);
};

// The last load problem of one store, kept process-wide until the application has shown it.
class StoreLoadError {
public:
    std::optional<std::string> get() const;
    void set(std::optional<std::string> message);

private:
    mutable std::mutex mutex_;
    std::optional<std::string> message_;
};

// A store's whole content, or an empty one when the file is missing or had to be set aside (the
// reason then goes to `loadError`).
template <class T>
T loadOrEmpty(const std::filesystem::path& file, StoreLoadError& loadError) {
    auto loaded = SafeStore::load<T>(file);
    if (loaded.error) loadError.set(loaded.error->message);
    return loaded.value ? std::move(*loaded.value) : T{};
}

}  // namespace bc
