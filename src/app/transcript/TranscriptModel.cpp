#include "app/transcript/TranscriptModel.h"

namespace bc::app {

TranscriptModel::TranscriptModel(QObject* parent)
    : QAbstractListModel(parent), transcript_(std::make_shared<OpenTranscript>()) {}

void TranscriptModel::setTranscript(std::shared_ptr<const OpenTranscript> transcript,
                                    bool showsSenders) {
    beginResetModel();
    transcript_ = std::move(transcript);
    showsSenders_ = showsSenders;
    endResetModel();
}

bool TranscriptModel::startsDay(int row) const {
    return transcript_->timeline.firstMessageIDs.contains(message(row).id);
}

const Message* TranscriptModel::repliedTo(const Message& reply) const {
    if (!reply.replyToGUID) return nullptr;
    const auto found = transcript_->rowByGUID.find(*reply.replyToGUID);
    return found == transcript_->rowByGUID.end() ? nullptr : &transcript_->rows[found->second];
}

int TranscriptModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(transcript_->rows.size());
}

QVariant TranscriptModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= rowCount()) return {};
    const auto& row = message(index.row());
    if (role == Qt::DisplayRole)
        return QString::fromStdString(row.isUserEvent() ? row.userEvent->title : row.text);
    return {};
}

}  // namespace bc::app
