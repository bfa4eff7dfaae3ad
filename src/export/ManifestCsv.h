#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "model/Message.h"
#include "support/Date.h"

// The CSV manifests that travel with an HTML archive: meant for spreadsheet programs, so every
// file has a byte-order mark, every field is quoted, rows end in CR LF and dates are UTC with
// milliseconds.
namespace bc::manifest {

using Row = std::vector<std::string>;
using Rows = std::vector<Row>;

// (is from me, handle) -> display name; the same function the archive page uses.
using NameFor = std::function<std::string(bool isFromMe, const std::string& handle)>;

// Text a recogniser read from one attachment, as an export shows it.
struct MachineTextNote {
    bool isTranscript = false;  // a voice message's transcript; otherwise text in a photo
    std::string text;
    std::string engine;
    Date createdAt;
    int64_t fileBytes = 0;

    // "Text in image (machine-generated, may contain errors): " or the same for "Transcript".
    std::string label() const;
};

// Attachment id -> machine-read text (photos' text, voice messages' transcripts).
using MachineText = std::map<int64_t, MachineTextNote>;

// 2024-03-01T17:05:09.250Z; an absent date is an empty field.
std::string date(Date value);
std::string date(const std::optional<Date>& value);

// One field in double quotes, inner quotes doubled; line breaks stay as they are.
std::string quotedField(std::string_view field);
// The quoted fields joined with ",".
std::string line(const Row& row);

// Byte-order mark, then every row followed by CR LF.
std::string text(const Rows& rows);
// Throws Error when the file can't be written.
void writeCSV(const Rows& rows, const std::filesystem::path& file);

// The same text written row by row as rows are added, so a long manifest is never held whole.
class CsvStream {
public:
    explicit CsvStream(std::ostream& out);
    void add(const Row& row);

private:
    std::ostream& out_;
    std::string line_;
};

// Writes one file of an export folder. No flush to disk here: the folder is built under a
// temporary name and made durable as a whole by the caller. Throws Error.
void writeFile(const std::filesystem::path& file, std::string_view bytes);
// The same for a file written piece by piece into the stream `write` is given.
void writeFile(const std::filesystem::path& file, const std::function<void(std::ostream&)>& write);

// messages.csv: header, then one row per message; call rows are left out (they go to calls.csv).
Rows messageRows(const std::vector<const Message*>& messages, const NameFor& nameFor,
                 const MachineText& machineText);
// The same rows handed one at a time to `each`.
void messageRows(const std::vector<const Message*>& messages, const NameFor& nameFor,
                 const MachineText& machineText, const std::function<void(const Row&)>& each);

// machine-text.csv: header, then one row per attachment with machine-read text, in id order.
Rows machineTextRows(const MachineText& machineText);

// reactions.csv: header, then one row per event; byGUID maps the exported messages' guids.
Rows reactionRows(const std::vector<ReactionEvent>& events,
                  const std::unordered_map<std::string, const Message*>& byGUID,
                  const NameFor& nameFor);

const Row& attachmentsHeader();

}  // namespace bc::manifest
