#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "model/Message.h"
#include "support/Calendar.h"
#include "support/Date.h"

namespace bc {

// The open conversation as a calendar tree (years, months, weeks, days) in the machine's calendar,
// time zone and first weekday. A value, rebuilt whenever the message list changes.
class Timeline {
public:
    using Unit = Calendar::Unit;
    static constexpr std::array<Unit, 4> units{Unit::day, Unit::week, Unit::month, Unit::year};
    // The unit's raw text ("day", "week", "month", "year"), as user defaults store it.
    static std::string_view unitName(Unit unit);
    static std::optional<Unit> unitNamed(std::string_view name);

    struct Day {
        Date date;  // start of the calendar day
        int64_t firstMessageID = 0;
        int64_t count = 0;  // recorded messages only, so a day may exist with 0
        bool operator==(const Day&) const = default;
    };

    struct Node {
        enum class Level { year, month, week, day };

        std::string id;
        Level level = Level::day;
        std::string label;
        int64_t count = 0;
        int64_t firstMessageID = 0;
        Date start;                                 // start of its first day
        Date end;                                   // end of its last day
        std::optional<std::vector<Node>> children;  // absent for day nodes
        bool operator==(const Node&) const = default;
    };

    // Timeline.empty: no conversation open.
    Timeline() = default;
    // `messages` are expected in ascending date order.
    explicit Timeline(const std::vector<Message>& messages);

    std::optional<size_t> dayIndex(std::optional<int64_t> containing) const;
    // The first day on or after the date; the last day when none is.
    std::optional<size_t> dayIndex(Date onOrAfter) const;
    // Moves by `step` units from day `from`: at least one day when it can, never past either end.
    std::optional<size_t> jump(size_t from, Unit by, int step) const;

    std::vector<Day> days;    // in the order the messages came
    std::vector<Node> roots;  // year nodes, oldest first
    std::unordered_set<int64_t> firstMessageIDs;
    std::unordered_map<std::string, Node> nodesByID;  // every node at every level
    std::unordered_map<int64_t, size_t> dayIndexByMessage;

private:
    void buildDays(const std::vector<Message>& messages, Calendar& calendar);
    void enterNodes(const std::vector<Node>& nodes);
};

}  // namespace bc
