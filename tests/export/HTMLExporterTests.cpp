#include "export/HTMLExporter.h"

#include <gtest/gtest.h>
#include <libheif/heif.h>

#include <filesystem>
#include <utility>

#include "HTMLExporterSamples.h"
#include "export/html/Markup.h"
#include "support/Files.h"
#include "support/Image.h"
#include "support/Machine.h"
#include "support/Process.h"
#include "support/Sha256.h"
#include "testing/Heic.h"
#include "testing/Testing.h"

namespace bc {
namespace {

namespace fs = std::filesystem;
using testing::at;
using testing::attachment;
using testing::message;

TEST(HTMLExporterHelpers, linkifyMakesSafeAnchorsOnlyForWebLinks) {
    EXPECT_EQ(html::linkify("see https://ex.com/a?b=1&c=2."),
              "see <a href=\"https://ex.com/a?b=1&amp;c=2\" target=\"_blank\" "
              "rel=\"noopener\">https://ex.com/a?b=1&amp;c=2</a>.");
    EXPECT_EQ(html::linkify("(www.ex.com)"),
              "(<a href=\"https://www.ex.com\" target=\"_blank\" rel=\"noopener\">www.ex.com</a>)");
    EXPECT_EQ(html::linkify("javascript:alert(1) <script>"), "javascript:alert(1) &lt;script&gt;");
    EXPECT_EQ(html::linkify("http://x\"onmouseover=alert(1)"),
              "<a href=\"http://x\" target=\"_blank\" rel=\"noopener\">http://x</a>&quot;"
              "onmouseover=alert(1)");
    EXPECT_EQ(html::linkify("showhttp://x https://"), "showhttp://x https://");
}

TEST(HTMLExporterHelpers, safeFileNameKeepsOnlyPlainCharacters) {
    EXPECT_EQ(html::safeFileName("a/b c.jpg"), "a_b_c.jpg");
    EXPECT_EQ(html::safeFileName("  Fötö\x01.heic "), "F_t__.heic");
    EXPECT_EQ(html::safeFileName("../.."), ".._..");
    EXPECT_EQ(html::safeFileName(" "), "file");
    EXPECT_EQ(html::safeFileName(std::string(300, 'x')), std::string(120, 'x'));
}

TEST(HTMLExporterHelpers, urlPathPercentEncodesAllButPlainPathCharacters) {
    EXPECT_EQ(html::urlPath("attachments/1-a b#?é\".jpg"),
              "attachments/1-a%20b%23%3F%C3%A9%22.jpg");
}

TEST(HTMLExporterHelpers, fillReplacesEachPlaceholderOnceWithoutRescanning) {
    EXPECT_EQ(html::fill("<t>{{A}}</t>{{B}}{{A}}{{C}}{", {{"A", "{{B}}"}, {"B", "b"}}),
              "<t>{{B}}</t>b{{B}}{{C}}{");
}

TEST(HTMLExporterHelpers, inRangeIncludesTheWholeLastDay) {
    const Date from = *dates::parseIso8601("2024-03-01T05:00:00Z");  // midnight in New York
    const Date to = from;
    EXPECT_TRUE(HTMLExporter::inRange(from, from, to));
    EXPECT_TRUE(HTMLExporter::inRange(from + 86399, from, to));
    EXPECT_FALSE(HTMLExporter::inRange(from + 86400, from, to));
    EXPECT_FALSE(HTMLExporter::inRange(from - 1, from, to));
    EXPECT_TRUE(HTMLExporter::inRange(from - 1e9, std::nullopt, std::nullopt));
}

struct Archive {
    testing::TempDir dir;
    fs::path sources = dir / "sources";
    fs::path folder = dir / "out";

    fs::path source(const std::string& relative, const std::string& bytes) {
        testing::writeText(sources / relative, bytes);
        return sources / relative;
    }

