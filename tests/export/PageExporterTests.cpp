#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "PagesTesting.h"
#include "sources/CallHistory.h"
#include "support/Files.h"
#include "support/Machine.h"
#include "testing/Testing.h"

namespace bc {
namespace {

using testing::makeExporter;
using testing::PagesInput;
using testing::pdfText;
using testing::textMessage;

Message everyFeature(const std::filesystem::path& dir) {
    Message m = textMessage(42, "Meet me at the usual place tonight", 5);
    m.isEdited = true;
    m.editHistory = {{0, testing::pagesTestDate(3), "first wording"},
                     {0, testing::pagesTestDate(4), std::nullopt}};
    m.isUnsent = true;
    m.errorCode = 22;
    m.effect = "Slam";
    m.recoveredParts = {{1, testing::pagesTestDate(7), "deleted words"}};
    m.replyToGUID = "guid-7";
    m.reactions = {{"❤️", true, ""}};
    testing::writePhoto(dir / "photo.jpg", 0xFF2080E0);
    testing::writeText(dir / "broken.jpg", "not a photo at all");
    m.attachments = {{.id = 501, .path = (dir / "photo.jpg").string(), .mimeType = "image/jpeg"},
                     {.id = 502, .path = (dir / "gone.mov").string(), .name = "gone.mov"},
                     {.id = 503,
                      .path = (dir / "broken.jpg").string(),
                      .mimeType = "image/jpeg",
                      .name = "broken.jpg"},
                     {.id = 504, .path = (dir / "secret.jpg").string(), .isHidden = true}};
    return m;
}

TEST(PageExporterContent, PrintsEveryPartOfAMessage) {
    testing::TempDir dir;
    Message silent = textMessage(43, "", 6);
    silent.replyToGUID = "guid-unknown";
    Message editedBare = textMessage(44, "changed", 7, true);
    editedBare.isEdited = true;
    PageExporter::Options options;
    options.highlighted = {42};
    options.notes = {{42, "ask counsel"}};
    options.chatLabels = {{42, "Family group"}};
    options.machineText = {{501, {.text = "STOP SIGN"}}};
    const Message original = textMessage(7, "Original question here", -30);
    CancelFlag cancel;
    const Message call = CallHistory::row(
        {.recordID = 9, .date = testing::pagesTestDate(8), .answered = false, .callType = 1}, 7);
    std::vector<Message> messages{everyFeature(dir.path()), silent, editedBare, call};
    const std::vector<std::string> words{"Ελληνικά", "Свидетель", "שלום", "مرحبا",
                                         "नमस्ते",     "証拠",      "증거"};
    for (size_t i = 0; i < words.size(); ++i)
        messages.push_back(textMessage(static_cast<int64_t>(i + 100), "word " + words[i], 20 + i));
    makeExporter({.messages = messages, .originals = {{"guid-7", original}}, .options = options},
                 cancel)
        ->writePDF(dir / "out.pdf");
    const std::string text = pdfText(dir / "out.pdf");
    for (const std::string& expected : std::vector<std::string>{
             "Dana (+15551234567) 2024-03-05 09:12:09 EST #42",
             "In conversation: Family group",
             "Meet me at the usual place tonight",
             "photo.jpg",
             "Text in image (machine-generated, may contain errors): STOP SIGN",
             "gone.mov: not stored on " + std::string(thisMachine),
             "Attachment: broken.jpg",
             "Flagged as evidence",
             "Note: ask counsel",
             "Edited",
             "Original (2024-03-05 09:10:09 EST): first wording",
             "Edit 1 (2024-03-05 09:11:09 EST): (unreadable)",
             "This message was unsent.",
             "Not delivered (error 22)",
             "Slam effect",
             "Recovered deleted part 2 (deleted 2024-03-05 09:14:09 EST): deleted words",
             "Reply to Dana (+15551234567): “Original question here”",
             "Reactions: ❤️ Me",
             "(attachment or no text)",
             "Reply to a message not found in these conversations",
             "Edited. Earlier versions were not stored by Messages",
             "Me 2024-03-05 09:14:09 EST #44",
             "2024-03-05 09:15:09 EST call record 9"})
        EXPECT_NE(text.find(expected), std::string::npos) << expected << "\n" << text;
    for (const auto& word : words) EXPECT_NE(text.find(word), std::string::npos) << word;
    EXPECT_EQ(text.find("#0"), std::string::npos) << "a call is not a message record";
    EXPECT_EQ(text.find("secret.jpg"), std::string::npos);
    EXPECT_EQ(text.find("Contains redactions"), std::string::npos);
    const auto images = testing::pdfImages(dir / "out.pdf");
    EXPECT_TRUE(std::any_of(images.begin(), images.end(), [](const auto& image) {
        return image.width == 64 && image.height == 48;
    })) << "the photo preview is embedded";
}

std::vector<Message> conversation(int count, int linesEach = 1) {
    std::vector<Message> messages;
    for (int i = 1; i <= count; ++i) {
        std::string text = "Message number " + std::to_string(i);
        for (int line = 1; line < linesEach; ++line) text += "\nline " + std::to_string(line);
        messages.push_back(textMessage(i, text, i, i % 3 == 0));
    }
    return messages;
}

size_t countOf(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

TEST(PageExporterPaper, NamesReadBackAndUnknownOnesAreRefused) {
    using P = PageExporter;
    EXPECT_EQ(P::displayName(P::Paper::letter), "US Letter");
    EXPECT_EQ(P::paperNamed(P::rawValue(P::Paper::letter)), P::Paper::letter);
    EXPECT_FALSE(P::paperNamed("legal"));
}

TEST(PageExporterBates, NumbersArePrintedOnEveryPageAndTheCertificateComesLast) {
    EXPECT_EQ(PageExporter::batesNumber("X", 1234567, 6, 0), "X1234567");
    EXPECT_EQ(PageExporter::batesNumber("X", 99, 2, 1), "X100");

    testing::TempDir dir;
    CancelFlag cancel;
    PageExporter::Options options;
    options.batesPrefix = "SMITH";
    options.batesStart = 41;
    options.exhibitLabel = "Exhibit A";
    options.certificate =
        "BRINDLECOURT EXPORT CERTIFICATE\n===========================\n\nRecord ID:        ABC\n";
    const auto result = makeExporter({.messages = conversation(60), .options = options}, cancel)
                            ->writePDF(dir / "out.pdf");
    ASSERT_GE(result.pages, 2);
    EXPECT_EQ(result.batesFirst, "SMITH000041");
    EXPECT_EQ(result.batesLast, PageExporter::batesNumber("SMITH", 41, 6, result.pages - 1));
    for (int page = 1; page <= result.pages; ++page) {
        const std::string text = pdfText(dir / "out.pdf", page);
        EXPECT_NE(text.find(PageExporter::batesNumber("SMITH", 41, 6, page - 1)),
                  std::string::npos);
        EXPECT_NE(text.find("Exhibit A"), std::string::npos);
    }
    // The certificate comes last, on a page of its own.
    EXPECT_EQ(pdfText(dir / "out.pdf", result.pages - 1).find("CERTIFICATE"), std::string::npos);
    const std::string last = pdfText(dir / "out.pdf", result.pages);
    EXPECT_NE(last.find("BRINDLECOURT EXPORT CERTIFICATE"), std::string::npos) << last;
    EXPECT_NE(last.find("Record ID:"), std::string::npos) << last;
    EXPECT_NE(last.find("ABC"), std::string::npos) << last;

    options.batesPrefix = "";
    const auto plain = makeExporter({.messages = conversation(3), .options = options}, cancel)
                           ->writePDF(dir / "plain.pdf");
    EXPECT_FALSE(plain.batesFirst);
    EXPECT_FALSE(plain.batesLast);
}

TEST(PageExporterPDF, PageCountMetadataFootersAndProgress) {
    testing::TempDir dir;
    CancelFlag cancel;
    std::vector<std::string> progress;
    const auto result =
        makeExporter({.messages = conversation(200)}, cancel)
            ->writePDF(dir / "out.pdf", [&](const std::string& step) { progress.push_back(step); });
    ASSERT_GT(result.pages, 3);
    const std::string pages = std::to_string(result.pages);
    const std::string info = testing::pdfInfo(dir / "out.pdf");
    const auto field = [&](const std::string& key) {
        const size_t at = info.find(key + ":");
        if (at == std::string::npos) return std::string();
        const size_t start = info.find_first_not_of(' ', at + key.size() + 1);
        return info.substr(start, info.find('\n', start) - start);
    };
    EXPECT_EQ(field("Pages"), pages);
    EXPECT_EQ(field("Creator"), "Brindlecourt");
    EXPECT_EQ(field("Title"), "Chat with Dana");
    EXPECT_EQ(field("CreationDate"), "Wed Mar  6 14:07:09 2024 UTC");
    // Layout tells each page filled against a growing estimate, then every page is drawn.
    ASSERT_EQ(progress.size(), 2 * static_cast<size_t>(result.pages));
    EXPECT_EQ(progress[0], "Laying out pages…");
    for (size_t filled = 1; filled < static_cast<size_t>(result.pages); ++filled) {
        const std::string& line = progress[filled];
        const std::string prefix = "Laying out pages… " + std::to_string(filled) + " of about ";
        ASSERT_TRUE(line.starts_with(prefix)) << line;
        EXPECT_GT(std::stoul(line.substr(prefix.size())), filled) << line;
    }
    const std::string lastEstimate = progress[result.pages - 1];
    EXPECT_LE(std::abs(std::stoi(lastEstimate.substr(lastEstimate.rfind(' ') + 1)) - result.pages),
              1)
        << lastEstimate;
    EXPECT_EQ(progress[result.pages], "Drawing page 1 of " + pages);
    EXPECT_EQ(progress.back(), "Drawing page " + pages + " of " + pages);
    EXPECT_NE(pdfText(dir / "out.pdf", 2).find("Page 2 of " + pages + "."), std::string::npos);
    const std::string all = pdfText(dir / "out.pdf");
    EXPECT_EQ(countOf(all, "Message number "), 200u) << "every message once, none cut off";
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1)
        << "nothing but the PDF is left behind";
}

TEST(PageExporterPDF, IdenticalInputGivesIdenticalBytes) {
    testing::TempDir dir;
    testing::writePhoto(dir / "photo.jpg", 0xFF30A040);
    auto messages = conversation(40);
    messages[3].text += " 😀🇫🇷 and مرحبا";
    messages[5].attachments = {{.id = 9, .path = (dir / "photo.jpg").string()}};
    CancelFlag cancel;
    for (const char* name : {"a.pdf", "b.pdf"})
        makeExporter({.messages = messages}, cancel)->writePDF(dir / name);
    const std::string first = files::readFile(dir / "a.pdf");
    EXPECT_GT(first.size(), 1000u);
    EXPECT_EQ(first, files::readFile(dir / "b.pdf"));
}

// Cancels `cancel` as the second page is reached.
ProgressFn cancelAtPageTwo(CancelFlag& cancel) {
    return [&cancel](const std::string& step) {
        if (step.find(" 2 of ") != std::string::npos) cancel.cancel();
    };
}

TEST(PageExporterCancel, StopsBeforeAPageAndLeavesNothing) {
    testing::TempDir dir;
    CancelFlag early, pdf, jpeg;
    early.cancel();
    EXPECT_THROW(makeExporter({.messages = conversation(5)}, early)->writePDF(dir / "a.pdf"),
                 CancelledError);
    EXPECT_THROW(makeExporter({.messages = conversation(120)}, pdf)
                     ->writePDF(dir / "b.pdf", cancelAtPageTwo(pdf)),
                 CancelledError);
    EXPECT_THROW(makeExporter({.messages = conversation(120)}, jpeg)
                     ->writeJPEGs(dir / "pages", 72, cancelAtPageTwo(jpeg)),
                 CancelledError);
    EXPECT_TRUE(std::filesystem::is_empty(dir.path())) << "not even the first page is left";
}

TEST(PageExporterJPEG, PagesHaveThePaperPixelSizeAndNumberedNames) {
    testing::TempDir dir;
    CancelFlag cancel;
    std::vector<std::string> progress;
    const auto result =
        makeExporter({.messages = conversation(30), .paper = PageExporter::Paper::a4}, cancel)
            ->writeJPEGs(dir / "pages", 144,
                         [&](const std::string& step) { progress.push_back(step); });
    ASSERT_GE(result.pages, 2);
    ASSERT_LT(result.pages, 10);
    // After the layout's start and its one line per page filled.
    EXPECT_EQ(progress.at(result.pages), "Rendering image 1 of " + std::to_string(result.pages));
    for (int page = 1; page <= result.pages; ++page) {
        const auto file = dir / "pages" / ("page-" + std::to_string(page) + ".jpg");
        const auto bitmap = image::load(file);
        EXPECT_EQ(bitmap.width, 1190);
        EXPECT_EQ(bitmap.height, 1684);
        // The JFIF header records 144 dots per inch, so the page prints at its paper size.
        const std::string jpeg = files::readFile(file);
        ASSERT_GE(jpeg.size(), 18u);
        EXPECT_EQ(jpeg.substr(6, 5), std::string("JFIF\0", 5));
        EXPECT_EQ(jpeg.substr(13, 5), std::string("\x01\x00\x90\x00\x90", 5));
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir / "pages"), {}), result.pages);

