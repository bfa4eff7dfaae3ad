#include "export/PageExporter.h"

#include <cairo-pdf.h>

// qpdf's smart-pointer compatibility layer is not used here; this silences its notice.
#define POINTERHOLDER_TRANSITION 4
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>

#include <cmath>

#include "export/pages/Document.h"
#include "export/pages/LayoutProgress.h"
#include "model/MessageNotes.h"
#include "support/DateFormat.h"
#include "support/Files.h"
#include "support/Image.h"

namespace bc {

namespace fs = std::filesystem;

namespace {

constexpr int pageQuality = 90;

struct CairoDeleter {
    void operator()(cairo_t* cr) const { cairo_destroy(cr); }
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
using Context = std::unique_ptr<cairo_t, CairoDeleter>;
using Surface = std::unique_ptr<cairo_surface_t, CairoDeleter>;

std::string cairoError(cairo_status_t status) {
    return cairo_status_to_string(status);
}

void redactValues(std::map<int64_t, std::string>& texts, const Redactor& redactor) {
    for (auto& entry : texts) entry.second = redactor.apply(entry.second);
}

// Pages that a reader of the finished file can open; 0 when it cannot be read at all.
size_t readablePages(const fs::path& file) {
    try {
        QPDF pdf;
        pdf.setSuppressWarnings(true);
        pdf.processFile(file.c_str());
        return QPDFPageDocumentHelper(pdf).getAllPages().size();
    } catch (const std::exception&) {
        return 0;
    }
}

// Removes a partly written file or folder unless it was moved into place.
class PendingOutput {
public:
    explicit PendingOutput(fs::path path) : path_(std::move(path)) {}
    ~PendingOutput() {
        if (!path_.empty()) {
            std::error_code ignored;
            fs::remove_all(path_, ignored);
        }
    }
    PendingOutput(const PendingOutput&) = delete;
    PendingOutput& operator=(const PendingOutput&) = delete;
    const fs::path& path() const { return path_; }
    void moveTo(const fs::path& destination) {
        std::error_code error;
        fs::rename(path_, destination, error);
        if (error)
            throw Error("Couldn't save " + destination.filename().string() + ": " +
                        error.message());
        path_.clear();
    }

private:
    fs::path path_;
};

void report(const ProgressFn& progress, const char* action, size_t page, size_t total) {
    if (progress)
        progress(std::string(action) + pages::grouped(page + 1) + " of " + pages::grouped(total));
}

// "page-07.jpg": numbers padded to the width of the last, so names sort in page order.
std::string pageFileName(size_t page, size_t total) {
    std::string number = std::to_string(page + 1);
    const size_t width = std::to_string(total).size();
    return "page-" + std::string(width - std::min(width, number.size()), '0') + number + ".jpg";
}

}  // namespace

struct PageExporter::Impl {
    std::vector<Message> messages;
    std::unordered_map<std::string, Message> originals;
    Header header;
    Paper paper;
    NameFn nameFor;
    const CancelFlag& cancel;
    Options options;
    Date renderedAt;
    std::string sourceLabel;

    // Measuring a long conversation takes a while before the first page can be drawn.
    pages::Document layout(const ProgressFn& progress) const {
        if (progress) progress(pages::LayoutProgress::starting);
        return pages::Document({messages, originals, header, options, nameFor, pointSize(paper),
                                sourceLabel, renderedAt},
                               cancel, progress);
    }

    // A redacted exhibit must not name a redacted person anywhere on its pages: not in a sender
    // line, the header, a note, a label, the footer or the certificate page.
    void redactPrintedTexts() {
        const Redactor& redactor = options.redactor;
        for (Message& message : messages) message = message.redacted(redactor);
        header.title = redactor.apply(header.title);
        for (std::string& participant : header.participants)
            participant = redactor.apply(participant);
        header.rangeDescription = redactor.apply(header.rangeDescription);
        sourceLabel = redactor.apply(sourceLabel);
        if (options.exhibitLabel) options.exhibitLabel = redactor.apply(*options.exhibitLabel);
        if (options.certificate) options.certificate = redactor.apply(*options.certificate);
        redactValues(options.notes, redactor);
        redactValues(options.chatLabels, redactor);
        for (auto& entry : options.machineText)
            entry.second.text = redactor.apply(entry.second.text);
        nameFor = [names = std::move(nameFor), redactor](const std::string& handle, bool isFromMe) {
            return redactor.apply(names ? names(handle, isFromMe) : isFromMe ? "Me" : handle);
        };
    }

