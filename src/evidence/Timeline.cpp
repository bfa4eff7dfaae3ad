#include "evidence/Timeline.h"

#include <algorithm>
#include <charconv>
#include <map>

#include "model/MessageNotes.h"

namespace bc {

namespace {

using Node = Timeline::Node;
using Level = Node::Level;

// Seconds since the 2001 reference in the shortest text that reads back to the same double.
std::string secondsText(Date date) {
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, date.seconds);
    return {buffer, result.ptr};
}

// A node with the index (in the days list) of its earliest day, which gives its firstMessageID.
struct Branch {
    Node node;
    size_t firstDay = 0;
};

class TreeBuilder {
public:
    TreeBuilder(const std::vector<Timeline::Day>& days, Calendar& calendar)
        : days_(days), calendar_(calendar) {}

    std::vector<Node> build() {
        // year → month → week start → day indices. Months are grouped before weeks, so a week
        // that crosses into the next month stands once in each, holding only that month's days.
        std::map<int, std::map<int, std::map<Date, std::vector<size_t>>>> groups;
        for (size_t i = 0; i < days_.size(); ++i) {
            const Date date = days_[i].date;
            groups[calendar_.year(date)][calendar_.month(date)]
                  [calendar_.start(Calendar::Unit::week, date)]
                      .push_back(i);
        }
        std::vector<Node> roots;
        roots.reserve(groups.size());
        for (const auto& [year, months] : groups) roots.push_back(yearBranch(year, months).node);
        return roots;
    }

private:
    using Weeks = std::map<Date, std::vector<size_t>>;

    Branch yearBranch(int year, const std::map<int, Weeks>& months) {
        std::vector<Branch> children;
        children.reserve(months.size());
        for (const auto& [month, weeks] : months)
            children.push_back(monthBranch(year, month, weeks));
        const std::string number = std::to_string(year);
        return parent(Level::year, "y" + number, number, std::move(children));
    }

    Branch monthBranch(int year, int month, const Weeks& weeks) {
        std::vector<Branch> children;
        const std::string prefix = std::to_string(year) + "-" + std::to_string(month);
        for (const auto& [weekStart, dayIndices] : weeks)
            children.push_back(weekBranch(prefix, weekStart, dayIndices));
        const std::string label = monthFormatter_.format(days_[children.front().firstDay].date);
        return parent(Level::month, "m" + prefix, label, std::move(children));
    }

    Branch weekBranch(const std::string& prefix, Date weekStart,
                      const std::vector<size_t>& dayIndices) {
        return parent(Level::week, "w" + prefix + "-" + secondsText(weekStart),
                      "Week of " + weekFormatter_.format(weekStart), dayBranches(dayIndices));
    }

    // Days that came out of date order repeat a date; they are one node again here, in the order
    // each date first appears.
    std::vector<Branch> dayBranches(const std::vector<size_t>& dayIndices) {
        std::vector<Branch> branches;
        for (const size_t i : dayIndices) {
            const Timeline::Day& day = days_[i];
            const auto same = std::find_if(branches.begin(), branches.end(), [&](const Branch& b) {
                return b.node.start == day.date;
            });
            if (same != branches.end()) {
                same->node.count += day.count;
                continue;
            }
            Node node{.id = "d" + secondsText(day.date),
                      .level = Level::day,
                      .label = dayFormatter_.format(day.date),
                      .count = day.count,
                      .firstMessageID = day.firstMessageID,
                      .start = day.date,
                      .end = calendar_.end(Calendar::Unit::day, day.date)};
            branches.push_back({std::move(node), i});
        }
        return branches;
    }

    Branch parent(Level level, std::string id, std::string label, std::vector<Branch> children) {
        Branch branch{Node{.id = std::move(id), .level = level, .label = std::move(label)},
                      children.front().firstDay};
        Node& node = branch.node;
        node.start = children.front().node.start;
        node.end = children.front().node.end;
        node.children.emplace();
        for (Branch& child : children) {
            node.count += child.node.count;
            node.start = std::min(node.start, child.node.start);
            node.end = std::max(node.end, child.node.end);
            branch.firstDay = std::min(branch.firstDay, child.firstDay);
            node.children->push_back(std::move(child.node));
        }
        node.firstMessageID = days_[branch.firstDay].firstMessageID;
        return branch;
    }