    const auto many =
        makeExporter({.messages = conversation(200)}, cancel)->writeJPEGs(dir / "many", 36);
    ASSERT_GE(many.pages, 10);
    EXPECT_TRUE(std::filesystem::exists(dir / "many" / "page-01.jpg"))
        << "names sort in page order";
    EXPECT_TRUE(
        std::filesystem::exists(dir / "many" / ("page-" + std::to_string(many.pages) + ".jpg")));
}

// Colour pixels of a page, as a box in points.
struct Box {
    double left = 1e9, top = 1e9, right = -1, bottom = -1;
    bool empty() const { return right < 0; }
};

Box colourBox(const image::Bitmap& page, double pixelsPerPoint) {
    Box box;
    for (int y = 0; y < page.height; ++y)
        for (int x = 0; x < page.width; ++x)
            if (testing::isColourful(page.pixels[static_cast<size_t>(y) * page.width + x])) {
                box.left = std::min(box.left, x / pixelsPerPoint);
                box.right = std::max(box.right, (x + 1) / pixelsPerPoint);
                box.top = std::min(box.top, y / pixelsPerPoint);
                box.bottom = std::max(box.bottom, (y + 1) / pixelsPerPoint);
            }
    return box;
}

TEST(PageExporterEmoji, ColourGlyphsAreSharpAndWhereTheTextPutsThem) {
    testing::TempDir dir;
    CancelFlag cancel;
    const auto exporter =
        makeExporter({.messages = {textMessage(1, "Look 😀😀😀 there", 0, true)}}, cancel);
    exporter->writePDF(dir / "out.pdf");
    exporter->writeJPEGs(dir / "pages", 144);

    const auto images = testing::pdfImages(dir / "out.pdf");
    ASSERT_FALSE(images.empty());
    for (const auto& image : images) {
        EXPECT_GE(image.xppi, 300);
        EXPECT_GE(image.yppi, 300);
    }
    const auto words = testing::pdfWords(dir / "out.pdf");
    const auto word = [&](const std::string& text) {
        const auto found =
            std::find_if(words.begin(), words.end(), [&](const auto& w) { return w.text == text; });
        EXPECT_NE(found, words.end()) << text;
        return found == words.end() ? testing::PdfWord{} : *found;
    };
    const auto look = word("Look"), there = word("there");
    EXPECT_EQ(word("😀😀😀").page, 1) << "the emoji are searchable text too";
    for (const auto& [page, scale] :
         {std::pair{testing::pdfRaster(dir / "out.pdf", 100), 100 / 72.0},
          std::pair{image::load(dir / "pages" / "page-1.jpg"), 2.0}}) {
        const Box box = colourBox(page, scale);
        ASSERT_FALSE(box.empty());
        EXPECT_GT(box.left, look.xMax - 1);
        EXPECT_LT(box.right, there.xMin + 1);
        EXPECT_LT(box.top, look.yMax);
        EXPECT_GT(box.bottom, look.yMin);
        EXPECT_GT(box.right - box.left, 20) << "three emoji wide";
    }
}

