#pragma once

#include <functional>
#include <string>
#include <vector>

#include <QAbstractItemView>
#include <QCache>
#include <QStringList>
#include <QStyledItemDelegate>

#include "support/Date.h"

namespace bc {
struct Message;
}

namespace bc::app {

class ThumbnailCache;
class TranscriptModel;

// Draws one transcript row: a day heading when the row starts a day, then a bubble (mine on the
// right, theirs on the left) or a centred notice for calls and system rows, or the user's own
// event card. Heights are measured once per row and width and kept, so a long conversation
// scrolls without measuring text again.
class TranscriptDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    struct Context {
        std::function<bool(const Message&)> isFlagged;
        std::function<std::string(const Message&)> note;
        std::function<std::string(const std::string& handle)> name;
    };

    TranscriptDelegate(QAbstractItemView* view, ThumbnailCache& thumbnails, Context context);

    // Rows are measured again (flags, notes or the width changed).
    void forgetSizes();
    void forgetRow(int row);

    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;

    // The lines under a message's text and attachments: its versions, unsent, app and deletion
    // notes, recovered parts; in the wording every export uses.
    static QStringList details(const Message& message);
    // Each reaction with who gave it ("❤️ Sam Taylor  ·  ❓ You"); a plain "?" is the
    // question-mark reaction, drawn as such rather than read as punctuation.
    static QString reactionLine(const Message& message,
                                const std::function<std::string(const std::string&)>& name);

private:
    struct Block {
        enum class Kind {
            heading,
            notice,
            event,
            sender,
            quote,
            body,
            picture,
            file,
            detail,
            reactions,
            footer
        };
        Kind kind = Kind::body;
        QString text;
        QRect rect;  // within the row
        QString path;

        bool inBubble() const { return kind >= Kind::sender && kind <= Kind::reactions; }
        bool isSmall() const {
            return kind != Kind::body && kind != Kind::event && kind != Kind::reactions;
        }
    };

    struct Layout {
        std::vector<Block> blocks;
        QRect bubble;  // empty for rows without one
        bool fromMe = false;
        Qt::Alignment footerAlignment = Qt::AlignRight;
        Date date;
        int height = 0;
    };

    const Layout& layoutOf(const TranscriptModel& model, int row, const QFont& font) const;
    Layout measure(const TranscriptModel& model, int row, const QFont& font) const;
    void followWidth() const;
    void paintFooter(QPainter& painter, const Layout& layout, const QPoint& origin,
                     const QFont& font) const;
    void paintBlock(QPainter& painter, const Block& block, const QRect& area,
                    const QFont& font) const;

    QAbstractItemView* view_;
    ThumbnailCache& thumbnails_;
    Context context_;
    mutable std::vector<int> heights_;
    mutable int measuredWidth_ = -1;
    mutable QCache<int, Layout> layouts_{600};
};

}  // namespace bc::app