    static Result resultOf(const pages::Document& document) {
        const size_t pages = document.pageCount();
        return {static_cast<int>(pages), document.bates(0), document.bates(pages - 1)};
    }
};

PageExporter::PageExporter(std::vector<Message> messages,
                           std::unordered_map<std::string, Message> originals, Header header,
                           Paper paper, NameFn nameFor, const CancelFlag& cancel, Options options,
                           Date renderedAt, std::string sourceLabel)
    : impl_(new Impl{std::move(messages), std::move(originals), std::move(header), paper,
                     std::move(nameFor), cancel, std::move(options), renderedAt,
                     std::move(sourceLabel)}) {
    notes::putInDateOrder(impl_->messages);
    if (impl_->options.redactor.isActive()) impl_->redactPrintedTexts();
}

PageExporter::~PageExporter() = default;

std::string_view PageExporter::rawValue(Paper paper) {
    return paper == Paper::letter ? "letter" : "a4";
}

std::optional<PageExporter::Paper> PageExporter::paperNamed(std::string_view raw) {
    for (Paper paper : {Paper::letter, Paper::a4})
        if (rawValue(paper) == raw) return paper;
    return std::nullopt;
}

std::string_view PageExporter::displayName(Paper paper) {
    return paper == Paper::letter ? "US Letter" : "A4";
}

PageExporter::Size PageExporter::pointSize(Paper paper) {
    return paper == Paper::letter ? Size{612, 792} : Size{595, 842};
}

PageExporter::Size PageExporter::pixelSize(Paper paper, double dpi) {
    const Size points = pointSize(paper);
    return {std::round(points.width * dpi / 72), std::round(points.height * dpi / 72)};
}

std::string PageExporter::batesNumber(const std::string& prefix, int64_t start, int digits,
                                      int pageIndex) {
    const std::string number = std::to_string(start + pageIndex);
    const size_t width = static_cast<size_t>(std::max(digits, 0));
    return prefix + std::string(width - std::min(width, number.size()), '0') + number;
}

PageExporter::Result PageExporter::writePDF(const fs::path& file,
                                            const ProgressFn& progress) const {
    pages::Document document = impl_->layout(progress);
    const size_t total = document.pageCount();
    const Size page = pointSize(impl_->paper);
    PendingOutput output(files::temporarySibling(file));
    {
        const Surface surface(
            cairo_pdf_surface_create(output.path().c_str(), page.width, page.height));
        cairo_pdf_surface_set_metadata(surface.get(), CAIRO_PDF_METADATA_CREATOR, "Brindlecourt");
        cairo_pdf_surface_set_metadata(surface.get(), CAIRO_PDF_METADATA_TITLE,
                                       impl_->header.title.c_str());
        // A fixed date (the rendering time) keeps identical exports byte-identical.
        cairo_pdf_surface_set_metadata(surface.get(), CAIRO_PDF_METADATA_CREATE_DATE,
                                       dates::iso8601(impl_->renderedAt).c_str());
        const Context cr(cairo_create(surface.get()));
        pages::ColourGlyphs colourGlyphs;
        for (size_t i = 0; i < total; ++i) {
            report(progress, "Drawing page ", i, total);
            impl_->cancel.check();
            document.drawPage({cr.get(), &colourGlyphs, true}, i);
            cairo_show_page(cr.get());
        }
        cairo_surface_finish(surface.get());
        if (const auto status = cairo_surface_status(surface.get()); status != CAIRO_STATUS_SUCCESS)
            throw Error("Couldn't write the PDF " + file.filename().string() + ": " +
                        cairoError(status));
    }
    if (const size_t readable = readablePages(output.path()); readable < total)
        throw Error("The PDF was not written completely (" + std::to_string(readable) +
                    " pages readable). Check free disk space.");
    output.moveTo(file);
    return Impl::resultOf(document);
}

PageExporter::Result PageExporter::writeJPEGs(const fs::path& folder, double dpi,
                                              const ProgressFn& progress) const {
    pages::Document document = impl_->layout(progress);
    const size_t total = document.pageCount();
    const Size pixels = pixelSize(impl_->paper, dpi);
    PendingOutput output(files::temporarySibling(folder));
    std::error_code error;
    fs::create_directories(output.path(), error);
    if (error)
        throw Error("Couldn't create the folder " + folder.filename().string() + ": " +
                    error.message());
    image::Bitmap bitmap{.width = static_cast<int>(pixels.width),
                         .height = static_cast<int>(pixels.height)};
    bitmap.pixels.resize(static_cast<size_t>(bitmap.width) * bitmap.height);
    for (size_t i = 0; i < total; ++i) {
        report(progress, "Rendering image ", i, total);
        impl_->cancel.check();
        {
            const Surface surface(cairo_image_surface_create_for_data(
                reinterpret_cast<unsigned char*>(bitmap.pixels.data()), CAIRO_FORMAT_ARGB32,
                bitmap.width, bitmap.height, bitmap.width * 4));
            const Context cr(cairo_create(surface.get()));
            cairo_scale(cr.get(), dpi / 72, dpi / 72);
            document.drawPage({cr.get(), nullptr, false}, i);
            cairo_surface_flush(surface.get());
            if (const auto status = cairo_status(cr.get()); status != CAIRO_STATUS_SUCCESS)
                throw Error("Couldn't draw page " + std::to_string(i + 1) + ": " +
                            cairoError(status));
        }
        files::writeFileAtomically(output.path() / pageFileName(i, total),
                                   image::encodeJPEG(bitmap, pageQuality, dpi));
    }
    output.moveTo(folder);
    return Impl::resultOf(document);
}

}  // namespace bc