TEST(PageExporterBadInput, LongWordsLongMessagesAndOddCharactersStayOnThePage) {
    testing::TempDir dir;
    CancelFlag cancel;
    auto messages = conversation(2);
    // Control and format characters, bad bytes, a NUL and glyphs no font has still print.
    messages.push_back(textMessage(6,
                                   std::string("alpha \u200B\u200D\u202E\u2066\uFEFF \xFF\xFE ") +
                                       std::string(1, '\0') +
                                       " \U00010600\U00010601 \uE000 \u0378 omega",
                                   6));
    messages.push_back(textMessage(3, std::string(4000, 'W'), 3));
    messages.push_back(textMessage(4, "see https://example.com/" + std::string(900, 'p'), 4));
    std::string longText;
    for (int line = 1; line <= 400; ++line) longText += "row" + std::to_string(line) + "\n";
    messages.push_back(textMessage(5, longText, 5));
    const auto result = makeExporter({.messages = messages}, cancel)->writePDF(dir / "out.pdf");
    EXPECT_GE(result.pages, 6);
    const auto words = testing::pdfWords(dir / "out.pdf");
    std::set<std::string> texts;
    for (const auto& word : words) {
        texts.insert(word.text);
        EXPECT_GE(word.xMin, PageExporter::margin - 0.5) << word.text;
        EXPECT_LE(word.xMax, 612 - PageExporter::margin + 0.5) << word.text;
        EXPECT_LE(word.yMax, 792 - PageExporter::margin + 0.5) << word.text;
    }
    for (int line = 1; line <= 400; ++line)
        EXPECT_TRUE(texts.contains("row" + std::to_string(line))) << line;
    EXPECT_TRUE(texts.contains("alpha") && texts.contains("omega"));
}

TEST(PageExporterRedaction, RedactsTextRepliesAndSaysSoInTheFooter) {
    testing::TempDir dir;
    CancelFlag cancel;
    Message reply = textMessage(2, "the secret is out", 1);
    reply.replyToGUID = "guid-1";
    reply.editHistory = {{0, testing::pagesTestDate(), "secret draft"}};
    reply.isEdited = true;
    PageExporter::Options options;
    options.redactor = Redactor({"secret"}, false);
    makeExporter({.messages = {textMessage(1, "a secret plan"), reply},
                  .originals = {{"guid-1", textMessage(1, "a secret plan")}},
                  .options = options},
                 cancel)
        ->writePDF(dir / "out.pdf");
    const std::string text = pdfText(dir / "out.pdf");
    EXPECT_EQ(text.find("secret"), std::string::npos) << text;
    EXPECT_EQ(countOf(text, "██████"), 4u) << text;
    EXPECT_NE(text.find("Contains redactions (█). Page 1 of 1."), std::string::npos) << text;
}

}  // namespace
}  // namespace bc
