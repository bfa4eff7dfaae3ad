#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "export/ManifestCsv.h"
#include "export/Redactor.h"
#include "model/Message.h"
#include "support/CancelFlag.h"
#include "support/Date.h"

namespace bc {

// Fixed-size printed pages of a conversation: one PDF file, or one JPG per page.
// Layout runs once to learn the page count, then every page is drawn with the total in its footer.
class PageExporter {
public:
    enum class Paper { letter, a4 };
    struct Size {
        double width = 0;
        double height = 0;
    };
    static std::string_view rawValue(Paper paper);
    static std::optional<Paper> paperNamed(std::string_view raw);
    static std::string_view displayName(Paper paper);
    // In points (1/72 inch).
    static Size pointSize(Paper paper);
    // Pixel size of a page image at `dpi`.
    static Size pixelSize(Paper paper, double dpi);

    struct Header {
        std::string title;
        std::vector<std::string> participants;
        std::string rangeDescription;
    };

    // Display name for a sender: (handle, is-from-me).
    using NameFn = std::function<std::string(const std::string& handle, bool isFromMe)>;

    struct Options {
        std::optional<std::string> exhibitLabel;
        std::optional<std::string> batesPrefix;
        int64_t batesStart = 1;
        int batesDigits = 6;
        // When active, every text the pages print passes through it; photos are never redacted.
        Redactor redactor;
        std::set<int64_t> highlighted;
        std::map<int64_t, std::string> notes;
        std::map<int64_t, int64_t> omittedBefore;
        std::map<int64_t, int64_t> omittedCallsBefore;
        std::map<int64_t, std::string> chatLabels;
        // Keyed by attachment row id.
        manifest::MachineText machineText;
        // The embedded certificate's text; when set it is printed on a page of its own at the end.
        std::optional<std::string> certificate;
    };

    struct Result {
        int pages = 0;
        std::optional<std::string> batesFirst;
        std::optional<std::string> batesLast;
    };

    static constexpr double margin = 40;

    PageExporter(std::vector<Message> messages, std::unordered_map<std::string, Message> originals,
                 Header header, Paper paper, NameFn nameFor, const CancelFlag& cancel,
                 Options options, Date renderedAt, std::string sourceLabel);
    ~PageExporter();
    PageExporter(const PageExporter&) = delete;
    PageExporter& operator=(const PageExporter&) = delete;

    // Writes the file whole or not at all; the written file is read back and its pages counted.
    Result writePDF(const std::filesystem::path& file, const ProgressFn& progress = {}) const;
    // Writes "page-" + n + ".jpg" for every page into `folder`, which must not exist yet or be
    // empty; the folder appears only when every page is in it.
    Result writeJPEGs(const std::filesystem::path& folder, double dpi,
                      const ProgressFn& progress = {}) const;

    // Prefix, zero padding up to `digits`, then start + pageIndex; no separator.
    static std::string batesNumber(const std::string& prefix, int64_t start, int digits,
                                   int pageIndex);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace bc
