#pragma once

#include <string>

namespace bc {

// The machine and program that performed an act (stored in every custody record).
struct CustodySystemInfo {
    std::string appVersion;
    std::string macOS;  // the operating system's version text (named for the stored JSON key)
    std::string model;
    std::string host;
    std::string user;

    bool operator==(const CustodySystemInfo&) const = default;
};

}  // namespace bc
