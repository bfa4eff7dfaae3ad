#include "app/custody/Snapshots.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>

#include "app/shell/AppModel.h"
#include "app/shell/Failures.h"
#include "app/shell/QtText.h"
#include "custody/SnapshotLock.h"
#include "custody/SnapshotTaking.h"
#include "sources/MessageDatabase.h"
#include "support/Errors.h"

namespace bc::app {

namespace {

QString reasonOf(std::exception_ptr error) {
    return qs(messageOf(error));
}

}  // namespace

// Unlocked first: the system will not move immutable files. Anything that stops the move
// seals the folder again, so a sealed folder is never left open to change.
void unlockAndTrash(const std::filesystem::path& folder, const CancelFlag& cancel) {
    // Without the data folder the Trash would be set up in the working folder instead.
    QDir().mkpath(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation));
    snapshotLock::unlock(folder);
    if (!cancel.isCancelled() && QFile::moveToTrash(qs(folder.string()))) return;
    snapshotLock::lock(folder);
    cancel.check();
    throw Error("the system could not move the folder " + folder.string());
}

QString Snapshots::trashExplanation(const SnapshotInfo& snapshot) {
    return qs(snapshot.id) +
           " will be unlocked and moved to the Trash. You can restore it from the Trash until "
           "you empty it.";
}

Snapshots::Snapshots(AppModel& model) : model_(model), listing_(this, 1) {
    refresh();
}

Snapshots::~Snapshots() = default;

const SnapshotInfo* Snapshots::find(const std::string& id) const {
    for (const auto& snapshot : list_)
        if (snapshot.id == id) return &snapshot;
    return nullptr;
}

const SnapshotInfo* Snapshots::findAt(const std::filesystem::path& folder) const {
    for (const auto& snapshot : list_)
        if (Preservation::folder(snapshot) == folder) return &snapshot;
    return nullptr;
}

void Snapshots::refresh() {
    const auto generation = ++listGeneration_;
    listing_.run(
        [] { return std::pair(Preservation::list(), Preservation::unreadable()); },
        [this, generation](std::pair<std::vector<SnapshotInfo>, std::vector<std::string>> found) {
            if (generation != listGeneration_) return;
            list_ = std::move(found.first);
            emit listChanged();
            // A damaged snapshot cannot be listed; the user must still hear of it.
            if (!found.second.empty())
                emit statusReported("WARNING: " + QString::fromStdString(found.second.front()));
        },
        [this](std::exception_ptr error) {
            emit statusReported("Couldn't list the snapshots: " + reasonOf(error));
        });
}

std::optional<QString> Snapshots::whyNotTake() const {
    if (model_.sourceKind() != AppModel::SourceKind::live) return QString(needsLiveText);
    // Live Messages chosen but never opened: say where the database was looked for.
    if (!model_.database())
        return "Couldn't take a snapshot: no Messages database was found at " +
               qs(MessageDatabase::defaultPath().string()) + ".";
    return std::nullopt;
}

bool Snapshots::refuseWhileBusy() {
    if (!model_.jobs().isRunning()) return false;
    emit statusReported(Jobs::busyText);
    return true;
}

bool Snapshots::take() {
    if (const auto reason = whyNotTake()) {
        emit statusReported(*reason);
        return false;
    }
    if (refuseWhileBusy()) return false;
    return model_.jobs().start(
        preparingText,
        [database = model_.database()](const CancelFlag& cancel, const ProgressFn& progress) {
            return takeSnapshot(*database, std::nullopt, allConversations, &cancel, progress);
        },
        [this](const TakenSnapshot& taken) {
            refresh();
            return qs(taken.statusLine());
        },
        [](std::exception_ptr error) { return qs(snapshotNotTakenLine(error)); });
}

bool Snapshots::verify(const SnapshotInfo& snapshot) {
    if (refuseWhileBusy()) return false;
    return model_.jobs().start(
        "Verifying " + qs(snapshot.id) + "…",
        [snapshot](const CancelFlag& cancel, const ProgressFn& progress) {
            const auto verification = Preservation::verify(snapshot, &cancel, progress);
            return std::pair(Preservation::describe(verification, snapshot),
                             Preservation::findings(verification));
        },
        [this, folder = Preservation::folder(snapshot)](
            const std::pair<std::string, std::vector<std::string>>& verdict) {
            QString full = qs(verdict.first);
            for (const auto& finding : verdict.second) full += "\n" + qs(finding);
            verdicts_[folder] = full;
            emit verdictsChanged();
            return qs(verdict.first);
        },
        [id = qs(snapshot.id)](std::exception_ptr error) {
            if (isCancellation(error)) return "Verification of " + id + " cancelled.";
            return "Couldn't verify " + id + ": " + reasonOf(error);
        });
}

std::optional<QString> Snapshots::verdict(const SnapshotInfo& snapshot) const {
    const auto found = verdicts_.find(Preservation::folder(snapshot));
    if (found == verdicts_.end()) return std::nullopt;
    return found->second;
}

void Snapshots::openAsSource(const SnapshotInfo& snapshot) {
    model_.openSnapshot(snapshot);
}

std::optional<QString> Snapshots::whyNotTrash(const SnapshotInfo& snapshot) const {
    const auto& open = model_.sourceChoice().snapshot;
    if (model_.sourceKind() != AppModel::SourceKind::snapshot || !open || open->id != snapshot.id)
        return std::nullopt;
    return QString(openSnapshotText);
}

bool Snapshots::moveToTrash(const SnapshotInfo& snapshot) {
    if (const auto reason = whyNotTrash(snapshot)) {
        emit statusReported("Couldn't move " + qs(snapshot.id) + " to the Trash. " + *reason);
        return false;
    }
    if (refuseWhileBusy()) return false;
    const QString id = qs(snapshot.id);
    return model_.jobs().start(
        "Moving " + id + " to the Trash…",
        [folder = Preservation::folder(snapshot)](const CancelFlag& cancel, const ProgressFn&) {
            unlockAndTrash(folder, cancel);
            return true;
        },
        [this, id, folder = Preservation::folder(snapshot)](bool) {
            verdicts_.erase(folder);
            refresh();
            return id + " moved to the Trash.";
        },
        [id](std::exception_ptr error) {
            if (isCancellation(error)) return id + " was not moved; it is still sealed.";
            return "Couldn't move " + id + " to the Trash: " + reasonOf(error);
        });
}

}  // namespace bc::app
