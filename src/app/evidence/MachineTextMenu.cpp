#include "app/evidence/MachineTextMenu.h"

#include <QDialog>
#include <QFileDialog>
#include <QLabel>
#include <QMenu>
#include <QPlainTextEdit>
#include <QSettings>
#include <QVBoxLayout>

#include "app/shell/AppModel.h"
#include "app/shell/Failures.h"
#include "app/shell/Jobs.h"
#include "app/shell/QtText.h"
#include "evidence/AttachmentAnalysis.h"

namespace bc::app {

namespace {

// The whisper.cpp model file the user chose; PocketSphinx is used without one.
std::optional<std::filesystem::path> whisperModel() {
    const QString file = QSettings().value("analysis/whisperModel").toString();
    if (file.isEmpty()) return std::nullopt;
    return std::filesystem::path(file.toStdString());
}

QString attachmentName(const Attachment& attachment) {
    return qs(attachment.name.empty() ? std::filesystem::path(attachment.path).filename().string()
                                      : attachment.name);
}

QString entryFor(const Attachment& attachment, const MachineTextMap& texts) {
    QString entry = attachmentName(attachment) + "\n";
    if (const MachineText* text = currentMachineText(texts, attachment)) {
        const manifest::MachineTextNote note{
            .isTranscript = text->kind == MachineText::Kind::transcript, .text = text->text};
        return entry + qs(note.label()) + "\n" + qs(text->text) + "\n(" + qs(text->engine) + ")\n";
    }
    const auto stored = texts.find(attachment.guid);
    if (stored != texts.end())
        return entry + "The file has changed since its text was read; read it again.\n";
    return entry + "Not read yet.\n";
}

void showListing(AppModel& model, QWidget* parent) {
    const auto messages = model.transcript().messages();
    const auto texts = AnalysisStore::load();
    QDialog dialog(parent);
    dialog.setObjectName("machineTextWindow");
    dialog.setWindowTitle("Text Read from Photos and Voice Messages");
    auto* layout = new QVBoxLayout(&dialog);
    auto* count = new QLabel(pendingCountText(messages, texts), &dialog);
    count->setObjectName("pendingCount");
    auto* listing = new QPlainTextEdit(machineTextListing(messages, texts), &dialog);
    listing->setObjectName("machineTextListing");
    listing->setReadOnly(true);
    layout->addWidget(count);
    layout->addWidget(listing);
    dialog.resize(560, 480);
    dialog.exec();
}

}  // namespace

QString pendingCountText(const std::vector<Message>& messages, const MachineTextMap& texts) {
    const auto pending = pendingAnalysis(messages, texts).size();
    if (pending == 0) return "Every photo and voice message here has been read.";
    return QString::number(pending) + (pending == 1 ? " photo or voice message not read yet"
                                                    : " photos or voice messages not read yet");
}

QString machineTextListing(const std::vector<Message>& messages, const MachineTextMap& texts) {
    QString listing;
    for (const Message& message : messages)
        for (const Attachment& attachment : message.visibleAttachments())
            if (Analyzer::canAnalyze(attachment))
                listing += (listing.isEmpty() ? "" : "\n") + entryFor(attachment, texts);
    return listing.isEmpty() ? "This conversation has no photos or voice messages." : listing;
}

bool readPhotosAndVoiceMessages(AppModel& model) {
    auto pending = pendingAnalysis(model.transcript().messages(), AnalysisStore::load());
    return model.jobs().start(
        "Reading photos and voice messages…",
        [pending = std::move(pending), whisper = whisperModel()](const CancelFlag& cancel,
                                                                 const ProgressFn& progress) {
            if (pending.empty()) return QString(nothingToAnalyse);
            // Read again here: another run may have saved results since the list was made.
            auto texts = AnalysisStore::load();
            Analyzer analyzer(chooseSpeechEngine(whisper));
            const auto tally =
                analyzeAttachments(pending, analyzer, texts, AnalysisStore::save, cancel, progress);
            return qs(analysisSummary(tally));
        },
        [](QString line) { return line; },
        [](std::exception_ptr error) { return "Analysis stopped. " + qs(messageOf(error)); });
}

QMenu* makeMachineTextMenu(AppModel& model, QWidget* parent) {
    auto* menu = new QMenu("Analysis", parent);
    menu->setObjectName("analysisMenu");
    auto* read = menu->addAction("Read Photos and Voice Messages", menu,
                                 [&model] { readPhotosAndVoiceMessages(model); });
    auto* count = menu->addAction(QString());
    count->setEnabled(false);
    menu->addAction("Text Read from Photos and Voice Messages…", menu,
                    [&model, parent] { showListing(model, parent); });
    menu->addSeparator();
    menu->addAction("Use a whisper.cpp Model for Voice Messages…", menu, [parent] {
        // An empty choice (Cancel) goes back to the built-in engine.
        const QString file = QFileDialog::getOpenFileName(parent, "Choose a whisper.cpp Model",
                                                          QString(), "whisper.cpp models (*.bin)");
        QSettings().setValue("analysis/whisperModel", file);
    });
    QObject::connect(menu, &QMenu::aboutToShow, menu, [read, count, &model] {
        read->setEnabled(!model.jobs().isRunning());
        count->setText(pendingCountText(model.transcript().messages(), AnalysisStore::load()));
    });
    return menu;
}

}  // namespace bc::app
