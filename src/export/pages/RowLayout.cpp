#include "export/pages/RowLayout.h"

#include <filesystem>

#include "model/MessageNotes.h"
#include "support/DateFormat.h"
#include "support/Machine.h"

namespace bc::pages {

namespace {

constexpr Colour black{0, 0, 0};
constexpr Colour grey{0.38, 0.38, 0.38};
constexpr Colour flagColour{0.75, 0.35, 0.0};
constexpr double bodyIndent = 10;
constexpr size_t replyExcerptLength = 80;

const TextStyle headingStyle{.size = 9, .colour = black};
const TextStyle bodyStyle{.size = 9.5, .colour = black};
const TextStyle metaStyle{.size = 8, .colour = grey};
const TextStyle noticeStyle{.size = 8.5, .italic = true, .colour = grey};
const TextStyle flagStyle{.size = 8.5, .bold = true, .colour = flagColour};
const TextStyle dayStyle{
    .size = 10, .bold = true, .alignment = PANGO_ALIGN_CENTER, .colour = {0.2, 0.2, 0.2}};
const TextStyle gapStyle{
    .size = 8.5, .italic = true, .alignment = PANGO_ALIGN_CENTER, .colour = grey};
const TextStyle certificateStyle{.family = TextStyle::Family::mono, .size = 7.5, .colour = black};

// At most `length` characters (not bytes), with an ellipsis when cut.
std::string excerpt(const std::string& text, size_t length) {
    size_t at = 0;
    for (size_t count = 0; at < text.size() && count < length; ++count) {
        ++at;
        while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80) ++at;
    }
    return at < text.size() ? text.substr(0, at) + "…" : text;
}

std::string fileName(const Attachment& attachment) {
    if (!attachment.name.empty()) return attachment.name;
    const std::string name = std::filesystem::path(attachment.path).filename().string();
    return name.empty() ? "(unnamed file)" : name;
}

bool isStored(const Attachment& attachment) {
    std::error_code error;
    return !attachment.path.empty() && std::filesystem::is_regular_file(attachment.path, error);
}

template <class Map>
const typename Map::mapped_type* find(const Map& map, const typename Map::key_type& key) {
    const auto found = map.find(key);
    return found == map.end() ? nullptr : &found->second;
}

// Pointers into the message itself, so a measured row may refer to its attachments.
std::vector<const Attachment*> visibleAttachments(const Message& message) {
    std::vector<const Attachment*> visible;
    for (const Attachment& attachment : message.attachments)
        if (!attachment.isHidden) visible.push_back(&attachment);
    return visible;
}

// Without the final line end, which would print as an empty line.
std::string_view withoutFinalLineEnd(std::string_view text) {
    return text.ends_with('\n') ? text.substr(0, text.size() - 1) : text;
}

}  // namespace

PatternFormatter exactTimeFormatter() {
    return PatternFormatter("yyyy-MM-dd HH:mm:ss zzz", "en_US_POSIX");
}

std::vector<double> MeasuredRow::unitHeights() const {
    std::vector<double> heights;
    for (const Block& block : blocks) {
        if (block.text) {
            for (size_t line = 0; line < block.text->lineCount(); ++line)
                heights.push_back(block.text->lineHeight(line) +
                                  (line == 0 ? block.spaceBefore : 0));
        } else {
            heights.push_back(block.spaceBefore + block.photoSize.height);
        }
    }
    return heights;
}

void MeasuredRow::draw(const Canvas& canvas, Thumbnails& thumbnails, double x, double y,
                       size_t first, size_t end) const {
    size_t unit = 0;
    for (const Block& block : blocks) {
        const size_t count = block.unitCount();
        const size_t from = std::max(first, unit), to = std::min(end, unit + count);
        if (from < to) {
            const double top = y + (from == unit ? block.spaceBefore : 0);
            if (block.text) {
                block.text->drawLines(canvas, x + block.indent, top, from - unit, to - unit);
                y = top + [&] {
                    double height = 0;
                    for (size_t line = from - unit; line < to - unit; ++line)
                        height += block.text->lineHeight(line);
                    return height;
                }();
            } else {
                thumbnails.paint(canvas, *block.photo, x + block.indent, top, block.photoSize);
                y = top + block.photoSize.height;
            }
        }
        unit += count;
    }
}

RowMeasurer::RowMeasurer(const TextContext& context, RowSources sources, Thumbnails& thumbnails,
                         double width)
    : context_(context),
      sources_(sources),
      thumbnails_(thumbnails),
      width_(width),
      timeFormat_(exactTimeFormatter()) {}

void RowMeasurer::addText(MeasuredRow& row, std::string_view text, const TextStyle& style,
                          double spaceBefore, std::string_view boldPrefix) const {
    const double indent = style.alignment == PANGO_ALIGN_CENTER ? 0 : bodyIndent;
    for (const std::string_view chunk : layoutChunks(text)) {
        Block block{.indent = indent, .spaceBefore = spaceBefore};
        block.text =
            std::make_unique<TextBlock>(context_.get(), chunk, style, width_ - indent, boldPrefix);
        row.blocks.push_back(std::move(block));
        spaceBefore = 0;
        boldPrefix = {};
    }
}

MeasuredRow RowMeasurer::measure(const Row& row) const {
    MeasuredRow out;
    switch (row.kind) {
        case Row::Kind::day:
            addText(out,
                    notes::isUndated(row.date)
                        ? std::string(notes::undated)
                        : dates::formatStyled(row.date, dates::Style::full, dates::Style::none),
                    dayStyle, 6);
            break;
        case Row::Kind::gap:
            addText(out, gapText(row.omittedMessages, row.omittedCalls), gapStyle);
            break;
        case Row::Kind::certificate:
            out.startsPage = true;
            addText(out, withoutFinalLineEnd(*sources_.options.certificate), certificateStyle, 0);
            break;
        case Row::Kind::message:
            addMessage(out, row);
            break;
    }
    return out;
}

