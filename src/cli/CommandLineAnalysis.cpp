#include "cli/CommandLineAnalysis.h"

#include "cli/CommandLineExport.h"
#include "cli/DatabaseChoice.h"
#include "evidence/AttachmentAnalysis.h"

namespace bc::cli {

int CommandLineAnalysis::run() {
    CommandLineExport parsing(arguments_, out_, err_, cancel_);
    const auto list = arguments_.value("--chats");
    if (!list) {
        err_ << "error: --analyze needs --chats with the conversations to read\n";
        return 2;
    }
    const auto ids = parsing.chatIDs(*list);
    if (!ids) return 2;
    if (const auto problem = ChosenSource::argumentProblem(arguments_)) {
        err_ << "error: " << *problem << "\n";
        return 2;
    }
    try {
        const auto chosen = ChosenSource::open(arguments_);
        auto texts = AnalysisStore::load();
        if (const auto problem = AnalysisStore::loadError().get()) err_ << *problem << "\n";
        const auto pending = pendingAnalysis(chosen.source->fetchTranscript(*ids).messages, texts);
        if (pending.empty()) {
            out_ << nothingToAnalyse << "\n";
            return 0;
        }
        const auto model = arguments_.value("--whisper-model");
        Analyzer analyzer(chooseSpeechEngine(model ? std::optional<std::filesystem::path>(*model)
                                                   : std::nullopt));
        const auto tally =
            analyzeAttachments(pending, analyzer, texts, AnalysisStore::save, cancel_,
                               [this](const std::string& line) { err_ << line << "\n"; });
        out_ << analysisSummary(tally) << "\n";
        return tally.cancelled ? 1 : 0;
    } catch (const DBError& e) {
        return parsing.fail("Couldn't read the conversations: " + e.text());
    } catch (const std::exception& e) {
        return parsing.fail(e.what());
    }
}

}  // namespace bc::cli