    HTMLExporter::Summary run(const Transcript& transcript, HTMLExporter::Options options = {},
                              std::vector<Message> context = {}, const ProgressFn& progress = {}) {
        if (options.title.empty()) options.title = "Ann <b>&</b>";
        options.sourceDescription = "test data";
        HTMLExporter exporter(
            std::move(options), testing::nameFor, std::move(context),
            {{31, {.text = "Words in a photo", .engine = "Test OCR", .fileBytes = 9}}});
        return exporter.exportTranscript(transcript, folder, cancel, progress);
    }

    CancelFlag cancel;

    std::string page(const HTMLExporter::Summary& summary) const {
        return files::readFile(summary.htmlURL);
    }
};

// Enough of a CSV reader for the manifests: every field quoted, CR LF after each row.
std::vector<std::vector<std::string>> readRows(const fs::path& file) {
    const std::string text = files::readFile(file).substr(3);
    std::vector<std::vector<std::string>> rows(1);
    std::string field;
    bool quoted = false;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '"' && quoted && text[i + 1] == '"') {
            field += text[++i];
        } else if (text[i] == '"') {
            quoted = !quoted;
        } else if (quoted) {
            field += text[i];
        } else if (text[i] == ',' || text[i] == '\r') {
            rows.back().push_back(std::exchange(field, {}));
            if (text[i] == '\r') rows.emplace_back(), ++i;
        }
    }
    rows.pop_back();
    return rows;
}

