#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "export/HTMLExporter.h"
#include "export/html/Attachments.h"

namespace bc::html {

// Everything the page shows, gathered by the exporter.
struct PageContent {
    const HTMLExporter::Options& options;
    const manifest::NameFor& nameFor;
    const manifest::MachineText& machineText;
    const std::vector<Message>& context;          // the whole transcript, for reply targets
    const std::vector<const Message*>& rows;      // the range, in page order
    const std::vector<CopiedAttachment>& copies;  // one per visible attachment, in page order
};

// The complete page: the embedded template filled with TITLE, SUBTITLE, ABOUT, BODY and DAYS.
std::string renderPage(const PageContent& content);

}  // namespace bc::html
