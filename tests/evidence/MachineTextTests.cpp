#include "evidence/MachineText.h"

#include <gtest/gtest.h>

#include "testing/Scoped.h"
#include "testing/Testing.h"

namespace bc {
namespace {

using testing::utc;

Attachment attachment(int64_t id, const std::filesystem::path& path, const std::string& mime) {
    return {.id = id, .path = path.string(), .mimeType = mime, .guid = "ATT-" + std::to_string(id)};
}

MachineText read(const std::string& guid, const std::string& text, int64_t bytes,
                 MachineText::Kind kind = MachineText::Kind::imageText) {
    return {.attachmentGUID = guid,
            .kind = kind,
            .text = text,
            .engine = "Tesseract OCR 5.3.0 text recognition (on this computer)",
            .createdAt = utc("2024-03-05T14:07:09Z"),
            .fileBytes = bytes};
}

class MachineTextTest : public ::testing::Test {
protected:
    testing::TempDir dir;
    testing::ScopedOverride location{AnalysisStore::location(),
                                     dir / "Kestrove" / "machine-text.json"};
};

TEST_F(MachineTextTest, StoreKeepsEveryFieldUnderItsOwnNameAndSetsDamagedFilesAside) {
    EXPECT_TRUE(AnalysisStore::load().empty());
    const MachineTextMap texts{
        {"G-1", read("G-1", "TOTAL 52.40", 1234)},
        {"G-2", read("G-2", "see you at eight", 99, MachineText::Kind::transcript)}};
    AnalysisStore::save(texts);  // makes the missing folder
    EXPECT_EQ(AnalysisStore::load(), texts);

    const Json stored = json::decode(files::readFile(AnalysisStore::location().path()));
    EXPECT_EQ(stored.at("G-2").at("kind"), "transcript");
    EXPECT_EQ(stored.at("G-1").at("kind"), "imageText");
    EXPECT_EQ(stored.at("G-1").at("fileBytes"), 1234);
    EXPECT_EQ(stored.at("G-1").at("attachmentGUID"), "G-1");

    testing::writeText(AnalysisStore::location().path(),
                       R"({"G-1": {"attachmentGUID": "G-1", "kind": "video"}})");
    EXPECT_TRUE(AnalysisStore::load().empty());
    ASSERT_TRUE(AnalysisStore::loadError().get());
    EXPECT_NE(AnalysisStore::loadError().get()->find("machine-text.json couldn't be read"),
              std::string::npos);
    AnalysisStore::loadError().set(std::nullopt);
}

TEST_F(MachineTextTest, PendingAreVisiblePhotosAndVoiceMessagesWithoutCurrentText) {
    testing::writeText(dir / "a.jpg", "12345");
    testing::writeText(dir / "b.caf", "123");
    testing::writeText(dir / "c.pdf", "1");
    testing::writeText(dir / "d.heic", "1234567");
    Message first{.id = 1}, second{.id = 2};
    first.attachments = {attachment(10, dir / "a.jpg", "image/jpeg"),
                         attachment(11, dir / "c.pdf", "application/pdf"),
                         attachment(12, dir / "b.caf", "")};  // known by its extension
    Attachment hidden = attachment(13, dir / "a.jpg", "image/jpeg");
    hidden.isHidden = true;
    second.attachments = {hidden, attachment(14, dir / "d.heic", "image/heic"),
                          attachment(15, dir / "gone.m4a", "audio/x-m4a")};

    MachineTextMap texts;
    const auto ids = [&] {
        std::vector<int64_t> out;
        for (const auto& a : pendingAnalysis({first, second}, texts)) out.push_back(a.id);
        return out;
    };
    EXPECT_EQ(ids(), (std::vector<int64_t>{10, 12, 14, 15}));

    texts["ATT-10"] = read("ATT-10", "receipt", 5);    // matches the file
    texts["ATT-14"] = read("ATT-14", "old photo", 3);  // the file has changed since
    texts["ATT-15"] = read("ATT-15", "hello", 42, MachineText::Kind::transcript);  // file gone
    EXPECT_EQ(ids(), (std::vector<int64_t>{12, 14}));
    EXPECT_TRUE(isStale(texts["ATT-14"], second.attachments[1]));
    EXPECT_FALSE(currentMachineText(texts, second.attachments[1]));

    const auto shown = machineTextForExport({first, second}, texts);
    ASSERT_EQ(shown.size(), 2u);
    EXPECT_EQ(shown.at(10).text, "receipt");
    EXPECT_FALSE(shown.at(10).isTranscript);
    EXPECT_EQ(shown.at(10).label(), "Text in image (machine-generated, may contain errors): ");
    EXPECT_TRUE(shown.at(15).isTranscript);
    EXPECT_EQ(shown.at(15).label(), "Transcript (machine-generated, may contain errors): ");
    EXPECT_EQ(shown.at(15).fileBytes, 42);
}

}  // namespace
}  // namespace bc
