#include <gtest/gtest.h>

#include <fstream>

#include "PagesTesting.h"
#include "support/Files.h"
#include "testing/Testing.h"

namespace bc {
namespace {

using testing::makeExporter;
using testing::pdfText;
using testing::textMessage;

TEST(PageExporterScripts, EveryScriptIsSearchableInThePDF) {
    testing::TempDir dir;
    const std::vector<std::string> words{
        "Courtroom",  "Ελληνικά", "Свидетель", "שלום",     "مرحبا",
        "नमस्ते",      "証拠",     "증거",      "Zeugenaussage"};
    std::vector<Message> messages;
    for (size_t i = 0; i < words.size(); ++i)
        messages.push_back(textMessage(static_cast<int64_t>(i + 1), "word " + words[i], i));
    CancelFlag cancel;
    makeExporter({.messages = messages}, cancel)->writePDF(dir / "out.pdf");
    const std::string text = pdfText(dir / "out.pdf");
    for (const auto& word : words) EXPECT_NE(text.find(word), std::string::npos) << word;
}

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
    m.attachments = {
        {.id = 501, .path = (dir / "photo.jpg").string(), .mimeType = "image/jpeg"},
        {.id = 502, .path = (dir / "gone.mov").string(), .name = "gone.mov"},
        {.id = 503, .path = (dir / "broken.jpg").string(), .mimeType = "image/jpeg",
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
    options.machineText = {{501, "STOP SIGN"}};
    const Message original = textMessage(7, "Original question here", -30);
    CancelFlag cancel;
    makeExporter({.messages = {everyFeature(dir.path()), silent, editedBare},
                  .originals = {{"guid-7", original}},
                  .options = options},
                 cancel)
        ->writePDF(dir / "out.pdf");
    const std::string text = pdfText(dir / "out.pdf");
    for (const char* expected :
         {"Dana (+15551234567) 2024-03-05 09:12:09 EST #42", "In conversation: Family group",
          "Meet me at the usual place tonight", "photo.jpg", "Machine-read text: STOP SIGN",
          "gone.mov: not stored on this Mac", "Attachment: broken.jpg", "Flagged as evidence",
          "Note: ask counsel", "Edited", "Original (2024-03-05 09:10:09 EST): first wording",
          "Edit 1 (2024-03-05 09:11:09 EST): (unreadable)", "This message was unsent.",
          "Not delivered (error 22)", "Slam effect",
          "Recovered deleted part 1 (deleted 2024-03-05 09:14:09 EST): deleted words",
          "Reply to Dana (+15551234567): “Original question here”", "Reactions: ❤️ Me",
          "(attachment or no text)", "Reply to a message not found in these conversations",
          "Edited. Earlier versions were not stored by Messages", "Me 2024-03-05 09:14:09 EST #44"})
        EXPECT_NE(text.find(expected), std::string::npos) << expected << "\n" << text;
    EXPECT_EQ(text.find("secret.jpg"), std::string::npos);
    EXPECT_EQ(text.find("Contains redactions"), std::string::npos);
    const auto images = testing::pdfImages(dir / "out.pdf");
    EXPECT_TRUE(std::any_of(images.begin(), images.end(),
                            [](const auto& image) { return image.width == 64 && image.height == 48; }))
        << "the photo preview is embedded";
}

}  // namespace
}  // namespace bc
