#include "evidence/MachineText.h"

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>

#include "support/Text.h"

namespace bc {

namespace {

constexpr std::string_view kindName(MachineText::Kind kind) {
    return kind == MachineText::Kind::transcript ? "transcript" : "imageText";
}

MachineText::Kind kindNamed(const std::string& name) {
    if (name == "imageText") return MachineText::Kind::imageText;
    if (name == "transcript") return MachineText::Kind::transcript;
    throw Error("Couldn't read a machine-read text: unknown kind \u201C" + name + "\u201D.");
}

std::string extensionOf(const Attachment& attachment) {
    const std::string name = attachment.name.empty() ? attachment.path : attachment.name;
    const std::string ext = std::filesystem::path(name).extension().string();
    return text::toLowerAscii(ext.empty() ? ext : ext.substr(1));
}

template <size_t N>
bool isOneOf(const std::string& value, const std::array<std::string_view, N>& choices) {
    return std::find(choices.begin(), choices.end(), value) != choices.end();
}

std::optional<int64_t> sizeOnDisk(const std::string& path) {
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    if (error) return std::nullopt;
    return static_cast<int64_t>(size);
}

}  // namespace

void to_json(Json& j, const MachineText& text) {
    j = Json{{"attachmentGUID", text.attachmentGUID},
             {"kind", kindName(text.kind)},
             {"text", text.text},
             {"engine", text.engine},
             {"createdAt", text.createdAt},
             {"fileBytes", text.fileBytes}};
}

void from_json(const Json& j, MachineText& text) {
    j.at("attachmentGUID").get_to(text.attachmentGUID);
    text.kind = kindNamed(j.at("kind").get<std::string>());
    j.at("text").get_to(text.text);
    j.at("engine").get_to(text.engine);
    j.at("createdAt").get_to(text.createdAt);
    text.fileBytes = json::integer(j.at("fileBytes"), "a machine-read text's fileBytes");
}

StoreLocation& AnalysisStore::location() {
    static StoreLocation location("machine-text.json");
    return location;
}

StoreLoadError& AnalysisStore::loadError() {
    static StoreLoadError error;
    return error;
}

MachineTextMap AnalysisStore::load() {
    return loadOrEmpty<MachineTextMap>(location().path(), loadError());
}

void AnalysisStore::save(const MachineTextMap& texts) {
    files::writeFileAtomically(location().path(), json::encodePretty(texts));
}

bool isImage(const Attachment& attachment) {
    static constexpr std::array<std::string_view, 6> extensions{"jpg",  "jpeg", "png",
                                                                "heic", "heif", "tiff"};
    const std::string mime = text::toLowerAscii(attachment.mimeType);
    return mime.starts_with("image/") || isOneOf(extensionOf(attachment), extensions);
}

bool isAudio(const Attachment& attachment) {
    static constexpr std::array<std::string_view, 8> extensions{"caf", "m4a",  "mp3", "aac",
                                                                "amr", "opus", "ogg", "wav"};
    const std::string mime = text::toLowerAscii(attachment.mimeType);
    return mime.starts_with("audio/") || isOneOf(extensionOf(attachment), extensions);
}

bool isStale(const MachineText& text, const Attachment& attachment) {
    const auto size = sizeOnDisk(attachment.path);
    return size && *size != text.fileBytes;
}

const MachineText* currentMachineText(const MachineTextMap& texts, const Attachment& attachment) {
    const auto found = texts.find(attachment.guid);
    if (found == texts.end() || isStale(found->second, attachment)) return nullptr;
    return &found->second;
}

std::vector<Attachment> pendingAnalysis(const std::vector<Message>& messages,
                                        const MachineTextMap& texts) {
    std::vector<Attachment> pending;
    for (const Message& message : messages)
        for (const Attachment& attachment : message.visibleAttachments())
            if ((isImage(attachment) || isAudio(attachment)) &&
                !currentMachineText(texts, attachment))
                pending.push_back(attachment);
    return pending;
}

manifest::MachineText machineTextForExport(const std::vector<Message>& messages,
                                           const MachineTextMap& texts) {
    manifest::MachineText shown;
    for (const Message& message : messages)
        for (const Attachment& attachment : message.visibleAttachments())
            if (const MachineText* text = currentMachineText(texts, attachment))
                shown[attachment.id] = {.isTranscript = text->kind == MachineText::Kind::transcript,
                                        .text = text->text,
                                        .engine = text->engine,
                                        .createdAt = text->createdAt,
                                        .fileBytes = text->fileBytes};
    return shown;
}

MachineTextLookup storedMachineTextLookup() {
    auto texts = std::make_shared<const MachineTextMap>(AnalysisStore::load());
    if (texts->empty()) return {};
    return [texts](const Attachment& attachment) -> std::optional<std::string> {
        const MachineText* text = currentMachineText(*texts, attachment);
        return text ? std::optional(text->text) : std::nullopt;
    };
}

ExportPipeline::Context withStoredMachineText(ExportPipeline::Context context,
                                              const std::vector<Message>& messages) {
    context.machineText = machineTextForExport(messages, AnalysisStore::load());
    return context;
}

}  // namespace bc
