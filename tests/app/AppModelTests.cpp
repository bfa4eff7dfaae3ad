#include <fstream>

#include <QSignalSpy>

#include "AppFixture.h"
#include "sources/MessageDatabase.h"
#include "support/Sqlite.h"

namespace bc::app::testing {
namespace {

using State = AppModel::State;

TEST_F(AppTest, OpensThroughLoadingToReadyWithEveryConversation) {
    AppModel model;
    std::vector<State> seen;
    QObject::connect(&model, &AppModel::stateChanged, [&] { seen.push_back(model.state()); });
    model.openSource(database(), AppModel::SourceKind::file);
    ASSERT_TRUE(waitFor([&] { return model.state() == State::ready; }));
    EXPECT_EQ(seen, (std::vector{State::loading, State::ready}));
    EXPECT_FALSE(model.isBusy());
    EXPECT_TRUE(model.sourceText().contains("chat.db"));

    MessageDatabase direct(database());
    const auto chats = direct.fetchChats();
    int64_t listed = 0, total = 0;
    for (const auto& conversation : model.conversations()) listed += conversation.messageCount;
    for (const auto& chat : chats) total += chat.messageCount;
    EXPECT_EQ(listed, total);
    const auto& list = model.conversations();
    EXPECT_TRUE(std::any_of(list.begin(), list.end(),
                            [](const Conversation& c) { return c.title == "Weekend Crew"; }));

    select(model, 1);
    EXPECT_EQ(model.transcript().messages().size(), direct.fetchMessages(1).size());
    EXPECT_FALSE(model.transcript().timeline.days.empty());
    EXPECT_EQ(model.selectedConversation()->chatIDs.front(), 1);
}

TEST_F(AppTest, DemoExportFolderOnlyInDemoModeWithTheVariableSet) {
    AppModel model;
    const std::filesystem::path exports = folder_ / "exports" / "deep";
    ::setenv("KESTROVE_DEMO_EXPORT_DIR", exports.c_str(), 1);
    EXPECT_EQ(model.demoExportFolder(), std::nullopt);
    DemoData::setEnabled(true);
    EXPECT_EQ(model.demoExportFolder(), exports);
    EXPECT_TRUE(std::filesystem::is_directory(exports));
    ::unsetenv("KESTROVE_DEMO_EXPORT_DIR");
    EXPECT_EQ(model.demoExportFolder(), std::nullopt);
    DemoData::setEnabled(false);
}

TEST_F(AppTest, AnUnreadableLiveDatabaseAsksForAccessAndAChosenOneFails) {
    const auto broken = folder_ / "broken.db";
    bc::testing::writeText(broken, "this is not a database, only text long enough to be read");
    AppModel model;
    model.openSource(broken, AppModel::SourceKind::live);
    ASSERT_TRUE(waitFor([&] { return model.state() != State::loading; }));
    EXPECT_EQ(model.state(), State::accessNeeded);
    EXPECT_TRUE(model.stateMessage().contains("Open a Messages database file…"));
    EXPECT_TRUE(model.conversations().empty());

    model.openSource(broken, AppModel::SourceKind::file);
    ASSERT_TRUE(waitFor([&] { return model.state() != State::loading; }));
    EXPECT_EQ(model.state(), State::failed);
    EXPECT_TRUE(model.stateMessage().startsWith("Couldn't open the Messages database: "));

    // The way out: a readable file opens normally afterwards.
    model.openSource(database(), AppModel::SourceKind::file);
    EXPECT_TRUE(waitFor([&] { return model.state() == State::ready; }));
}

TEST_F(AppTest, AChangedSignatureReloadsAndKeepsTheSelection) {
    auto model = openModel();
    select(*model, 1);
    const auto selected = model->selectedIndex();
    const auto before = model->transcript().messages().size();
    int reloads = 0;
    QObject::connect(model.get(), &AppModel::transcriptChanged, [&](bool keepPosition) {
        EXPECT_TRUE(keepPosition);
        ++reloads;
    });

    model->pollForChanges();
    ASSERT_TRUE(model->isCheckingForChanges());
    ASSERT_TRUE(waitFor([&] { return !model->isCheckingForChanges(); }));
    EXPECT_EQ(reloads, 0) << "nothing changed, nothing is read again";

    {
        sqlite::Connection writer(database(), sqlite::OpenMode::readWriteCreate);
        writer.execute(
            "INSERT INTO message (ROWID, guid, text, handle_id, is_from_me, date) VALUES "
            "(9001, 'added-9001', 'A late addition', 1, 0, 1);"
            "INSERT INTO chat_message_join (chat_id, message_id) VALUES (1, 9001);");
    }
    model->pollForChanges();
    ASSERT_TRUE(waitFor([&] { return model->transcript().messages().size() == before + 1; }));
    EXPECT_EQ(reloads, 1);
    EXPECT_EQ(model->selectedIndex(), selected);
    EXPECT_EQ(model->selectedConversation()->chatIDs.front(), 1);
}

TEST_F(AppTest, FlagsAndNotesPersistAcrossModels) {
    // The file keeps whole seconds.
    bc::testing::FixedClock clock(bc::testing::utc("2026-03-04T10:20:30Z"));
    auto model = openModel();
    select(*model, 1);
    const auto messages = model->transcript().messages();
    const Message& later = messages.back();
    const Message& earlier = messages.front();

    model->toggleFlag(later);
    model->setNote("Said he would pay it back", earlier);  // a note flags the message
    ASSERT_TRUE(model->isFlagged(later));
    ASSERT_TRUE(model->isFlagged(earlier));
    const auto flagged = model->flaggedMessages();
    ASSERT_EQ(flagged.size(), 2u);
    EXPECT_EQ(flagged[0].guid, earlier.guid) << "transcript order";

    auto reopened = openModel();
    select(*reopened, 1);
    EXPECT_EQ(reopened->flags(), model->flags());
    EXPECT_EQ(reopened->noteFor(earlier), "Said he would pay it back");

    reopened->toggleFlag(earlier);
    EXPECT_FALSE(reopened->isFlagged(earlier));
    EXPECT_EQ(EvidenceStore::load().size(), 1u);
    EXPECT_TRUE(reopened->statusText().isEmpty());
}

TEST_F(AppTest, AFlagSaveFailureIsReportedAndKeptInMemory) {
    auto model = openModel();
    select(*model, 1);
    bc::testing::ScopedOverride unwritable(EvidenceStore::location(), database() / "evidence.json");
    model->toggleFlag(model->transcript().messages().front());
    EXPECT_TRUE(model->isFlagged(model->transcript().messages().front()));
    EXPECT_TRUE(model->statusText().startsWith("Couldn't save evidence flags: "));
}

TEST_F(AppTest, UserEventsAppearInTimeOrderAndOnlyInTheirConversation) {
    auto model = openModel();
    EXPECT_FALSE(model->startAddingEvent(Clock::now())) << "no conversation selected";
    select(*model, 1);
    const auto messages = model->transcript().messages();
    const Message& middle = messages[messages.size() / 2];

    auto atMessage = *model->startAddingEvent(middle.date);
    atMessage.title = "Hearing";
    model->saveEvent(atMessage);
    auto first = *model->startAddingEvent(messages.front().date - 3600);
    first.title = "Moved in";
    model->saveEvent(first);

    const auto& rows = model->transcript().rows;
    ASSERT_EQ(rows.size(), messages.size() + 2);
    EXPECT_EQ(rows.front().userEvent->title, "Moved in");
    for (size_t row = 1; row < rows.size(); ++row) EXPECT_LE(rows[row - 1].date, rows[row].date);
    const auto hearing = std::find_if(rows.begin(), rows.end(), [](const Message& row) {
        return row.isUserEvent() && row.userEvent->title == "Hearing";
    });
    EXPECT_EQ((hearing - 1)->guid, middle.guid) << "after the message at the same time";
    EXPECT_EQ(model->transcript().messages(), messages) << "exports never see the events";
    EXPECT_EQ(TimelineEventStore::load().size(), 2u);

    select(*model, 7);
    EXPECT_TRUE(model->eventsForOpenConversation().empty());
    select(*model, 1);
    EXPECT_EQ(model->eventsForOpenConversation().size(), 2u);

    model->deleteEvent(first.id);
    EXPECT_EQ(model->transcript().rows.size(), messages.size() + 1);
    EXPECT_EQ(TimelineEventStore::load().size(), 1u);
}

TEST_F(AppTest, CancellingAReadDropsItsResultAndSaysSo) {
    auto model = openModel();
    select(*model, 1);
    model->selectConversation(model->selectedIndex().value() + 1);
    EXPECT_TRUE(model->isBusy());
    model->cancel();
    EXPECT_FALSE(model->isBusy());
    EXPECT_EQ(model->statusText(), "Cancelled.");
    for (int round = 0; round < 20; ++round) QCoreApplication::processEvents();
    EXPECT_TRUE(model->transcript().rows.empty());
}

}  // namespace
}  // namespace bc::app::testing

namespace bc::app::testing {
namespace {

TEST_F(AppTest, AnAttachmentRemovedFromDiskIsReportedOnTheNextCheck) {
    auto model = openModel();
    int reports = 0;
    QObject::connect(model.get(), &AppModel::evictionReportChanged, [&] { ++reports; });
    model->startAttachmentWatch();
    ASSERT_TRUE(waitFor([&] { return reports == 1; }));
    const auto first = *model->evictionReport();
    EXPECT_TRUE(first.newlyMissing.empty()) << "nothing to compare with on the first check";
    ASSERT_GT(first.total, first.missingNow);

    const auto photo = database().parent_path() / "Attachments" / "demo-photo-1.jpg";
    ASSERT_TRUE(std::filesystem::remove(photo));
    model->checkAttachmentsStillHere();
    ASSERT_TRUE(waitFor([&] { return reports == 2; }));
    EXPECT_EQ(model->evictionReport()->newlyMissing.size(), 1u);
    EXPECT_EQ(model->evictionReport()->missingNow, first.missingNow + 1);
}

}  // namespace
}  // namespace bc::app::testing
