// Drives the archive page's own script in headless Chromium: a small script is added to a copy
// of the exported page, clicks the page's buttons and types its keys, and leaves what it saw in
// the DOM, which Chromium prints.
#include <gtest/gtest.h>

#include <fstream>

#include "HTMLExporterSamples.h"
#include "evidence/Timeline.h"
#include "export/HTMLExporter.h"
#include "support/Files.h"
#include "support/Json.h"
#include "support/Process.h"
#include "testing/Testing.h"

namespace bc {
namespace {

namespace fs = std::filesystem;

const std::vector<std::string> dayKeys{"2023-01-31", "2023-02-01", "2023-03-15", "2024-01-31",
                                       "2024-02-29", "2024-03-04", "2024-03-10", "2024-03-11",
                                       "2024-03-12", "2025-03-01"};

constexpr const char* probe = R"JS(
(function () {
  const seen = [];
  const current = () => { const a = document.querySelector('#tree a[aria-current="true"]'); return a ? a.dataset.day : null; };
  const click = (selector) => { document.querySelector(selector).click(); seen.push(current()); };
  const button = (unit, step) => click('.controls button[data-unit="' + unit + '"][data-step="' + step + '"]');
  const key = (name, shift) => {
    document.dispatchEvent(new KeyboardEvent("keydown", { key: name, shiftKey: !!shift, bubbles: true }));
    seen.push(current());
  };
  const result = { opened: current() };
  setTimeout(function () {
    const top = document.getElementById("d-" + result.opened).getBoundingClientRect().top;
    const bar = document.querySelector("header.bar").offsetHeight;
    result.openedOnScreen = top >= bar - 2 && top < bar + 60;
    result.rendered = !document.querySelector("#d-" + result.opened + " script");
    button("month", 1); click("[data-latest]"); click("[data-first]");
    key("ArrowRight"); key("ArrowRight", true);
    const pick = document.getElementById("pick");
    pick.value = "2024-03-05"; pick.dispatchEvent(new Event("change")); seen.push(current());
    result.jumps = seen;
    result.days = Array.from(document.querySelectorAll("#tree a")).map(a => [a.dataset.day, Number(a.querySelector(".n").textContent)]);
    result.weeks = Array.from(document.querySelectorAll("#tree details details details > summary")).map(s => s.firstChild.textContent);
    result.matrix = [];  // every day × every unit × both directions, through the tree and buttons
    document.querySelectorAll("#tree a").forEach(function (link) {
      ["day", "week", "month", "year"].forEach(function (unit) {
        [-1, 1].forEach(function (step) {
          link.click();
          document.querySelector('.controls button[data-unit="' + unit + '"][data-step="' + step + '"]').click();
          result.matrix.push(current());
        });
      });
    });
    document.querySelector('a.reply').click();
    setTimeout(function () {
      const row = document.getElementById(document.querySelector("a.reply").getAttribute("href").slice(1)).getBoundingClientRect();
      result.replyTarget = current();
      result.replyCentred = Math.abs((row.top + row.bottom) / 2 - window.innerHeight / 2) < 80;
      const bar = document.querySelector("header.bar").offsetHeight;
      // A reader scrolls with the wheel, which tells the page to stop placing the reply.
      window.dispatchEvent(new WheelEvent("wheel"));
      window.scrollTo(0, window.scrollY + document.getElementById("d-2024-03-11").getBoundingClientRect().top - bar - 4);
      setTimeout(function () {
        // Headless Chromium draws few frames under virtual time, so the scroll event it would
        // send at the next frame is sent here.
        window.dispatchEvent(new Event("scroll"));
        result.scrolledTo = current();
        const out = document.createElement("pre");
        out.id = "probe";
        out.textContent = JSON.stringify(result);
        document.body.appendChild(out);
      }, 1500);
    }, 500);
  }, 500);
})();
)JS";

std::optional<std::string> chromium() {
    for (const char* name : {"chromium", "chromium-browser", "google-chrome"}) {
        if (auto found = findExecutable(name)) return found;
    }
    return std::nullopt;
}

// Exports `transcript` into `dir`/archive, adds `script` to a copy of the page, loads it and
// returns what the script recorded.
Json runProbe(const std::string& browser, const fs::path& dir, const Transcript& transcript,
              const std::string& script, const std::string& hash = "") {
    HTMLExporter exporter({.title = "Jumps"}, testing::nameFor, {}, {});
    CancelFlag cancel;
    const auto summary = exporter.exportTranscript(transcript, dir / "archive", cancel, nullptr);
    std::string page = files::readFile(summary.htmlURL);
    page.insert(page.rfind("</body>"), "<script src=\"probe.js\"></script>\n");
    testing::writeText(dir / "archive/probe.html", page);
    testing::writeText(dir / "archive/probe.js", script);

    testing::TempDir profile;
    const std::string url =
        "file://" + HTMLExporter::urlPath(fs::absolute(dir / "archive/probe.html").string()) + hash;
    const ProcessResult result = runProcess(
        {.executable = browser,
         .arguments = {"--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
                       "--no-first-run", "--disable-background-networking",
                       "--disable-component-update", "--disable-sync",
                       "--user-data-dir=" + profile.path().string(), "--window-size=1200,800",
                       "--virtual-time-budget=10000", "--dump-dom", url},
         .timeoutSeconds = 90});
    const std::string& dom = result.standardOutput;
    const auto start = dom.find("<pre id=\"probe\">");
    const auto end = dom.find("</pre>", start);
    if (!result.succeeded() || start == std::string::npos || end == std::string::npos)
        throw Error("Chromium gave no probe result: " + result.standardError.substr(0, 2000));
    return json::decode(dom.substr(start + 16, end - start - 16));
}

TEST(HTMLExporterBrowser, daysJumpsKeysHashAndRepliesWorkInChromium) {
    const auto browser = chromium();
    if (!browser) GTEST_SKIP() << "Chromium is not installed";
    testing::TempDir dir;
    Transcript transcript;
    int64_t id = 1;
    for (size_t day = 0; day < dayKeys.size(); ++day) {
        const Date noon = *dates::parseIso8601(dayKeys[day] + "T17:00:00Z");
        for (size_t n = 0; n <= day % 3; ++n)
            transcript.messages.push_back(testing::message(id++, noon + 60.0 * n, "row"));
    }
    transcript.messages.front().replyToGUID = transcript.messages.back().guid;
    const Json seen = runProbe(*browser, dir.path(), transcript, probe, "#d-2024-01-31");
    EXPECT_EQ(seen["opened"], "2024-01-31");
    EXPECT_EQ(seen["openedOnScreen"], true);
    EXPECT_EQ(seen["rendered"], true);
    // Every unit and direction from every day is in the matrix below; these are the other ways.
    const std::vector<std::string> expected{"2024-02-29", "2025-03-01", "2023-01-31",  // ›, ends
                                            "2023-02-01", "2023-03-15",  // → and Shift+→
                                            "2024-03-10"};               // date picker
    EXPECT_EQ(seen["jumps"].get<std::vector<std::string>>(), expected);

    Json days = Json::array();
    for (size_t day = 0; day < dayKeys.size(); ++day) days.push_back({dayKeys[day], day % 3 + 1});
    EXPECT_EQ(seen["days"], days);
    EXPECT_EQ(seen["weeks"].get<std::vector<std::string>>(),
              (std::vector<std::string>{"Week of 30 Jan", "Week of 30 Jan", "Week of 13 Mar",
                                        "Week of 29 Jan", "Week of 26 Feb", "Week of 4 Mar",
                                        "Week of 11 Mar", "Week of 24 Feb"}));
    EXPECT_EQ(seen["replyTarget"], "2025-03-01");
    EXPECT_EQ(seen["replyCentred"], true);
    EXPECT_EQ(seen["scrolledTo"], "2024-03-11") << seen.dump();

    // The page moves exactly as the application's timeline does.
    const Timeline timeline(transcript.messages);
    ASSERT_EQ(timeline.days.size(), dayKeys.size());
    std::vector<std::string> appJumps;
    for (size_t day = 0; day < dayKeys.size(); ++day)
        for (Timeline::Unit unit : Timeline::units)
            for (int step : {-1, 1})
                appJumps.push_back(dayKeys.at(*timeline.jump(day, unit, step)));
    EXPECT_EQ(seen["matrix"].get<std::vector<std::string>>(), appJumps);
}

TEST(HTMLExporterBrowser, longConversationRendersOnlyTheDaysNearTheScreen) {
    const auto browser = chromium();
    if (!browser) GTEST_SKIP() << "Chromium is not installed";
    testing::TempDir dir;
    Transcript transcript;
    for (int64_t id = 1; id <= 1200; ++id)
        transcript.messages.push_back(testing::message(id, testing::at(id * 28800.0), "row"));
    const Json seen = runProbe(*browser, dir.path(), transcript, R"JS(
      setTimeout(function () {
        const out = document.createElement("pre");
        out.id = "probe";
        out.textContent = JSON.stringify({
          sections: document.querySelectorAll("section.day").length,
          rendered: document.querySelectorAll("section.day.ready").length,
          firstRendered: document.querySelector("section.day").classList.contains("ready"),
          rows: document.querySelectorAll(".m").length});
        document.body.appendChild(out);
      }, 500);)JS");
    EXPECT_GE(seen["sections"].get<int>(), 400);
    EXPECT_EQ(seen["firstRendered"], true);
    EXPECT_LT(seen["rendered"].get<int>(), 40);
    EXPECT_GT(seen["rows"].get<int>(), 0);
    EXPECT_LE(seen["rows"].get<int>(), seen["rendered"].get<int>() * 3);
}

}  // namespace
}  // namespace bc
