#include "app/transcript/TranscriptDelegate.h"

#include <algorithm>

#include <QAbstractItemView>
#include <QFontMetrics>
#include <QPainter>

#include "app/shell/QtText.h"
#include "app/transcript/ThumbnailCache.h"
#include "app/transcript/TranscriptModel.h"
#include "model/MessageNotes.h"
#include "support/DateFormat.h"
#include "support/Machine.h"

namespace bc::app {

namespace {

constexpr int margin = 12;
constexpr int padX = 10;
constexpr int padY = 6;
constexpr int gap = 3;
constexpr int pictureHeight = 120;
// A message longer than this is shortened on screen (exports carry it whole): measuring a huge
// text would stall every scroll past it.
constexpr qsizetype longestShownText = 4000;

const QColor myBubble(0x0a, 0x84, 0xff);
const QColor theirBubble(0xe9, 0xe9, 0xeb);
const QColor eventCard(0xff, 0xf4, 0xc2);
const QColor eventBorder(0xd4, 0xa0, 0x17);
const QColor quiet(0x6e, 0x6e, 0x73);
const QColor flagColour(0xd9, 0x6c, 0x00);

QString shown(const std::string& text) {
    QString result = qs(text);
    if (result.size() > longestShownText)
        result = result.left(longestShownText) + "… (shortened here; exports hold the whole text)";
    return result;
}

bool isPicture(const Attachment& attachment) {
    return attachment.mimeType.starts_with("image/");
}

QFont smaller(const QFont& font) {
    QFont small = font;
    small.setPointSizeF(font.pointSizeF() * 0.85);
    return small;
}

}  // namespace

TranscriptDelegate::TranscriptDelegate(QAbstractItemView* view, ThumbnailCache& thumbnails,
                                       Context context)
    : QStyledItemDelegate(view),
      view_(view),
      thumbnails_(thumbnails),
      context_(std::move(context)) {}

void TranscriptDelegate::forgetSizes() {
    heights_.clear();
    layouts_.clear();
}

void TranscriptDelegate::forgetRow(int row) {
    if (static_cast<size_t>(row) < heights_.size()) heights_[static_cast<size_t>(row)] = 0;
    layouts_.remove(row);
}

TranscriptDelegate::Layout TranscriptDelegate::measure(const TranscriptModel& model, int row,
                                                       const QFont& font) const {
    const Message& message = model.message(row);
    const int width = std::max(240, view_->viewport()->width() - 2 * margin);
    const int bubbleMax = std::max(160, width * 2 / 3) - 2 * padX;
    Layout layout{.fromMe = message.isFromMe, .date = message.date};

    // Blocks are stacked first; x positions follow once the bubble's width is known.
    int y = 4;
    bool bubbleOpen = false;
    const auto add = [&](Block::Kind kind, const QString& text, int maxWidth, QString path = {}) {
        Block block{kind, text, {}, std::move(path)};
        if (block.inBubble() != bubbleOpen) {
            y += padY;
            bubbleOpen = block.inBubble();
        }
        QSize size;
        if (kind == Block::Kind::picture) {
            size = QSize(ThumbnailCache::maxSide, pictureHeight);
        } else {
            const QFontMetrics metrics(block.isSmall() ? smaller(font) : font);
            size =
                metrics.boundingRect(QRect(0, 0, maxWidth, 1 << 20), Qt::TextWordWrap, text).size();
        }
        block.rect = QRect(0, y, size.width(), size.height());
        y += size.height() + gap;
        layout.blocks.push_back(std::move(block));
    };

    if (model.startsDay(row))
        add(Block::Kind::heading,
            qs(notes::isUndated(message.date)
                   ? std::string(notes::undated)
                   : dates::formatPattern(message.date, "EEEE d MMMM y")),
            width);
    if (message.isUserEvent()) {
        const auto& event = *message.userEvent;
        QString text = "Your event: " + qs(event.title);
        if (!event.note.empty()) text += "\n" + shown(event.note);
        add(Block::Kind::event, text, width * 3 / 4);
    } else if (message.isCall() || message.systemNotice) {
        add(Block::Kind::notice, shown(message.systemNotice.value_or(message.text)), width);
    } else {
        if (model.showsSenders() && !message.isFromMe && !message.sender.empty())
            add(Block::Kind::sender, qs(context_.name(message.sender)), bubbleMax);
        if (message.replyToGUID) {
            const Message* original = model.repliedTo(message);
            const QString quoted = original ? qs(original->text).left(120).simplified()
                                            : QString("a message not in this conversation");
            add(Block::Kind::quote, "Reply to: " + quoted, bubbleMax);
        }
        if (const std::string text = notes::text(message, false); !text.empty())
            add(Block::Kind::body, shown(text), bubbleMax);
        for (const auto& attachment : message.visibleAttachments()) {
            const bool picture = isPicture(attachment);
            add(picture ? Block::Kind::picture : Block::Kind::file,
                "Attachment: " + qs(attachment.name), bubbleMax, qs(attachment.path));
        }
        for (const QString& line : details(message)) add(Block::Kind::detail, line, bubbleMax);
        if (!message.reactions.empty())
            add(Block::Kind::reactions, reactionLine(message, context_.name), bubbleMax);
    }
    // The time goes on this line at paint time; a flag and its note follow it.
    QString footer = " ";
    if (context_.isFlagged(message)) {
        footer = "⚑ Flagged as evidence";
        if (const auto note = context_.note(message); !note.empty())
            footer += "\nNote: " + shown(note);
    }
    add(Block::Kind::footer, footer, width * 2 / 3);
    layout.height = y + 4;

    // Horizontal placement: the bubble hugs its widest block on its side of the view.
    int inner = 0;
    for (const auto& block : layout.blocks)
        if (block.inBubble()) inner = std::max(inner, block.rect.width());
    const int left = margin + (message.isFromMe ? width - inner - 2 * padX : 0);
    int top = -1, bottom = -1;
    for (auto& block : layout.blocks) {
        if (block.inBubble()) {
            block.rect.moveLeft(left + padX);
            if (top < 0) top = block.rect.top();
            bottom = block.rect.bottom();
        } else if (block.kind == Block::Kind::footer) {
            block.rect = QRect(margin, block.rect.top(), width, block.rect.height());
            layout.footerAlignment = message.isFromMe ? Qt::AlignRight : Qt::AlignLeft;
        } else {
            block.rect.moveLeft(margin + (width - block.rect.width()) / 2);
        }
    }
    if (top >= 0)
        layout.bubble = QRect(left, top - padY, inner + 2 * padX, bottom - top + 1 + 2 * padY);
    return layout;
}

QStringList TranscriptDelegate::details(const Message& message) {
    QStringList lines;
    for (size_t i = 0; i < message.editHistory.size(); ++i) {
        const EditVersion& version = message.editHistory[i];
        lines << qs(notes::editVersion(i) + " (" +
                    dates::formatPattern(version.date, "yyyy-MM-dd HH:mm:ss zzz", "en_US_POSIX") +
                    "): ") +
                     shown(version.text.value_or("(unreadable)"));
    }
    if (message.isEdited && message.editHistory.empty()) lines << "Edited";
    if (message.isUnsent) lines << "This message was unsent.";
    if (const auto app = notes::appLabel(message)) lines << qs(*app);
    if (const auto deleted = notes::recentlyDeleted(message)) lines << qs(*deleted);
    for (const auto& part : message.recoveredParts)
        lines << qs(notes::recoveredPart(part) + ": ") + shown(part.text.value_or("(unreadable)"));
    return lines;
}

QString TranscriptDelegate::reactionLine(
    const Message& message, const std::function<std::string(const std::string&)>& name) {
    QStringList parts;
    for (const auto& reaction : message.reactions) {
        const QString emoji = reaction.emoji == "?" ? QString("❓") : qs(reaction.emoji);
        parts << emoji + " " + (reaction.isFromMe ? QString("You") : qs(name(reaction.sender)));
    }
    return parts.join("  ·  ");
}

const TranscriptDelegate::Layout& TranscriptDelegate::layoutOf(const TranscriptModel& model,
                                                               int row, const QFont& font) const {
    followWidth();
    if (auto* cached = layouts_.object(row)) return *cached;
    layouts_.insert(row, new Layout(measure(model, row, font)));
    return *layouts_.object(row);
}

void TranscriptDelegate::followWidth() const {
    const int width = view_->viewport()->width();
    if (width == measuredWidth_) return;
    measuredWidth_ = width;
    heights_.clear();
    layouts_.clear();
}

QSize TranscriptDelegate::sizeHint(const QStyleOptionViewItem& option,
                                   const QModelIndex& index) const {
    const auto& model = static_cast<const TranscriptModel&>(*index.model());
    followWidth();
    const auto row = static_cast<size_t>(index.row());
    if (heights_.size() != static_cast<size_t>(model.rowCount()))
        heights_.assign(model.rowCount(), 0);
    if (heights_[row] == 0) heights_[row] = layoutOf(model, index.row(), option.font).height;
    return {view_->viewport()->width(), heights_[row]};
}

void TranscriptDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                               const QModelIndex& index) const {
    const auto& model = static_cast<const TranscriptModel&>(*index.model());
    const Layout& layout = layoutOf(model, index.row(), option.font);
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    if (option.state & QStyle::State_Selected)
        painter->fillRect(option.rect, option.palette.highlight().color().lighter(185));
    const QPoint origin = option.rect.topLeft();
    if (!layout.bubble.isEmpty()) {
        painter->setPen(Qt::NoPen);
        painter->setBrush(layout.fromMe ? myBubble : theirBubble);
        painter->drawRoundedRect(layout.bubble.translated(origin), 14, 14);
    }
    for (const auto& block : layout.blocks) {
        painter->setPen(block.inBubble() && layout.fromMe ? QColor(Qt::white)
                                                          : option.palette.text().color());
        paintBlock(*painter, block, block.rect.translated(origin), option.font);
    }
    paintFooter(*painter, layout, origin, option.font);
    painter->restore();
}

