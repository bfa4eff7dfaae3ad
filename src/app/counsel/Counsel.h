#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <QObject>
#include <QString>

#include "app/export/Exports.h"
#include "model/CustodyRecord.h"

namespace bc::app {

class AppModel;

// What the bundle dialog starts from: the conversation's exports as the custody log lists them.
struct BundleProposal {
    std::string title;
    std::vector<std::filesystem::path> items;
};

// The deliverables for counsel about the open conversation: the draft statement and the
// encrypted bundle. Both run on the model's job runner, one at a time with everything else.
class Counsel : public QObject {
    Q_OBJECT
public:
    static constexpr const char* chooseConversationText =
        "Choose a conversation first: the statement and the bundle are about one conversation.";

    explicit Counsel(AppModel& model);

    void setDialogs(ExportDialogs dialogs) { dialogs_ = std::move(dialogs); }

    // Asks where to save, then drafts the statement off the main thread. False when nothing was
    // started.
    bool draftStatement();

    // The products of the conversation's exports and exhibits that are still on disk, newest
    // last, each once.
    std::vector<std::filesystem::path> suggestedBundleItems() const;
    // Hands the window a proposal through `bundleRequested`.
    void showBundleSheet();
    // Asks where to save, then builds the bundle. The caller has checked the password.
    bool createBundle(const std::vector<std::filesystem::path>& items, const std::string& title,
                      const std::string& password);

signals:
    void bundleRequested(const BundleProposal& proposal);
    // A line for the status, for refusals and failures outside a job.
    void statusReported(const QString& line);

private:
    // The chosen file, never an existing one; nothing when there is no conversation or the user
    // cancelled.
    std::optional<std::filesystem::path> askWhere(const std::string& proposedName,
                                                  const QString& filter);

    AppModel& model_;
    ExportDialogs dialogs_;
};

// The product an export record names: its one file, or the folder holding all its outputs.
std::optional<std::filesystem::path> productOf(const CustodyRecord& record);

}  // namespace bc::app
