#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "evidence/Search.h"
#include "export/ExportJob.h"
#include "export/ManifestCsv.h"
#include "model/Message.h"
#include "support/Date.h"
#include "support/Files.h"
#include "support/Json.h"
#include "support/SafeStore.h"

namespace bc {

// Text a recogniser read from a photo or heard in a voice message. It is kept beside the
// evidence, never inside it, and `fileBytes` ties it to the exact file it was read from.
struct MachineText {
    enum class Kind { imageText, transcript };

    std::string attachmentGUID;
    Kind kind = Kind::imageText;
    std::string text;
    std::string engine;
    Date createdAt;
    int64_t fileBytes = 0;

    bool operator==(const MachineText&) const = default;
};

using MachineTextMap = std::map<std::string, MachineText>;  // attachment guid → text

void to_json(Json& j, const MachineText& text);
void from_json(const Json& j, MachineText& text);

// "machine-text.json".
class AnalysisStore {
public:
    static StoreLocation& location();

    // A damaged file is set aside and reported in `loadError`; the map then starts empty.
    static MachineTextMap load();
    // Writes the whole map atomically; throws bc::Error with the system's reason.
    static void save(const MachineTextMap& texts);
    static StoreLoadError& loadError();
};

bool isImage(const Attachment& attachment);
bool isAudio(const Attachment& attachment);

// The stored text of an attachment while its file still has the size it was read at. A file
// that is missing now keeps its text: what was read is still what the file said.
const MachineText* currentMachineText(const MachineTextMap& texts, const Attachment& attachment);

// What is stored but no longer matches its file, so it is offered for reading again.
bool isStale(const MachineText& text, const Attachment& attachment);

// Every visible photo and voice message of `messages`, in order, with no current text.
std::vector<Attachment> pendingAnalysis(const std::vector<Message>& messages,
                                        const MachineTextMap& texts);

// The current texts of the attachments of `messages`, keyed by attachment row id, for exports.
manifest::MachineText machineTextForExport(const std::vector<Message>& messages,
                                           const MachineTextMap& texts);

// Search's view of the store as it is now: the current text of an attachment. Empty when nothing
// has been read yet, so the search can say that none was searched.
MachineTextLookup storedMachineTextLookup();

// `context` with the stored texts of the attachments of `messages`, read from the store now.
ExportPipeline::Context withStoredMachineText(ExportPipeline::Context context,
                                              const std::vector<Message>& messages);

}  // namespace bc
