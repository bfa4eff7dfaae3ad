#pragma once

#include <memory>

#include <QAbstractListModel>

#include "app/shell/AppModel.h"

namespace bc::app {

// The open conversation's rows for the transcript view. Holds its own reference to the rows, so
// what is painted stays valid while the model reads a new transcript.
class TranscriptModel : public QAbstractListModel {
    Q_OBJECT
public:
    explicit TranscriptModel(QObject* parent = nullptr);

    // `showsSenders`: a group conversation, where each row says who wrote it.
    void setTranscript(std::shared_ptr<const OpenTranscript> transcript, bool showsSenders);
    bool showsSenders() const { return showsSenders_; }
    const OpenTranscript& transcript() const { return *transcript_; }
    const Message& message(int row) const { return transcript_->rows[static_cast<size_t>(row)]; }
    bool startsDay(int row) const;
    // The message a reply answers, when it is in this conversation.
    const Message* repliedTo(const Message& reply) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

private:
    std::shared_ptr<const OpenTranscript> transcript_;
    bool showsSenders_ = false;
};

}  // namespace bc::app
