// The archive of a conversation read from the generated sample Messages database, end to end.
#include <gtest/gtest.h>

#include "HTMLExporterSamples.h"
#include "export/HTMLExporter.h"
#include "sources/MessageDatabase.h"
#include "sources/demo/DemoData.h"
#include "support/Files.h"
#include "support/Process.h"
#include "testing/Testing.h"

namespace bc {
namespace {

namespace fs = std::filesystem;

TEST(HTMLExporterDemo, sampleConversationExportsWholeAndVerifies) {
    testing::TempDir dir;
    DemoData::writeMessagesDatabase(dir / "chat.db", Clock::now());
    MessageDatabase database(dir / "chat.db");
    const auto chats = database.fetchChats();
    const auto photos =
        std::find_if(chats.begin(), chats.end(), [](const Chat& c) { return c.id == 1; });
    ASSERT_NE(photos, chats.end());  // the one-to-one conversation with photos
    const Chat& chat = *photos;
    const Transcript transcript = database.fetchTranscript({chat.id});
    ASSERT_FALSE(transcript.messages.empty());

    size_t present = 0, absent = 0;
    for (const auto& m : transcript.messages)
        for (const auto& a : m.visibleAttachments()) ++(fs::exists(a.path) ? present : absent);
    ASSERT_GT(present, 0u);

    HTMLExporter exporter({.title = chat.displayName.empty() ? chat.identifier : chat.displayName,
                           .participants = chat.participants,
                           .sourceDescription = database.sourceDescription()},
                          testing::nameFor, transcript.messages, {});
    CancelFlag cancel;
    const auto summary = exporter.exportTranscript(transcript, dir / "archive", cancel, nullptr);
    EXPECT_EQ(summary.messages, static_cast<int64_t>(transcript.messages.size()));
    EXPECT_EQ(summary.attachmentsCopied, static_cast<int64_t>(present));
    EXPECT_EQ(summary.attachmentsMissing.size(), absent);
    EXPECT_TRUE(summary.attachmentsFailed.empty());
    EXPECT_EQ(summary.hashMismatches, 0);

    const std::string page = files::readFile(summary.htmlURL);
    for (const auto& m : transcript.messages)
        EXPECT_NE(page.find("id=\"m" + std::to_string(m.id) + "\""), std::string::npos) << m.id;
    const std::string reactions = files::readFile(dir / "archive/reactions.csv");
    EXPECT_EQ(static_cast<size_t>(std::count(reactions.begin(), reactions.end(), '\r')),
              transcript.reactionEvents.size() + 1);

    const auto check = runProcess({.executable = "/bin/sh",
                                   .arguments = {"-c", "cd \"$0\" && sha256sum -c checksums.txt",
                                                 (dir / "archive").string()}});
    EXPECT_TRUE(check.succeeded()) << check.standardOutput << check.standardError;
}

}  // namespace
}  // namespace bc