TEST(HTMLExporterArchive, copiesVerifiesAndMarksBadAttachmentsWhereTheyOccur) {
    Archive a;
    Message first = message(1, at(), "<script>alert('x')</script> \"quoted\"");
    first.attachments = {
        attachment(31, a.source("one/IMG 1.jpg", "jpeg bytes").string(), "IMG 1.jpg", "image/jpeg"),
        attachment(32, a.source("two/IMG 1.jpg", "other bytes").string(), "IMG 1.jpg",
                   "image/jpeg"),
        attachment(33, a.source("Fö/..\x01名.pdf", "pdf").string(), "../名.pdf", "application/pdf"),
        attachment(34, (a.sources / "gone.jpg").string(), "gone.jpg", "image/jpeg"),
        attachment(35, a.sources.string() + "/one", "a folder", "application/octet-stream")};
    Attachment hidden = attachment(36, a.source("hidden.plist", "x").string(), "h", "");
    hidden.isHidden = true;
    first.attachments.push_back(hidden);
    Transcript transcript{.messages = {first, message(2, at(90000), "next day", true)}};

    const auto summary = a.run(transcript);
    EXPECT_EQ(summary.messages, 2);
    EXPECT_EQ(summary.attachmentsCopied, 3);
    EXPECT_EQ(summary.attachmentsMissing, std::vector<std::string>{"gone.jpg"});
    EXPECT_EQ(summary.attachmentsFailed, std::vector<std::string>{"a folder"});
    EXPECT_EQ(summary.hashMismatches, 0);
    EXPECT_EQ(summary.htmlURL, a.folder / "Ann -b-&--b- – Messages.html");

    EXPECT_EQ(files::readFile(a.folder / "attachments/31-IMG_1.jpg"), "jpeg bytes");
    EXPECT_EQ(files::readFile(a.folder / "attachments/32-IMG_1.jpg"), "other bytes");
    EXPECT_TRUE(fs::exists(a.folder / "attachments/33-..__.pdf"));

    const auto rows = readRows(a.folder / "attachments.csv");
    ASSERT_EQ(rows.size(), 6u);  // header + five visible attachments
    EXPECT_EQ(rows[1], (std::vector<std::string>{
                           "31", "1", "copied", "0", "IMG 1.jpg", "image/jpeg",
                           (a.sources / "one/IMG 1.jpg").string(), "attachments/31-IMG_1.jpg", "10",
                           Sha256::hex("jpeg bytes"), Sha256::hex("jpeg bytes"), "1"}));
    EXPECT_EQ(rows[4][2], std::string("missing: not on ") + thisMachine);
    EXPECT_EQ(rows[4][7], "");
    EXPECT_EQ(rows[4][11], "");
    EXPECT_TRUE(rows[5][2].starts_with("copy failed: ")) << rows[5][2];

    const std::string page = a.page(summary);
    EXPECT_EQ(page.find("<script>alert"), std::string::npos);
    EXPECT_NE(page.find("&lt;script&gt;alert(&#39;x&#39;)&lt;/script&gt; &quot;quoted&quot;"),
              std::string::npos);
    EXPECT_NE(page.find("<title>Ann &lt;b&gt;&amp;&lt;/b&gt; – Messages</title>"),
              std::string::npos);
    EXPECT_NE(
        page.find("<a class=\"att img\" href=\"attachments/31-IMG_1.jpg\" target=\"_blank\">"
                  "<img loading=\"lazy\" src=\"attachments/31-IMG_1.jpg\" alt=\"IMG 1.jpg\"></a>"),
        std::string::npos);
    EXPECT_NE(
        page.find("<div class=\"att file missing\">⚠️ gone.jpg: listed in the database but "
                  "not stored on " +
                  std::string(thisMachine) + "</div>"),
        std::string::npos);
    EXPECT_NE(page.find("⚠️ a folder: exists on " + std::string(thisMachine) +
                        " but could not be copied"),
              std::string::npos);
    EXPECT_NE(page.find("Text in image (machine-generated, may contain errors): Words in a photo"),
              std::string::npos);
    EXPECT_EQ(
        readRows(a.folder / "machine-text.csv"),
        (std::vector<std::vector<std::string>>{
            {"attachment_id", "kind", "engine", "created_at", "file_bytes", "text"},
            {"31", "imageText", "Test OCR", "2001-01-01T00:00:00.000Z", "9", "Words in a photo"}}));
    EXPECT_EQ(page.find("hidden.plist"), std::string::npos);
    EXPECT_NE(page.find("const DAYS = [[\"2024-03-01\",1],[\"2024-03-02\",1]];"),
              std::string::npos);
    // Each day's rows are in the file inside its section, readable without the page's script.
    EXPECT_NE(page.find("<section class=\"day\" id=\"d-2024-03-01\"><h2><span>Friday, 1 March "
                        "2024</span></h2><div class=\"m them\" id=\"m1\"><div class=\"b\" "
                        "title=\"2024-03-01 12:05:09 -05:00\"><div class=\"text\" dir=\"auto\">"),
              std::string::npos);
    EXPECT_NE(page.find("</div></div></section>\n<section class=\"day\" id=\"d-2024-03-02\">"),
              std::string::npos);
    EXPECT_NE(page.find("<div class=\"text\" dir=\"auto\">next day</div>"), std::string::npos);
}

TEST(HTMLExporterArchive, checksumsListEveryFileButItselfAndVerifyWithSha256sum) {
    const auto sha256sum = findExecutable("sha256sum");
    if (!sha256sum) GTEST_SKIP() << "sha256sum is not installed";
    Archive a;
    Message m = message(1, at(), "hi");
    m.attachments = {attachment(5, a.source("x y.txt", "abc").string(), "x y.txt", "text/plain")};
    Transcript transcript{.messages = {m, testing::callRow(2, at(5), false)}};
    a.run(transcript);

    const std::string sums = files::readFile(a.folder / "checksums.txt");
    EXPECT_NE(sums.find(Sha256::hex("abc") + "  attachments/5-x_y.txt\n"), std::string::npos);
    for (const char* name : {"messages.csv", "reactions.csv", "calls.csv", "attachments.csv",
                             "Ann -b-&--b- – Messages.html"})
        EXPECT_NE(sums.find(std::string("  ") + name + "\n"), std::string::npos) << name;
    EXPECT_EQ(sums.find("checksums.txt"), std::string::npos);
    const auto calls = readRows(a.folder / "calls.csv");
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].front(), "call_record_id");
    EXPECT_EQ(calls[1].front(), "2");
    // A call has no message record id: it carries its own number and no message anchor.
    const std::string page = files::readFile(a.folder / "Ann -b-&--b- – Messages.html");
    EXPECT_NE(page.find("<div class=\"sys\">"), std::string::npos);
    EXPECT_NE(page.find("call record 2</span>"), std::string::npos);
    EXPECT_EQ(page.find("id=\"m0\""), std::string::npos);

    const auto result = runProcess(
        {.executable = "/bin/sh",
         .arguments = {"-c", "cd \"$0\" && sha256sum -c checksums.txt", a.folder.string()}});
    EXPECT_TRUE(result.succeeded()) << result.standardOutput << result.standardError;
    EXPECT_NE(result.standardOutput.find("attachments/5-x_y.txt: OK"), std::string::npos);
    EXPECT_EQ(result.standardOutput.find("FAILED"), std::string::npos);
}

