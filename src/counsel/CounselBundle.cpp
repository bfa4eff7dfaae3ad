#include "counsel/CounselBundle.h"

#include <algorithm>
#include <cmath>
#include <set>

#include "counsel/ZipWriter.h"
#include "custody/CustodyLog.h"
#include "custody/CustodySystemInfo.h"
#include "export/Exporter.h"
#include "export/HTMLExporter.h"
#include "support/DateFormat.h"
#include "support/Errors.h"
#include "support/Files.h"
#include "support/Uuid.h"

namespace bc::CounselBundle {

namespace {

namespace fs = std::filesystem;

// The macOS build hands the staging folder to hdiutil; elsewhere it becomes an encrypted zip.
constexpr const char* extension = ".zip";
constexpr const char* productFormat = "AES-256 encrypted zip";
constexpr const char* encryption = "AES-256 encrypted zip; the password is not stored";

constexpr size_t minimumPasswordCharacters = 8;

void say(const ProgressFn& progress, const std::string& text) {
    if (progress) progress(text);
}

size_t characterCount(const std::string& text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

std::string quoted(const fs::path& file) {
    return "\u201C" + file.filename().string() + "\u201D";
}

[[noreturn]] void failCopying(const fs::path& item, const fs::filesystem_error& e) {
    throw Error("Couldn't copy " + quoted(item) + " into the bundle: " + e.code().message());
}

// Every item must still be there and no two may share a name: the bundle holds them side by side.
void checkItems(const std::vector<fs::path>& items) {
    if (items.empty()) throw Error("Couldn't make the bundle: no files were chosen.");
    std::set<std::string> names;
    for (const auto& item : items) {
        std::error_code error;
        if (!fs::exists(item, error))
            throw Error("Couldn't make the bundle: " + quoted(item) + " no longer exists.");
        if (!names.insert(item.filename().string()).second)
            throw Error("Couldn't make the bundle: two of the chosen items are named " +
                        quoted(item) + ".");
    }
}

// The staging folder, removed on every way out.
class Staging {
public:
    Staging() : folder_(fs::temp_directory_path() / (std::string(stagingPrefix) + newUUID())) {
        std::error_code error;
        fs::create_directories(folder_, error);
        if (error)
            throw Error("Couldn't create a staging folder for the bundle: " + error.message());
    }
    ~Staging() {
        try {
            files::removeAll(folder_);
        } catch (const std::exception&) {
            // removeLeftovers() takes it at the next start.
        }
    }
    Staging(const Staging&) = delete;
    Staging& operator=(const Staging&) = delete;
    const fs::path& folder() const { return folder_; }

private:
    fs::path folder_;
};

void copyInto(const fs::path& folder, const fs::path& item, const CancelFlag& cancel) {
    cancel.check();
    try {
        fs::copy(item, folder / item.filename(), fs::copy_options::recursive);
    } catch (const fs::filesystem_error& e) {
        failCopying(item, e);
    }
}

bool copyAll(const fs::path& folder, const std::vector<fs::path>& items, const CancelFlag& cancel) {
    std::set<fs::path> chosen(items.begin(), items.end());
    for (const auto& item : items) {
        copyInto(folder, item, cancel);
        if (const auto found = certificate(item); found && !chosen.contains(*found)) {
            chosen.insert(*found);
            copyInto(folder, *found, cancel);
        }
    }
    const fs::path log = CustodyLog::url();
    if (!fs::exists(log)) return false;
    copyInto(folder, log, cancel);
    return true;
}

void writeKit(const fs::path& folder, const std::string& title, const std::vector<fs::path>& items,
              bool logIncluded) {
    files::writeFileAtomically(folder / "README.txt",
                               readme(title, Clock::now(), items, logIncluded));
    const fs::path script = folder / verifyScriptName;
    files::writeFileAtomically(script, verifyScript);
    std::error_code error;
    fs::permissions(script, static_cast<fs::perms>(0755), error);
    if (error) throw Error("Couldn't make " + quoted(script) + " executable: " + error.message());
}

// Every entry under one folder named after the title, as the mounted volume would be.
void encrypt(const fs::path& staging, const std::string& volume, const std::string& password,
             const fs::path& building, const fs::path& destination, const CancelFlag& cancel,
             const ProgressFn& progress) {
    int shown = -1;
    ZipWriter zip(building, {.password = password,
                             .cancel = &cancel,
                             .progress =
                                 [&](double share) {
                                     const int percent = static_cast<int>(std::floor(share * 100));
                                     if (percent == shown) return;
                                     shown = percent;
                                     say(progress,
                                         "Encrypting\u2026 " + std::to_string(percent) + "%");
                                 },
                             .shownName = quoted(destination)});
    std::vector<fs::directory_entry> entries;
    try {
        for (const auto& entry : fs::recursive_directory_iterator(staging))
            entries.push_back(entry);
    } catch (const fs::filesystem_error& e) {
        throw Error("Couldn't list the files of the bundle: " + e.code().message());
    }
    std::sort(entries.begin(), entries.end());
    zip.addFolder(volume + "/");
    for (const auto& entry : entries) {
        const std::string name =
            volume + "/" + entry.path().lexically_relative(staging).generic_string();
        if (entry.is_directory())
            zip.addFolder(name + "/");
        else
            zip.addFile(name, entry.path(),
                        static_cast<uint32_t>(entry.status().permissions() & fs::perms::all));
    }
    zip.close();
}

std::string itemLine(const fs::path& item) {
    std::string line = "  - " + item.filename().string();
    if (const auto found = certificate(item))
        line += ", with its certificate \u201C" + found->filename().string() + "\u201D";
    return line;
}

}  // namespace

std::optional<std::string> passwordProblem(const std::string& password,
                                           const std::string& confirmation) {
    if (characterCount(password) < minimumPasswordCharacters) return "Use at least 8 characters.";
    if (password != confirmation) return "The passwords don't match.";
    return std::nullopt;
}

std::optional<fs::path> certificate(const fs::path& item) {
    fs::path base = item;
    if (!fs::is_directory(item)) base.replace_extension();
    base += " \u2013 Certificate.txt";
    std::error_code error;
    if (fs::is_regular_file(base, error)) return base;
    return std::nullopt;
}

std::string readme(const std::string& title, Date createdAt, const std::vector<fs::path>& items,
                   bool logIncluded) {
    std::string text = "Brindlecourt evidence bundle: " + title + "\nCreated " +
                       dates::iso8601(createdAt) + "\n\nContents\n";
    for (const auto& item : items) text += itemLine(item) + "\n";
    if (logIncluded)
        text +=
            "  - custody-log.jsonl: Brindlecourt's hash-chained chain-of-custody log at the time "
            "of bundling\n";
    text +=
        "  - checksums.txt: the SHA-256 of every file in this bundle\n"
        "\n"
        "Checking that nothing has changed\n"
        "  On a Mac: double-click \"Verify checksums.command\" (or run: shasum -a 256 -c "
        "checksums.txt).\n"
        "  Every line should end in \"OK\".\n"
        "  On Windows: certutil -hashfile <file> SHA256, and compare with checksums.txt.\n"
        "  Each export's certificate lists the SHA-256 recorded when the export was made.\n";
    return text;
}

void create(const std::vector<fs::path>& items, const std::string& title,
            const std::string& password, const fs::path& destination, const CancelFlag& cancel,
            const ProgressFn& progress) {
    if (const auto problem = passwordProblem(password, password)) throw Error(*problem);
    checkItems(items);
    const Staging staging;
    say(progress, "Copying files\u2026");
    const bool logIncluded = copyAll(staging.folder(), items, cancel);
    writeKit(staging.folder(), title, items, logIncluded);
    say(progress, "Writing checksums\u2026");
    files::writeFileAtomically(staging.folder() / "checksums.txt",
                               HTMLExporter::checksums(staging.folder(), {}, cancel));
    say(progress, "Encrypting\u2026");
    const fs::path building = files::temporarySibling(destination);
    const std::string stem = Exporter::fileStem(title);
    encrypt(staging.folder(), stem.empty() ? "Evidence bundle" : stem, password, building,
            destination, cancel, progress);
    std::error_code error;
    fs::rename(building, destination, error);
    if (error) {
        fs::remove(building);
        throw Error("Couldn't save " + quoted(destination) + ": " + error.message());
    }
    files::syncFolder(destination.parent_path());
}

void removeLeftovers() {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(fs::temp_directory_path(), error)) {
        if (!entry.path().filename().string().starts_with(stagingPrefix)) continue;
        try {
            files::removeAll(entry.path());
        } catch (const std::exception&) {
            // Left for the next start; nothing depends on it.
        }
    }
}

std::string defaultFileName(const std::string& conversation) {
    return Exporter::fileStem(conversation) + " \u2013 Evidence bundle" + extension;
}

CustodyRecord record(const std::vector<fs::path>& items, const std::string& title,
                     const fs::path& bundle) {
    std::vector<std::string> names, paths;
    for (const auto& item : items) {
        names.push_back(item.filename().string());
        paths.push_back(fs::absolute(item).string());
    }
    const auto joined = [](const std::vector<std::string>& texts) {
        std::string out;
        for (const auto& text : texts) out += (out.empty() ? "" : "; ") + text;
        return out;
    };
    return {
        .id = newUUID(),
        .createdAt = Clock::now(),
        .action = "bundle",
        .format = productFormat,
        .title = std::to_string(items.size()) + " items for counsel",
        .rangeDescription = title,
        .options = {{"Encryption", encryption},
                    {"Contents", joined(names) + "; custody-log.jsonl; checksums.txt; README.txt; "
                                                 "Verify checksums.command"}},
        .source = {.kind = "files", .path = joined(paths)},
        .outputs = CustodyLog::outputs(fs::absolute(bundle)),
        .system = custodySystemInfo::current()};
}

Outcome make(const std::vector<fs::path>& items, const std::string& title,
             const std::string& password, const fs::path& destination, const CancelFlag& cancel,
             const ProgressFn& progress) {
    try {
        create(items, title, password, destination, cancel, progress);
    } catch (const CancelledError&) {
        return {.status = Outcome::Status::cancelled,
                .message = "Bundle cancelled. Nothing was saved."};
    } catch (const std::exception& e) {
        return {.status = Outcome::Status::failed,
                .message = std::string("Bundle failed, nothing was saved: ") + e.what()};
    }
    const std::string saved = "the bundle WAS saved to " + quoted(destination);
    CustodyRecord made;
    try {
        say(progress, "Fingerprinting the bundle\u2026");
        made = record(items, title, destination);
    } catch (const std::exception& e) {
        return {.status = Outcome::Status::savedNotLogged,
                .message =
                    "WARNING: " + saved + " but could NOT be fingerprinted or logged: " + e.what()};
    }
    try {
        return {.status = Outcome::Status::saved,
                .message = "Encrypted bundle saved to " + quoted(destination) + " (" +
                           std::to_string(items.size()) +
                           " items) and logged. Send the password separately from the file.",
                .record = CustodyLog::append(std::move(made))};
    } catch (const std::exception& e) {
        return {.status = Outcome::Status::savedNotLogged,
                .message = "WARNING: " + saved +
                           " but could NOT be recorded in the custody log: " + e.what()};
    }
}

}  // namespace bc::CounselBundle
