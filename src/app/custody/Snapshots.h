#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <QObject>
#include <QString>

#include "app/shell/Background.h"
#include "custody/Preservation.h"
#include "support/CancelFlag.h"

namespace bc::app {

class AppModel;

// Unlocks a sealed folder (snapshot or import) and moves it to the Trash; anything that stops
// the move locks it again. Throws Error, or CancelledError.
void unlockAndTrash(const std::filesystem::path& folder, const CancelFlag& cancel);

// Preservation snapshots as the window offers them: sealing one from the live source, the list
// newest first, verifying one, reading one as the source and moving one to the Trash. Sealing,
// verifying and trashing run on the model's job runner, one at a time with everything else.
class Snapshots : public QObject {
    Q_OBJECT
public:
    static constexpr const char* preparingText = "Preparing snapshot…";
    static constexpr const char* needsLiveText = "Switch to Live Messages to take a new snapshot";
    static constexpr const char* allConversations = "All conversations";
    static constexpr const char* trashQuestion = "Move this snapshot to the Trash?";
    static constexpr const char* trashButton = "Unlock and Move to Trash";
    static constexpr const char* openSnapshotText =
        "Close this snapshot first: it is the open source.";
    static constexpr const char* chooseSnapshotText = "Choose a snapshot in the list first.";
    static QString trashExplanation(const SnapshotInfo& snapshot);

    explicit Snapshots(AppModel& model);
    ~Snapshots() override;

    // The sealed snapshots under the root, newest first, as last read.
    const std::vector<SnapshotInfo>& list() const { return list_; }
    const SnapshotInfo* find(const std::string& id) const;
    // The snapshot found in this folder (copies may share an id, never a folder).
    const SnapshotInfo* findAt(const std::filesystem::path& folder) const;
    // Reads the root again off the main thread; `listChanged` follows.
    void refresh();

    // Why no snapshot can be taken now (the source is not the live one), else nothing.
    std::optional<QString> whyNotTake() const;
    // Seals every conversation of the live source. False, with the reason in the status line,
    // when it cannot start.
    bool take();
    // Why `snapshot` cannot go to the Trash now (it is the open source), else nothing.
    std::optional<QString> whyNotTrash(const SnapshotInfo& snapshot) const;
    // The verdict ends up in the status line and, with one line per file concerned, in
    // `verdict`.
    bool verify(const SnapshotInfo& snapshot);
    std::optional<QString> verdict(const SnapshotInfo& snapshot) const;
    void openAsSource(const SnapshotInfo& snapshot);
    // Unlocks the folder and moves it to the Trash (the caller has asked the user).
    bool moveToTrash(const SnapshotInfo& snapshot);

signals:
    void listChanged();
    void verdictsChanged();
    // A line for the status, for refusals and failures outside a job.
    void statusReported(const QString& line);

private:
    // False, with the reason reported, while another job runs.
    bool refuseWhileBusy();

    AppModel& model_;
    Background listing_;
    uint64_t listGeneration_ = 0;
    std::vector<SnapshotInfo> list_;
    std::map<std::filesystem::path, QString> verdicts_;  // by folder
};

}  // namespace bc::app
