#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "model/CustodyRecord.h"
#include "support/CancelFlag.h"
#include "support/Date.h"

namespace bc {

// Chosen exports, their certificates, the custody log and a checksum kit, packed into one
// AES-256 encrypted file for counsel. The password goes to the encryption only: never into an
// argument list, a file, a log line or the custody record.
namespace CounselBundle {

inline constexpr const char* stagingPrefix = "KestroveBundle-";
inline constexpr const char* verifyScriptName = "Verify checksums.command";
inline constexpr const char* verifyScript =
    "#!/bin/sh\n"
    "cd \"$(dirname \"$0\")\" || exit 1\n"
    "echo \"Checking every file against checksums.txt\u2026\"\n"
    "if shasum -a 256 -c checksums.txt; then echo; echo \"All files match.\"; else echo; echo "
    "\"SOME FILES DO NOT MATCH (see above).\"; fi\n"
    "echo; read -r -p \"Press Return to close.\" _\n";

// "Use at least 8 characters." or "The passwords don't match."; nothing when both are fine.
std::optional<std::string> passwordProblem(const std::string& password,
                                           const std::string& confirmation);

// The file named after the item's base name + " – Certificate.txt" beside it, when it exists.
std::optional<std::filesystem::path> certificate(const std::filesystem::path& item);

std::string readme(const std::string& title, Date createdAt,
                   const std::vector<std::filesystem::path>& items, bool logIncluded);

// Builds the encrypted file at `destination` (replacing a file there only once it is complete).
// Stages everything in a private folder of the temporary directory, always removed again.
// Throws Error, or CancelledError; on either nothing is left at the destination.
void create(const std::vector<std::filesystem::path>& items, const std::string& title,
            const std::string& password, const std::filesystem::path& destination,
            const CancelFlag& cancel, const ProgressFn& progress);

// Staging folders an interrupted run left in the temporary directory.
void removeLeftovers();

// The proposed file name: the conversation's safe name + " – Evidence bundle" + extension.
std::string defaultFileName(const std::string& conversation);

// The "bundle" record of a finished file, outputs included.
CustodyRecord record(const std::vector<std::filesystem::path>& items, const std::string& title,
                     const std::filesystem::path& bundle);

struct Outcome {
    enum class Status { saved, savedNotLogged, cancelled, failed };
    Status status = Status::failed;
    std::string message;  // the status line
    std::optional<CustodyRecord> record;
    bool fileKept() const { return status == Status::saved || status == Status::savedNotLogged; }
};

// create(), then the custody record; a failure to fingerprint or log keeps the file and says so.
Outcome make(const std::vector<std::filesystem::path>& items, const std::string& title,
             const std::string& password, const std::filesystem::path& destination,
             const CancelFlag& cancel, const ProgressFn& progress);

}  // namespace CounselBundle

}  // namespace bc
