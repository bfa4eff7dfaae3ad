#include <gtest/gtest.h>

#include <QDateTimeEdit>

#include "AppFixture.h"
#include "app/evidence/EventDialog.h"

namespace bc::app::testing {
namespace {

TEST_F(AppTest, TheEventEditorShowsWholeYearsAndSavesNoSecondsTheUserNeverSaw) {
    const auto at = QDateTime(QDate(2026, 3, 4), QTime(10, 15, 42));
    const TimelineEvent saved{.id = "e1", .date = fromQDateTime(at), .title = "Hearing"};
    EventDialog editing(saved);
    auto* when = editing.findChild<QDateTimeEdit*>();
    ASSERT_TRUE(when);
    EXPECT_TRUE(when->text().contains("2026")) << when->text().toStdString();
    EXPECT_EQ(editing.edited().date.toUnix(), saved.date.toUnix()) << "left as it was";

    when->setDateTime(at.addSecs(3600));
    EXPECT_EQ(toQDateTime(editing.edited().date), QDateTime(QDate(2026, 3, 4), QTime(11, 15)));

    const TimelineEvent fresh{.id = "e2", .date = fromQDateTime(at)};
    EXPECT_EQ(toQDateTime(EventDialog(fresh).edited().date),
              QDateTime(QDate(2026, 3, 4), QTime(10, 15)));
}

}  // namespace
}  // namespace bc::app::testing
