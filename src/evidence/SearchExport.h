#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "evidence/Search.h"
#include "export/ExportJob.h"

namespace bc::searchExport {

// The query as the title, certificate and custody record name it: the text in quotes, then each
// filter that narrows it, e.g. "“deposit” · from me · with attachments".
std::string describe(const SearchQuery& query);

// The hits as one document of their own: "Search results (" + the query described + ")". Hits
// from several conversations each name theirs.
ExportJob makeJob(const SearchQuery& query, std::vector<Message> hits, RangeExportFormat format,
                  std::string sourceDescription,
                  const std::function<std::string(int64_t chatID)>& chatTitle);

}  // namespace bc::searchExport