std::string RowMeasurer::senderName(const Message& message) const {
    if (sources_.nameFor) return sources_.nameFor(message.sender, message.isFromMe);
    return message.isFromMe ? "Me" : message.sender;
}

void RowMeasurer::addMessage(MeasuredRow& out, const Row& row) const {
    const Message& message = sources_.messages[row.message];
    out.highlighted = sources_.options.highlighted.contains(message.id);
    // The sender line sits flush left; everything under it is indented.
    // "#" names message records only; a call comes from the call log, under its own number.
    const std::string record = message.call
                                   ? "call record " + std::to_string(message.call->recordID)
                                   : "#" + std::to_string(message.id);
    const std::string when = notes::isUndated(message.date) ? std::string(notes::undated)
                                                            : timeFormat_.format(message.date);
    const std::string stamp = "   " + when + "   " + record;
    addText(out, stamp, headingStyle, 0, senderName(message));
    out.blocks.back().indent = 0;
    if (row.partLabel) addText(out, *row.partLabel, metaStyle);
    if (const auto* label = find(sources_.options.chatLabels, message.id))
        addText(out, "In conversation: " + *label, metaStyle);

    const auto attachments = visibleAttachments(message);
    if (row.isFirst) {
        if (const auto text = withoutAttachmentMarks(notes::text(message, false)); !text.empty())
            addText(out, text, bodyStyle);
        else if (attachments.empty())
            addText(out, "(attachment or no text)", noticeStyle);
    }
    for (size_t i = row.firstAttachment; i < row.firstAttachment + row.attachmentCount; ++i)
        addAttachment(out, *attachments.at(i));
    if (row.isFinal) addClosingLines(out, message);
}

void RowMeasurer::addAttachment(MeasuredRow& out, const Attachment& attachment) const {
    const std::string name = fileName(attachment);
    if (!isStored(attachment)) {
        addText(out, name + ": not stored on " + thisMachine, noticeStyle);
    } else if (const auto size =
                   isPhoto(attachment) ? thumbnails_.previewSize(attachment) : std::nullopt) {
        Block block{.indent = bodyIndent, .spaceBefore = 4, .photoSize = *size};
        block.photo = &attachment;
        out.blocks.push_back(std::move(block));
        addText(out, name, metaStyle, 1);
    } else {
        addText(out, "Attachment: " + name, metaStyle);
    }
    if (const auto* text = find(sources_.options.machineText, attachment.id))
        addText(out, text->text, noticeStyle, 2, text->label());
}

void RowMeasurer::addClosingLines(MeasuredRow& out, const Message& message) const {
    const auto& options = sources_.options;
    if (out.highlighted) addText(out, "⚑ Flagged as evidence", flagStyle);
    if (const auto* note = find(options.notes, message.id))
        addText(out, *note, bodyStyle, 2, "Note: ");
    addEditHistory(out, message);
    if (message.isUnsent) addText(out, "This message was unsent.", noticeStyle);
    if (message.errorCode != 0)
        addText(out, "Not delivered (error " + std::to_string(message.errorCode) + ")",
                noticeStyle);
    if (message.effect) addText(out, *message.effect + " effect", noticeStyle);
    if (const auto app = notes::appLabel(message)) addText(out, *app, noticeStyle);
    if (const auto deleted = notes::recentlyDeleted(message)) addText(out, *deleted, noticeStyle);
    for (const RecoveredPart& part : message.recoveredParts) {
        std::string label = notes::recoveredPart(part);
        if (part.deletedAt) label += " (deleted " + timeFormat_.format(*part.deletedAt) + ")";
        addText(out, part.text.value_or("(no text stored)"), bodyStyle, 2, label + ": ");
    }
    if (message.replyToGUID) addText(out, replyLine(*message.replyToGUID), noticeStyle);
    if (!message.reactions.empty()) {
        std::string text;
        for (const Reaction& reaction : message.reactions)
            text += (text.empty() ? "" : " · ") + reaction.emoji + " " +
                    (sources_.nameFor ? sources_.nameFor(reaction.sender, reaction.isFromMe)
                                      : reaction.sender);
        addText(out, text, metaStyle, 2, "Reactions: ");
    }
}

void RowMeasurer::addEditHistory(MeasuredRow& out, const Message& message) const {
    if (!message.isEdited) return;
    if (message.editHistory.empty()) {
        addText(out, "Edited. Earlier versions were not stored by Messages", noticeStyle);
        return;
    }
    addText(out, "Edited", noticeStyle);
    for (size_t i = 0; i < message.editHistory.size(); ++i) {
        const EditVersion& version = message.editHistory[i];
        const std::string label =
            notes::editVersion(i) + " (" + timeFormat_.format(version.date) + "): ";
        addText(out, version.text.value_or("(unreadable)"), bodyStyle, 1, label);
    }
}

std::string RowMeasurer::replyLine(const std::string& targetGUID) const {
    const auto* target = find(sources_.originals, targetGUID);
    if (target == nullptr) return "↩︎ Reply to a message not found in these conversations";
    // Replies point into the unredacted record: the excerpt must not undo the redaction.
    const std::string text = sources_.options.redactor.apply(target->text);
    return "↩︎ Reply to " + senderName(*target) + ": “" + excerpt(text, replyExcerptLength) +
           "”";
}

}  // namespace bc::pages
