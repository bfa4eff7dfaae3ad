#include <gtest/gtest.h>

#include "export/Exhibit.h"
#include "sources/CallHistory.h"

namespace bc {
namespace {

// Rows 1…20, one minute apart; the rows named in `calls` are call-log rows.
ExportJob conversation(const std::set<int64_t>& calls = {}) {
    ExportJob whole{.title = "Anne", .participants = {"Anne"}, .chatIDs = {1}};
    whole.rangeDescription = "Entire conversation";
    for (int64_t id = 1; id <= 20; ++id) {
        Message message{.id = id, .guid = "g" + std::to_string(id), .date = Date{id * 60.0}};
        if (calls.contains(id)) message.call = CallInfo{.recordID = id};
        message.text = "row " + std::to_string(id);
        whole.messages.push_back(message);
    }
    whole.transcript.messages = whole.messages;
    return whole;
}

EvidenceFlagMap flagsOn(const std::vector<int64_t>& ids) {
    EvidenceFlagMap flags;
    for (const int64_t id : ids) {
        const std::string guid = "g" + std::to_string(id);
        flags[guid] = {.guid = guid, .messageID = id, .chatID = 1, .note = "note " + guid};
    }
    return flags;
}

std::vector<int64_t> idsOf(const ExportJob& job) {
    std::vector<int64_t> ids;
    for (const auto& message : job.messages) ids.push_back(message.id);
    return ids;
}

ExhibitRequest request(int before, int after) {
    return {.id = "R", .contextBefore = before, .contextAfter = after};
}

TEST(Exhibit, ContextWindowsJoinWhenTheyOverlapOrTouchAndGapsAreCounted) {
    const ExportJob job =
        exhibit::makeJob(request(2, 1), conversation({10}), flagsOn({5, 7, 11, 15}));
    // 3–6 and 5–8 overlap, 9–12 touches 8 and 13–16 touches 12: one stretch, no gap row inside.
    EXPECT_EQ(idsOf(job), (std::vector<int64_t>{3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}));
    EXPECT_EQ(job.pageOptions.omittedBefore, (std::map<int64_t, int64_t>{{3, 2}}));
    EXPECT_TRUE(job.pageOptions.omittedCallsBefore.empty());
    EXPECT_EQ(job.pageOptions.highlighted, (std::set<int64_t>{5, 7, 11, 15}));
    EXPECT_EQ(job.rangeDescription,
              "4 flagged items with context \u00b7 Entire conversation \u00b7 4 later messages "
              "not included");

    const ExportJob apart = exhibit::makeJob(request(1, 1), conversation({10}), flagsOn({5, 13}));
    EXPECT_EQ(idsOf(apart), (std::vector<int64_t>{4, 5, 6, 12, 13, 14}));
    EXPECT_EQ(apart.pageOptions.omittedBefore, (std::map<int64_t, int64_t>{{4, 3}, {12, 4}}));
    EXPECT_EQ(apart.pageOptions.omittedCallsBefore, (std::map<int64_t, int64_t>{{12, 1}}));
    EXPECT_EQ(apart.recordOptions.at("Omitted"),
              "7 messages and 1 calls not shown (marked where they occur)");

    // A flag at either end has no window beyond the conversation, and nothing is left out there.
    const ExportJob ends = exhibit::makeJob(request(3, 3), conversation(), flagsOn({1, 20}));
    EXPECT_EQ(idsOf(ends), (std::vector<int64_t>{1, 2, 3, 4, 17, 18, 19, 20}));
    EXPECT_EQ(ends.rangeDescription, "2 flagged items with context \u00b7 Entire conversation");
}

TEST(Exhibit, RequestFillsThePageAndRecordOptions) {
    ExhibitRequest asked = request(0, 0);
    asked.batesPrefix = "SMITH";
    asked.batesStart = 41;
    asked.includeNotes = true;
    asked.redactionTerms = "Anne\n  \nBob \n";
    asked.redactContactDetails = true;
    asked.format = RangeExportFormat::jpg;
    asked.settings = {PageExporter::Paper::a4, 300};
    const ExportJob job = exhibit::makeJob(asked, conversation(), flagsOn({2}));
    EXPECT_EQ(job.title, "Flagged messages");
    EXPECT_EQ(job.action, "exhibit");
    EXPECT_EQ(job.format, RangeExportFormat::jpg);
    EXPECT_EQ(job.settings, asked.settings);
    EXPECT_EQ(idsOf(job), std::vector<int64_t>{2});
    const auto& options = job.pageOptions;
    EXPECT_EQ(options.exhibitLabel, "Exhibit A");
    EXPECT_EQ(options.batesPrefix, "SMITH");
    EXPECT_EQ(options.batesStart, 41);
    EXPECT_EQ(options.batesDigits, 6);
    EXPECT_EQ(options.redactor.terms(), (std::vector<std::string>{"Anne", "Bob"}));
    EXPECT_EQ(options.notes, (std::map<int64_t, std::string>{{2, "note g2"}}));
    EXPECT_EQ(job.recordOptions,
              (std::map<std::string, std::string>{
                  {"Exhibit", "Exhibit A"},
                  {"Context", "0 before, 0 after"},
                  {"Omitted", "1 messages and 0 calls not shown (marked where they occur)"},
                  {"Private notes", "included"},
                  {"Redaction",
                   "2 terms + phone numbers and emails; the unredacted record is "
                   "unchanged"}}));

    ExhibitRequest plain = request(1, 1);
    plain.label = "";
    plain.redactionTerms = "Anne";
    plain.includeCertificate = false;
    const ExportJob bare = exhibit::makeJob(plain, conversation(), flagsOn({2}));
    EXPECT_EQ(bare.pageOptions.exhibitLabel, std::nullopt);
    EXPECT_EQ(bare.pageOptions.batesPrefix, std::nullopt);
    EXPECT_TRUE(bare.pageOptions.notes.empty());
    EXPECT_FALSE(bare.includeCertificatePage);
    EXPECT_EQ(bare.recordOptions.at("Exhibit"), "(none)");
    EXPECT_EQ(bare.recordOptions.at("Private notes"), "not included");
    EXPECT_EQ(bare.recordOptions.at("Redaction"), "1 term; the unredacted record is unchanged");

    // Without redaction there is no "Redaction" key, so the certificate carries no warning.
    EXPECT_FALSE(exhibit::makeJob(request(1, 1), conversation(), flagsOn({2}))
                     .recordOptions.contains("Redaction"));
}

TEST(Exhibit, LabelAndFileNameNeverShowARedactedTerm) {
    ExhibitRequest asked = request(0, 0);
    asked.label = "Exhibit A – Anne";
    asked.redactionTerms = "anne";
    EXPECT_EQ(exhibit::makeJob(asked, conversation(), flagsOn({2})).recordOptions.at("Exhibit"),
              std::string("Exhibit A – ") + Redactor::block);
    EXPECT_EQ(asked.baseName().find("Anne"), std::string::npos) << asked.baseName();
    asked.label = "  ";
    EXPECT_EQ(asked.baseName(), "Flagged messages");
}

TEST(Exhibit, SummaryCountsTheFlags) {
    EXPECT_EQ(exhibit::flaggedCount(conversation({3}).messages, flagsOn({2, 3, 9, 40})), 2);
    ExhibitRequest asked{.flaggedCount = 12};
    EXPECT_EQ(asked.summary(),
              "12 flagged messages, each shown with surrounding messages so nothing is out of "
              "context.");
    asked.flaggedCount = 1;
    EXPECT_EQ(asked.summary(),
              "1 flagged message, each shown with surrounding messages so nothing is out of "
              "context.");
}

TEST(Exhibit, NextBatesNumberContinuesTheSamePrefix) {
    const auto withBates = [](std::string range) {
        return CustodyRecord{.options = {{"Bates", std::move(range)}}};
    };
    const std::vector<CustodyRecord> records{
        withBates("SMITH000001\u2013SMITH000004"), withBates("JONES000001\u2013JONES000050"),
        withBates("SMITH000005\u2013SMITH000009"), withBates("SMITHX000001\u2013SMITHX000100"),
        CustodyRecord{}};
    EXPECT_EQ(exhibit::nextBatesNumber("SMITH", records), 10);
    EXPECT_EQ(exhibit::nextBatesNumber("JONES", records), 51);
    EXPECT_EQ(exhibit::nextBatesNumber("DOE", records), 1);
}

}  // namespace
}  // namespace bc
