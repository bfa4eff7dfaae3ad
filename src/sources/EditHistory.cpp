// Edit history: the "ec" entry of a message's summary property list.
#include <plist/plist.h>

#include <algorithm>
#include <memory>

#include "sources/EditHistory.h"
#include "sources/MessageDecoding.h"

namespace bc::messages {

namespace {

// More parts than any message holds; bounds the lookups a hostile list can cause.
constexpr int maxParts = 256;

struct PlistFree {
    void operator()(plist_t node) const { plist_free(node); }
};
using PlistPtr = std::unique_ptr<void, PlistFree>;

PlistPtr parse(std::string_view bytes) {
    // The engine takes a 32-bit length; larger values are never a summary.
    if (bytes.empty() || bytes.size() > UINT32_MAX) return nullptr;
    plist_t root = nullptr;
    const auto length = static_cast<uint32_t>(bytes.size());
    if (bytes.starts_with("bplist00"))
        plist_from_bin(bytes.data(), length, &root);
    else
        plist_from_xml(bytes.data(), length, &root);
    return PlistPtr(root);
}

// "d" is written as a date, as seconds (real) or in the database's own date encoding (integer).
Date versionDate(plist_t node) {
    switch (plist_get_node_type(node)) {
        case PLIST_DATE: {
            int32_t seconds = 0, micros = 0;
            plist_get_date_val(node, &seconds, &micros);
            return Date{static_cast<double>(seconds) + static_cast<double>(micros) / 1e6};
        }
        case PLIST_REAL: {
            double value = 0;
            plist_get_real_val(node, &value);
            return Date{value};
        }
        case PLIST_UINT: {
            uint64_t value = 0;
            plist_get_uint_val(node, &value);
            return appleDate(static_cast<int64_t>(std::min<uint64_t>(value, INT64_MAX)))
                .value_or(Date{});
        }
        default:
            return Date{};
    }
}

std::optional<std::string> versionText(plist_t node) {
    if (!node || plist_get_node_type(node) != PLIST_DATA) return std::nullopt;
    uint64_t length = 0;
    const char* bytes = plist_get_data_ptr(node, &length);
    if (!bytes) return std::nullopt;
    return decodeAttributedBody(std::string_view(bytes, length));
}

void appendVersions(std::vector<EditVersion>& out, int part, plist_t versions) {
    if (plist_get_node_type(versions) != PLIST_ARRAY) return;
    const uint32_t count = plist_array_get_size(versions);
    for (uint32_t i = 0; i < count; ++i) {
        plist_t version = plist_array_get_item(versions, i);
        if (plist_get_node_type(version) != PLIST_DICT) continue;
        plist_t date = plist_dict_get_item(version, "d");
        out.push_back(EditVersion{
            .part = part,
            .date = date ? versionDate(date) : Date{},
            .text = versionText(plist_dict_get_item(version, "t")),
        });
    }
}

}  // namespace

std::vector<EditVersion> editHistory(std::string_view summaryInfo) {
    const PlistPtr root = parse(summaryInfo);
    if (!root || plist_get_node_type(root.get()) != PLIST_DICT) return {};
    plist_t parts = plist_dict_get_item(root.get(), "ec");
    if (!parts || plist_get_node_type(parts) != PLIST_DICT) return {};

    // Part keys are part indexes written as text. They are looked up by number rather than
    // iterated: the library aborts when iteration meets a key with a NUL inside. Looking up in
    // ascending order also gives the numeric sort.
    const uint32_t keys = plist_dict_get_size(parts);
    std::vector<EditVersion> history;
    uint32_t found = 0;
    for (int part = 0; part < maxParts && found < keys; ++part) {
        if (plist_t versions = plist_dict_get_item(parts, std::to_string(part).c_str())) {
            ++found;
            appendVersions(history, part, versions);
        }
    }
    return history;
}

}  // namespace bc::messages
