#include "app/counsel/Counsel.h"

#include <algorithm>

#include "app/shell/AppModel.h"
#include "app/shell/Failures.h"
#include "app/shell/QtText.h"
#include "counsel/CounselBundle.h"
#include "counsel/CounselStatement.h"
#include "custody/CustodyLog.h"
#include "custody/CustodySystemInfo.h"
#include "sources/MessageDatabase.h"

namespace bc::app {

namespace fs = std::filesystem;

namespace {

// The custody log's word for what the statement was drawn from.
std::string sourceKindOf(const AppModel& model) {
    switch (model.sourceChoice().kind) {
        case SourceChoice::Kind::snapshot:
            return "snapshot";
        case SourceChoice::Kind::whatsAppMac:
            return "whatsapp-live";
        case SourceChoice::Kind::whatsAppImport:
            if (!model.openedImport()) return "whatsapp-export-import";
            if (model.openedImport()->backup) return "iphone-backup-import";
            return model.openedImport()->kind == ImportInfo::Kind::database
                       ? "whatsapp-database-import"
                       : "whatsapp-export-import";
        case SourceChoice::Kind::messagesLive:
            break;
    }
    return "live";
}

std::optional<std::string> sourceNoteOf(const AppModel& model) {
    const auto& open = model.openedImport();
    if (model.sourceChoice().kind != SourceChoice::Kind::whatsAppImport || !open || !open->backup)
        return std::nullopt;
    return iphoneBackupImport::deviceText(open->backup->device);
}

std::vector<std::string> participantsOf(const AppModel& model, const Conversation& conversation) {
    std::vector<std::string> names;
    for (const auto& chat : model.chats()) {
        if (std::find(conversation.chatIDs.begin(), conversation.chatIDs.end(), chat.id) ==
            conversation.chatIDs.end())
            continue;
        for (const auto& handle : chat.participants) {
            auto name = model.nameFor(handle);
            if (std::find(names.begin(), names.end(), name) == names.end())
                names.push_back(std::move(name));
        }
    }
    return names;
}

bool isInside(const fs::path& path, const fs::path& folder) {
    const fs::path relative = path.lexically_relative(folder);
    return !relative.empty() && *relative.begin() != "..";
}

QString quotedName(const fs::path& file) {
    return "\u201C" + qs(file.filename().string()) + "\u201D";
}

}  // namespace

std::optional<fs::path> productOf(const CustodyRecord& record) {
    if (record.outputs.empty()) return std::nullopt;
    fs::path shared = fs::path(record.outputs.front().path);
    if (record.outputs.size() == 1) return shared;
    shared = shared.parent_path();
    for (const auto& output : record.outputs)
        while (!shared.empty() && !isInside(output.path, shared)) shared = shared.parent_path();
    if (shared.empty() || shared == shared.root_path()) return std::nullopt;
    return shared;
}

Counsel::Counsel(AppModel& model) : model_(model), dialogs_(ExportDialogs::native(nullptr)) {}

std::optional<fs::path> Counsel::askWhere(const std::string& proposedName, const QString& filter) {
    const fs::path proposed(proposedName);
    const std::string extension = proposed.extension().string().substr(1);
    try {
        if (const auto folder = model_.demoExportFolder())
            return uniqueURL((*folder / proposed).replace_extension(), extension);
    } catch (const std::exception& problem) {
        emit statusReported(QString("Couldn't prepare the demo export folder: ") + problem.what());
        return std::nullopt;
    }
    auto chosen = dialogs_.saveFile(qs(proposedName), filter + " (*." + qs(extension) + ")");
    if (!chosen) return std::nullopt;
    if (chosen->extension() != "." + extension) *chosen += "." + extension;
    // A file already there is evidence too: the new one takes the next free name.
    return uniqueURL(chosen->replace_extension(), extension);
}

bool Counsel::draftStatement() {
    const auto* conversation = model_.selectedConversation();
    const auto database = model_.source();
    if (!conversation || !database) {
        emit statusReported(chooseConversationText);
        return false;
    }
    if (model_.jobs().isRunning()) return false;
    const auto file =
        askWhere(CounselStatement::defaultFileName(conversation->title), "Word document");
    if (!file) return false;
    CounselStatement::Input input{.conversation = conversation->title,
                                  .participants = participantsOf(model_, *conversation),
                                  .sourcePath = database->path(),
                                  .sourceKind = sourceKindOf(model_),
                                  .sourceNote = sourceNoteOf(model_)};
    return model_.jobs().start(
        "Drafting the statement for counsel…",
        [input, chatIDs = conversation->chatIDs, file = *file](const CancelFlag& cancel,
                                                               const ProgressFn&) mutable {
            input.system = custodySystemInfo::current();
            input.preparedAt = Clock::now();
            CounselStatement::readLog(input, chatIDs);
            cancel.check();
            docx::write(CounselStatement::document(input), file);
            return file;
        },
        [](const fs::path& saved) { return "Draft statement saved to " + quotedName(saved); },
        [](std::exception_ptr error) {
            return isCancellation(error)
                       ? QString("Draft statement cancelled. Nothing was saved.")
                       : "Draft statement failed, nothing was saved: " + qs(messageOf(error));
        });
}

std::vector<fs::path> Counsel::suggestedBundleItems() const {
    const auto* conversation = model_.selectedConversation();
    if (!conversation) return {};
    std::vector<fs::path> items;
    for (const auto& record :
         CounselStatement::recordsFor(CustodyLog::readAll(), conversation->chatIDs)) {
        if (record.action != "export" && record.action != "exhibit") continue;
        const auto product = productOf(record);
        std::error_code error;
        if (!product || !fs::exists(*product, error)) continue;
        if (std::find(items.begin(), items.end(), *product) == items.end())
            items.push_back(*product);
    }
    return items;
}

void Counsel::showBundleSheet() {
    const auto* conversation = model_.selectedConversation();
    if (!conversation) {
        emit statusReported(chooseConversationText);
        return;
    }
    emit bundleRequested({conversation->title, suggestedBundleItems()});
}

bool Counsel::createBundle(const std::vector<fs::path>& items, const std::string& title,
                           const std::string& password) {
    const auto* conversation = model_.selectedConversation();
    if (!conversation || items.empty() || model_.jobs().isRunning()) return false;
    const auto file =
        askWhere(CounselBundle::defaultFileName(conversation->title), "Encrypted zip archive");
    if (!file) return false;
    return model_.jobs().start(
        "Preparing the bundle…",
        [items, title, password, file = *file](const CancelFlag& cancel,
                                               const ProgressFn& progress) {
            return CounselBundle::make(items, title, password, file, cancel, progress);
        },
        [](const CounselBundle::Outcome& outcome) { return qs(outcome.message); },
        // Only what escapes the bundle's own reporting ends here.
        [](std::exception_ptr error) {
            return "Bundle failed, nothing was saved: " + qs(messageOf(error));
        });
}

}  // namespace bc::app