TEST(HTMLExporterArchive, repliesPointInsideOutsideOrNowhere) {
    Archive a;
    Message early = message(1, at(-5 * 86400), "long ago");
    Message target = message(2, at(), "the original");
    Message replyIn = message(3, at(10), "answer", true);
    replyIn.replyToGUID = "G2";
    Message replyOut = message(4, at(20), "late answer", true);
    replyOut.replyToGUID = "G1";
    Message replyLost = message(5, at(30), "lost", true);
    replyLost.replyToGUID = "nowhere";
    const Transcript all{.messages = {early, target, replyIn, replyOut, replyLost}};
    HTMLExporter::Options options{.from = at(-86400)};
    const std::string page = a.page(a.run(all, options, all.messages));
    EXPECT_EQ(page.find("long ago\""), std::string::npos);
    EXPECT_NE(
        page.find("<a class=\"reply\" href=\"#m2\">↩︎ Reply to Ann (“the original”)</a>"),
        std::string::npos);
    EXPECT_NE(
        page.find("<div class=\"reply\">↩︎ Reply to Ann (“long ago”, outside this export's "
                  "date range)</div>"),
        std::string::npos);
    EXPECT_NE(page.find("<div class=\"reply\">↩︎ Reply to a message not found in the exported "
                        "conversation(s)</div>"),
              std::string::npos);
}

TEST(HTMLExporterArchive, notesEditsMetaAndReactions) {
    Archive a;
    Message m = message(1, at(), "");
    m.undecodedBody = "\x01";
    m.isUnsent = true;
    m.isEdited = true;
    m.editHistory = {{.date = at(), .text = "a"}, {.date = at(1)}, {.date = at(2), .text = "c"}};
    m.recoveredParts = {{.index = 0, .text = "gone <b>"}};
    m.errorCode = 22;
    m.effect = "Slam";
    m.dateRead = at(3600);
    m.reactions = {{.emoji = "❤️", .sender = "+15551234567"},
                   {.emoji = "❤️", .isFromMe = true},
                   {.emoji = "👍", .isFromMe = true}};
    Message edited = message(2, at(5), "\xEF\xBF\xBCx\xEF\xBF\xBC");
    edited.isEdited = true;
    const std::string page = a.page(a.run({.messages = {m, edited}}));
    for (const char* expected :
         {"<div class=\"text\" dir=\"auto\">(unreadable)</div>", "dir=\"auto\">x</div>",
          "This message was unsent. Messages does not keep the original content.",
          "Recovered deleted part 1: gone &lt;b&gt;",
          "<summary>Edited · 3 "
          "versions</summary><ol><li><b>Original</b><div>a</div></li><li><b>Edit "
          "1</b><div><em>(version could not be read)</em></div></li><li><b>Final</b><div>c</div>",
          "<div class=\"edits\">Edited. Messages did not store the earlier versions.</div>",
          "Ann · 12:05:09 PM · Sent with Slam effect · Read 1:05:09 PM · Unsent · Not delivered "
          "(error 22) <span class=\"id\">message 1</span>",
          "<div class=\"rx\"><span title=\"Ann, Me\">❤️<small>2</small></span><span "
          "title=\"Me\">👍<small>Me</small></span></div>"})
        EXPECT_NE(page.find(expected), std::string::npos) << expected;
}

