#include "cli/PageArguments.h"

#include <charconv>

#include "custody/CustodyLog.h"
#include "evidence/EvidenceStore.h"

namespace bc::cli {

namespace {

template <class Number>
bool readNumber(const Arguments& arguments, const std::string& option, Number minimum, Number& into,
                std::ostream& err) {
    const auto text = arguments.value(option);
    if (!text) return true;
    Number number{};
    const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), number);
    if (error == std::errc() && end == text->data() + text->size() && number >= minimum) {
        into = number;
        return true;
    }
    err << "error: " << option << " must be a whole number of at least " << minimum << ", got \""
        << *text << "\"\n";
    return false;
}

bool readPaper(const Arguments& arguments, ExportSettings& settings, std::ostream& err) {
    if (const auto text = arguments.value("--paper")) {
        const auto paper = PageExporter::paperNamed(*text);
        if (!paper) {
            err << "error: --paper must be letter or a4, got \"" << *text << "\"\n";
            return false;
        }
        settings.paper = *paper;
    }
    if (const auto text = arguments.value("--dpi")) {
        if (*text != "144" && *text != "300") {
            err << "error: --dpi must be 144 or 300, got \"" << *text << "\"\n";
            return false;
        }
        settings.dpi = *text == "144" ? ExportSettings::standardDPI : ExportSettings::printDPI;
    }
    return true;
}

// Every value given after each occurrence of `name`.
std::vector<std::string> valuesOf(const Arguments& arguments, const std::string& name) {
    std::vector<std::string> values;
    const auto& items = arguments.items();
    for (size_t i = 0; i + 1 < items.size(); ++i)
        if (items[i] == name) values.push_back(items[++i]);
    return values;
}

}  // namespace

std::optional<PageArguments> PageArguments::parse(const Arguments& arguments, std::ostream& err) {
    PageArguments pages;
    pages.batesPrefix = arguments.value("--bates-prefix").value_or("");
    int64_t start = 0;
    if (!readPaper(arguments, pages.settings, err) ||
        !readNumber(arguments, "--bates-start", int64_t{0}, start, err) ||
        !readNumber(arguments, "--bates-digits", 1, pages.batesDigits, err))
        return std::nullopt;
    if (arguments.value("--bates-start")) pages.batesStart = start;

    pages.isExhibit = arguments.contains("--exhibit");
    ExhibitRequest& request = pages.request;
    if (!readNumber(arguments, "--context-before", 0, request.contextBefore, err) ||
        !readNumber(arguments, "--context-after", 0, request.contextAfter, err))
        return std::nullopt;
    request.label = arguments.value("--label").value_or(request.label);
    for (const std::string& term : valuesOf(arguments, "--redact"))
        request.redactionTerms += term + "\n";
    request.redactContactDetails = arguments.contains("--redact-contact-details");
    request.includeNotes = arguments.contains("--include-notes");
    request.includeCertificate = !arguments.contains("--no-certificate");
    request.settings = pages.settings;
    return pages;
}

int64_t PageArguments::firstBatesNumber() const {
    if (batesStart) return *batesStart;
    return batesPrefix.empty() ? 1 : exhibit::nextBatesNumber(batesPrefix, CustodyLog::readAll());
}

ExportJob PageArguments::apply(ExportJob whole) const {
    if (isExhibit) {
        ExhibitRequest asked = request;
        asked.format = whole.format;
        asked.batesPrefix = batesPrefix;
        asked.batesStart = firstBatesNumber();
        asked.batesDigits = batesDigits;
        const EvidenceFlagMap flags = EvidenceStore::load();
        asked.flaggedCount = exhibit::flaggedCount(whole.messages, flags);
        return exhibit::makeJob(asked, std::move(whole), flags);
    }
    whole.settings = settings;
    if (!batesPrefix.empty()) {
        whole.pageOptions.batesPrefix = batesPrefix;
        whole.pageOptions.batesStart = firstBatesNumber();
        whole.pageOptions.batesDigits = batesDigits;
    }
    return whole;
}

}  // namespace bc::cli