    const std::vector<Timeline::Day>& days_;
    Calendar& calendar_;
    PatternFormatter monthFormatter_{"LLLL"};
    PatternFormatter weekFormatter_{"d MMM"};
    PatternFormatter dayFormatter_{"EEE d"};
};

}  // namespace

std::string_view Timeline::unitName(Unit unit) {
    switch (unit) {
        case Unit::day:
            return "day";
        case Unit::week:
            return "week";
        case Unit::month:
            return "month";
        case Unit::year:
            return "year";
    }
    return "day";
}

std::optional<Timeline::Unit> Timeline::unitNamed(std::string_view name) {
    for (const Unit unit : units)
        if (unitName(unit) == name) return unit;
    return std::nullopt;
}

Timeline::Timeline(const std::vector<Message>& messages) {
    Calendar calendar;
    buildDays(messages, calendar);
    roots = TreeBuilder(days, calendar).build();
    for (const Day& day : days) firstMessageIDs.insert(day.firstMessageID);
    enterNodes(roots);
}

void Timeline::buildDays(const std::vector<Message>& messages, Calendar& calendar) {
    dayIndexByMessage.reserve(messages.size());
    // Bounds of the last day, so that only a message outside them asks the calendar.
    Date dayStart, dayEnd;
    for (const Message& message : messages) {
        // An undated row belongs to no day; a timeline of 1 January 2001 would be invented.
        if (notes::isUndated(message.date)) continue;
        if (days.empty() || message.date < dayStart || message.date >= dayEnd) {
            dayStart = calendar.startOfDay(message.date);
            dayEnd = calendar.end(Unit::day, dayStart);
            // Only the last day is compared: a message out of date order starts a new day.
            if (days.empty() || days.back().date != dayStart)
                days.push_back({dayStart, message.id, 0});
        }
        if (message.isRecordedMessage()) ++days.back().count;
        dayIndexByMessage[message.id] = days.size() - 1;
    }
}

void Timeline::enterNodes(const std::vector<Node>& nodes) {
    for (const Node& node : nodes) {
        nodesByID[node.id] = node;
        if (node.children) enterNodes(*node.children);
    }
}

std::optional<size_t> Timeline::dayIndex(std::optional<int64_t> containing) const {
    if (!containing) return std::nullopt;
    const auto it = dayIndexByMessage.find(*containing);
    if (it == dayIndexByMessage.end()) return std::nullopt;
    return it->second;
}

std::optional<size_t> Timeline::dayIndex(Date onOrAfter) const {
    if (days.empty()) return std::nullopt;
    const auto it = std::find_if(days.begin(), days.end(),
                                 [&](const Day& day) { return day.date >= onOrAfter; });
    return it == days.end() ? days.size() - 1 : static_cast<size_t>(it - days.begin());
}

std::optional<size_t> Timeline::jump(size_t from, Unit by, int step) const {
    if (from >= days.size()) return std::nullopt;
    Calendar calendar;
    const auto target = calendar.adding(by, step, days[from].date);
    if (!target) return std::nullopt;
    const size_t last = days.size() - 1;
    if (step >= 1) {
        const auto it = std::find_if(days.begin(), days.end(),
                                     [&](const Day& day) { return day.date >= *target; });
        if (it == days.end()) return last;
        const auto j = static_cast<size_t>(it - days.begin());
        return std::min(j == from ? j + 1 : j, last);
    }
    const auto it = std::find_if(days.rbegin(), days.rend(),
                                 [&](const Day& day) { return day.date <= *target; });
    if (it == days.rend()) return 0;
    const auto j = static_cast<size_t>(days.rend() - it - 1);
    return j == from ? (j == 0 ? 0 : j - 1) : j;
}

}  // namespace bc