TEST(HTMLExporterArchive, emptyRangeSaysSoAndALongEmojiTitleStillMakesAValidFileName) {
    Archive a;
    std::string title;
    for (int i = 0; i < 80; ++i) title += "😀";
    const auto summary = a.run({}, {.title = title});
    const std::string name = summary.htmlURL.filename().string();
    EXPECT_LE(name.size(), 255u);
    EXPECT_TRUE(name.starts_with("😀😀"));
    EXPECT_TRUE(name.ends_with("😀 – Messages.html"));
    const std::string page = a.page(summary);
    EXPECT_NE(page.find("There are no messages"), std::string::npos);
    EXPECT_NE(page.find("const DAYS = [];"), std::string::npos);
    EXPECT_EQ(readRows(a.folder / "messages.csv").size(), 1u);
    EXPECT_FALSE(fs::exists(a.folder / "calls.csv"));

    // The byte limit of the name falls inside a family: the family goes whole.
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467\u200D\U0001F466";
    std::string families = "a";
    for (int i = 0; i < 80; ++i) families += family;
    Archive b;
    std::string kept = "a";
    for (int i = 0; i < 7; ++i) kept += family;
    EXPECT_EQ(b.run({}, {.title = families}).htmlURL.filename().string(),
              kept + " – Messages.html");
}

TEST(HTMLExporterArchive, voiceMemoGetsAnM4aPreviewWhenFfmpegIsInstalled) {
    const auto ffmpeg = findExecutable("ffmpeg");
    if (!ffmpeg) GTEST_SKIP() << "ffmpeg is not installed";
    Archive a;
    fs::create_directories(a.sources);
    const fs::path caf = a.sources / "Audio Message.caf";
    ASSERT_TRUE(runProcess({.executable = *ffmpeg,
                            .arguments = {"-nostdin", "-loglevel", "error", "-f", "lavfi", "-i",
                                          "sine=duration=0.5", "-c:a", "pcm_s16le", caf.string()}})
                    .succeeded());
    Message m = message(1, at(), "");
    m.attachments = {
        attachment(40, caf.string(), "Audio Message.caf", "audio/x-caf"),
        attachment(41, a.source("bad.caf", "not audio").string(), "bad.caf", "audio/x-caf")};
    const auto summary = a.run({.messages = {m}});
    EXPECT_EQ(summary.previewsMade, 1);
    EXPECT_GT(fs::file_size(a.folder / "attachments/previews/40.m4a"), 0u);
    const std::string page = a.page(summary);
    EXPECT_NE(
        page.find("<audio controls preload=\"none\" src=\"attachments/previews/40.m4a\"></audio>"
                  "<a class=\"file-link\" href=\"attachments/40-Audio_Message.caf\""),
        std::string::npos);
    EXPECT_NE(page.find("bad.caf: no preview could be made"), std::string::npos);
    EXPECT_EQ(page.find(a.folder.string()), std::string::npos) << "no export folder in the note";
    EXPECT_EQ(readRows(a.folder / "attachments.csv")[2][2], "copied");
    EXPECT_FALSE(fs::exists(a.folder / "attachments/previews/41.m4a"));

    // The same export again, elsewhere: the same manifest, byte for byte.
    Archive again;
    again.run({.messages = {m}});
    EXPECT_EQ(files::readFile(again.folder / "attachments.csv"),
              files::readFile(a.folder / "attachments.csv"));
}