// The time on the bubble's side, then the flag and note beside it.
void TranscriptDelegate::paintFooter(QPainter& painter, const Layout& layout, const QPoint& origin,
                                     const QFont& font) const {
    const QFont small = smaller(font);
    const Block& footer = layout.blocks.back();
    const QRect area = footer.rect.translated(origin);
    const QString time =
        qs(notes::isUndated(layout.date)
               ? std::string(notes::undated)
               : dates::formatStyled(layout.date, dates::Style::none, dates::Style::short_));
    const int timeWidth = QFontMetrics(small).horizontalAdvance(time) + 12;
    painter.setFont(small);
    painter.setPen(quiet);
    painter.drawText(area, layout.footerAlignment | Qt::AlignTop, time);
    painter.setPen(flagColour);
    const QRect rest = layout.footerAlignment == Qt::AlignLeft ? area.adjusted(timeWidth, 0, 0, 0)
                                                               : area.adjusted(0, 0, -timeWidth, 0);
    painter.drawText(rest, layout.footerAlignment | Qt::AlignTop | Qt::TextWordWrap, footer.text);
}

void TranscriptDelegate::paintBlock(QPainter& painter, const Block& block, const QRect& area,
                                    const QFont& font) const {
    using Kind = Block::Kind;
    painter.setFont(block.isSmall() ? smaller(font) : font);
    switch (block.kind) {
        case Kind::heading:
        case Kind::notice:
            painter.setPen(quiet);
            painter.drawText(area, Qt::AlignCenter | Qt::TextWordWrap, block.text);
            return;
        case Kind::event:
            painter.setPen(eventBorder);
            painter.setBrush(eventCard);
            painter.drawRoundedRect(area.adjusted(-padX, -padY / 2, padX, padY / 2), 8, 8);
            painter.setPen(Qt::black);
            painter.drawText(area, Qt::TextWordWrap, block.text);
            return;
        case Kind::picture: {
            const auto entry = thumbnails_.lookup(block.path, true);
            if (entry.known && !entry.image.isNull()) {
                const QSize size = entry.image.size().scaled(area.size(), Qt::KeepAspectRatio);
                painter.drawImage(QRect(area.topLeft(), size), entry.image);
                return;
            }
            painter.setPen(QPen(entry.missing ? flagColour : quiet, 1, Qt::DashLine));
            painter.setBrush(QColor(0xfa, 0xfa, 0xfa));
            painter.drawRect(area.adjusted(0, 0, -1, -1));
            painter.drawText(area.adjusted(6, 6, -6, -6), Qt::AlignCenter | Qt::TextWordWrap,
                             !entry.known ? QString("Loading…")
                             : entry.missing
                                 ? "⚠ Missing from " + QString(thisMachine) + "\n" + block.text
                                 : block.text);
            return;
        }
        case Kind::file: {
            const auto entry = thumbnails_.lookup(block.path, false);
            if (entry.missing) painter.setPen(flagColour);
            painter.drawText(area, Qt::TextWordWrap,
                             entry.missing
                                 ? "⚠ " + block.text + " (missing from " + thisMachine + ")"
                                 : block.text);
            return;
        }
        case Kind::reactions:
            // A light pill keeps the emoji and names readable on either bubble colour.
            painter.setPen(QColor(0xc8, 0xc8, 0xc8));
            painter.setBrush(Qt::white);
            painter.drawRoundedRect(area.adjusted(-4, -1, 4, 1), 8, 8);
            painter.setPen(Qt::black);
            painter.drawText(area, Qt::TextWordWrap, block.text);
            return;
        case Kind::footer:
            return;  // paintFooter
        default:
            painter.drawText(area, Qt::TextWordWrap, block.text);
    }
}

}  // namespace bc::app
