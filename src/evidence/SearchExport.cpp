#include "evidence/SearchExport.h"

#include <set>

#include "support/DateFormat.h"

namespace bc::searchExport {

namespace {

std::string day(Date date) {
    return dates::formatStyled(date, dates::Style::long_, dates::Style::none);
}

}  // namespace

std::string describe(const SearchQuery& query) {
    std::vector<std::string> parts;
    const std::string text = query.trimmedText();
    parts.emplace_back(text.empty() ? "any text" : "\u201C" + text + "\u201D");
    if (query.chatID) parts.emplace_back("one conversation and its related chats");
    if (query.from || query.to)
        parts.emplace_back((query.from ? day(*query.from) : "the first message") + " \u2013 " +
                           (query.to ? day(*query.to) : "the last message") + " (inclusive)");
    if (query.sender == SearchQuery::Sender::me) parts.emplace_back("from me");
    if (query.sender == SearchQuery::Sender::others) parts.emplace_back("from others");
    if (query.attachmentsOnly) parts.emplace_back("with attachments");
    if (query.deletedOnly) parts.emplace_back("deleted only");
    if (query.includeMachineText) parts.emplace_back("machine-read text included");
    std::string joined;
    for (const auto& part : parts) joined += (joined.empty() ? "" : " \u00b7 ") + part;
    return joined;
}

ExportJob makeJob(const SearchQuery& query, std::vector<Message> hits, RangeExportFormat format,
                  std::string sourceDescription,
                  const std::function<std::string(int64_t chatID)>& chatTitle) {
    const std::string described = describe(query);
    std::set<int64_t> chats;
    std::set<std::string> others;
    for (const auto& hit : hits) {
        chats.insert(hit.chatID);
        if (!hit.isFromMe && !hit.sender.empty()) others.insert(hit.sender);
    }
    ExportJob job{.format = format,
                  .title = "Search results (" + described + ")",
                  .participants = {others.begin(), others.end()},
                  .chatIDs = {chats.begin(), chats.end()},
                  .rangeDescription = std::to_string(hits.size()) + " search results",
                  .recordOptions = {{"Search", described}},
                  .singleConversation = chats.size() <= 1,
                  .renderedAt = Clock::now(),
                  .sourceDescription = std::move(sourceDescription)};
    if (!job.singleConversation)
        for (const auto& hit : hits) job.pageOptions.chatLabels[hit.id] = chatTitle(hit.chatID);
    job.transcript.messages = hits;
    job.messages = std::move(hits);
    return job;
}

}  // namespace bc::searchExport