TEST(HTMLExporterArchive, heicPhotoIsShownThroughAJpegPreviewAndCorruptOnesAreMarked) {
    if (!heif_have_encoder_for_format(heif_compression_HEVC)) GTEST_SKIP() << "no HEVC encoder";
    Archive a;
    fs::create_directories(a.sources);
    testing::writeHEIC(a.sources / "IMG_1.HEIC", 2600, 64, 128, 128, 128);
    Message m = message(1, at(), "");
    m.attachments = {
        attachment(50, (a.sources / "IMG_1.HEIC").string(), "IMG_1.HEIC", "image/heic"),
        attachment(51, a.source("IMG_2.HEIC", "garbage").string(), "IMG_2.HEIC", "image/heic"),
        attachment(52, (a.sources / "IMG_1.HEIC").string(), "sticker.heic", "image/heic")};
    m.attachments.back().isSticker = true;
    const auto summary = a.run({.messages = {m}});
    EXPECT_EQ(summary.previewsMade, 2);
    EXPECT_EQ(summary.attachmentsCopied, 3);
    const image::Bitmap preview = image::load(a.folder / "attachments/previews/50.jpg");
    EXPECT_EQ(preview.width, 2400);
    const std::string page = a.page(summary);
    EXPECT_NE(
        page.find("<a class=\"att img\" href=\"attachments/50-IMG_1.HEIC\" target=\"_blank\">"
                  "<img loading=\"lazy\" src=\"attachments/previews/50.jpg\" alt=\"IMG_1.HEIC\">"
                  "</a><a class=\"file-link\" href=\"attachments/50-IMG_1.HEIC\" "
                  "target=\"_blank\">IMG_1.HEIC: converted preview shown; original file</a>"),
        std::string::npos);
    EXPECT_NE(
        page.find("<a class=\"att file\" href=\"attachments/51-IMG_2.HEIC\" "
                  "target=\"_blank\">📎 IMG_2.HEIC</a><div class=\"note\">⚠️ IMG_2.HEIC: no "
                  "preview could be made (Couldn&#39;t read the image"),
        std::string::npos);
    EXPECT_NE(
        page.find("<img class=\"sticker\" loading=\"lazy\" src=\"attachments/previews/52.jpg\" "
                  "alt=\"Sticker\">"),
        std::string::npos);
    const auto rows = readRows(a.folder / "attachments.csv");
    EXPECT_EQ(rows[1][2], "copied");
    EXPECT_EQ(rows[2][2], "copied");
    EXPECT_EQ(rows[2][11], "1");
}

TEST(HTMLExporterArchive, aFileThatVanishesBeforeItsCopyIsMarkedMissing) {
    Archive a;
    const fs::path later = a.source("later.jpg", "x");
    Message m = message(1, at(), "");
    m.attachments = {attachment(1, a.source("first.jpg", "f").string(), "first.jpg", "image/jpeg"),
                     attachment(2, later.string(), "later.jpg", "image/jpeg")};
    const auto summary =
        a.run({.messages = {m}}, {}, {}, [&](const std::string&) { fs::remove(later); });
    EXPECT_EQ(summary.attachmentsCopied, 1);
    EXPECT_EQ(summary.attachmentsMissing, std::vector<std::string>{"later.jpg"});
    EXPECT_EQ(readRows(a.folder / "attachments.csv")[2][2],
              std::string("missing: not on ") + thisMachine);
}

TEST(HTMLExporterArchive, cancellationStopsBeforeTheNextAttachment) {
    Archive a;
    Message m = message(1, at(), "");
    m.attachments = {attachment(1, a.source("a", "a").string(), "a", ""),
                     attachment(2, a.source("b", "b").string(), "b", "")};
    int reports = 0;
    EXPECT_THROW(a.run({.messages = {m}}, {}, {},
                       [&](const std::string& text) {
                           EXPECT_EQ(text, "Copying and verifying attachments 1 of 2");
                           ++reports;
                           a.cancel.cancel();
                       }),
                 CancelledError);
    EXPECT_EQ(reports, 1);
    EXPECT_FALSE(fs::exists(a.folder / "checksums.txt"));
}

}  // namespace
}  // namespace bc
