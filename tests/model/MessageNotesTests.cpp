#include "model/MessageNotes.h"

#include <gtest/gtest.h>

namespace bc {
namespace {

TEST(MessageNotes, RecoveredPartsAreCountedFromOne) {
    EXPECT_EQ(notes::recoveredPart({.index = 0}), "Recovered deleted part 1");
    EXPECT_EQ(notes::recoveredPart({.index = 3}), "Recovered deleted part 4");
}

TEST(MessageNotes, DateOrderPutsUndatedRowsFirstAndKeepsTiesInSourceOrder) {
    const auto row = [](int64_t id, double date) { return Message{.id = id, .date = Date{date}}; };
    std::vector<Message> rows{row(1, 500), row(2, 0), row(3, 100), row(4, 500), row(5, 0)};
    notes::putInDateOrder(rows);
    std::vector<int64_t> ids;
    for (const auto& m : rows) ids.push_back(m.id);
    EXPECT_EQ(ids, (std::vector<int64_t>{2, 5, 3, 1, 4}));
    EXPECT_TRUE(notes::isUndated(rows[0].date));
    EXPECT_FALSE(notes::isUndated(rows[2].date));
}

TEST(MessageNotes, AnUndecodableBodyPointsToMessagesCsvOnlyWhereThereIsOne) {
    const Message undecodable{.text =
                                  "Message text is stored but could not be decoded by this "
                                  "app; the raw data is included in messages.csv.",
                              .undecodedBody = "\x04\x0bstreamtyped"};
    EXPECT_EQ(notes::text(undecodable, true), undecodable.text);
    EXPECT_EQ(notes::text(undecodable, false).find("messages.csv"), std::string::npos);
    const Message plain{.text = "hello"};
    EXPECT_EQ(notes::text(plain, false), "hello");
}

}  // namespace
}  // namespace bc
