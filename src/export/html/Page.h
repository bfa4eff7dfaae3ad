#pragma once

#include <iosfwd>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "export/ManifestCsv.h"
#include "export/html/ArchiveOptions.h"
#include "export/html/Attachments.h"

namespace bc::html {

// Everything the page shows, gathered by the exporter.
struct PageContent {
    const ArchiveOptions& options;
    const manifest::NameFor& nameFor;
    const manifest::MachineText& machineText;
    std::span<const Message> context;             // the whole transcript, for reply targets
    const std::vector<const Message*>& rows;      // the range, in page order
    const std::vector<CopiedAttachment>& copies;  // one per visible attachment, in page order
};

// Writes the complete page to `out`: the embedded template filled with TITLE, SUBTITLE, ABOUT,
// BODY and DAYS, the body one day at a time.
void writePage(const PageContent& content, std::ostream& out);

}  // namespace bc::html
