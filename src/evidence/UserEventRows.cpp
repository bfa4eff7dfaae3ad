#include "evidence/UserEventRows.h"

#include <algorithm>
#include <numeric>

namespace bc::userEvents {

namespace {

constexpr int64_t firstRowID = -1'000'000'000'000;

}  // namespace

std::vector<Message> rows(const std::vector<TimelineEvent>& events) {
    std::vector<Message> result;
    result.reserve(events.size());
    for (size_t k = 0; k < events.size(); ++k) {
        Message row;
        row.id = firstRowID - static_cast<int64_t>(k);
        row.guid = "event:" + events[k].id;
        row.date = events[k].date;
        row.isFromMe = true;
        row.userEvent = events[k];
        result.push_back(std::move(row));
    }
    return result;
}

std::vector<Message> merge(const std::vector<TimelineEvent>& events,
                           const std::vector<Message>& into) {
    std::vector<Message> combined = into;
    std::vector<Message> eventRows = rows(events);
    combined.insert(combined.end(), std::make_move_iterator(eventRows.begin()),
                    std::make_move_iterator(eventRows.end()));
    std::vector<size_t> order(combined.size());
    std::iota(order.begin(), order.end(), size_t{0});
    std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) {
        const Message& x = combined[a];
        const Message& y = combined[b];
        if (x.date != y.date) return x.date < y.date;
        return !x.isUserEvent() && y.isUserEvent();
    });
    std::vector<Message> merged;
    merged.reserve(combined.size());
    for (const size_t i : order) merged.push_back(std::move(combined[i]));
    return merged;
}

std::vector<Message> withoutUserEvents(const std::vector<Message>& rows) {
    std::vector<Message> messages;
    std::copy_if(rows.begin(), rows.end(), std::back_inserter(messages),
                 [](const Message& row) { return !row.isUserEvent(); });
    return messages;
}

}  // namespace bc::userEvents
