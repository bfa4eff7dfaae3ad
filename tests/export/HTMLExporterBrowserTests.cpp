// The archive page in headless Chromium. Its own script: a small script is added to a copy of
// the exported page, clicks the page's buttons and types its keys, and leaves what it saw in the
// DOM, which Chromium prints. Without its script: the page is loaded into a frame that may not
// run scripts, printed to PDF and searched the way the browser's Find does.
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>

#include "HTMLExporterSamples.h"
#include "evidence/Timeline.h"
#include "export/HTMLExporter.h"
#include "export/html/Markup.h"
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
    result.laidOut = document.querySelector("#d-" + result.opened + " .m").checkVisibility({ contentVisibilityAuto: true });
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

// The page of `transcript` exported into `dir`/archive.
fs::path exportPage(const fs::path& dir, const Transcript& transcript) {
    HTMLExporter exporter({.title = "Jumps"}, testing::nameFor, {}, {});
    CancelFlag cancel;
    return exporter.exportTranscript(transcript, dir / "archive", cancel, nullptr).htmlURL;
}

std::string fileURL(const fs::path& file) {
    return "file://" + html::urlPath(fs::absolute(file).string());
}

// Chromium on its own fresh profile, with `arguments` after the ones every run needs.
ProcessResult runChromium(const std::string& browser, std::vector<std::string> arguments) {
    testing::TempDir profile;
    std::vector<std::string> all{"--headless",
                                 "--no-sandbox",
                                 "--disable-gpu",
                                 "--disable-quic",
                                 "--no-first-run",
                                 "--disable-background-networking",
                                 "--disable-component-update",
                                 "--disable-sync",
                                 "--user-data-dir=" + profile.path().string(),
                                 "--window-size=1200,800"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return runProcess({.executable = browser, .arguments = all, .timeoutSeconds = 180});
}

// Loads `file` (which leaves a <pre id="probe"> holding JSON) and returns that JSON.
Json probeResult(const std::string& browser, const fs::path& file, const std::string& hash = "",
                 std::vector<std::string> arguments = {}) {
    arguments.insert(arguments.end(),
                     {"--virtual-time-budget=10000", "--dump-dom", fileURL(file) + hash});
    const ProcessResult result = runChromium(browser, std::move(arguments));
    const std::string& dom = result.standardOutput;
    const auto start = dom.find("<pre id=\"probe\">");
    const auto end = dom.find("</pre>", start);
    if (!result.succeeded() || start == std::string::npos || end == std::string::npos)
        throw Error("Chromium gave no probe result: " + result.standardError.substr(0, 2000));
    return json::decode(dom.substr(start + 16, end - start - 16));
}

// Exports `transcript` into `dir`/archive, adds `script` to a copy of the page, loads it and
// returns what the script recorded.
Json runProbe(const std::string& browser, const fs::path& dir, const Transcript& transcript,
              const std::string& script, const std::string& hash = "") {
    std::string page = files::readFile(exportPage(dir, transcript));
    page.insert(page.rfind("</body>"), "<script src=\"probe.js\"></script>\n");
    testing::writeText(dir / "archive/probe.html", page);
    testing::writeText(dir / "archive/probe.js", script);
    return probeResult(browser, dir / "archive/probe.html", hash);
}

// Messages an hour apart, 24 a day, each with its own text: "row 1", "row 2", …
Transcript hourly(int64_t count) {
    Transcript transcript;
    for (int64_t id = 1; id <= count; ++id)
        transcript.messages.push_back(
            testing::message(id, testing::at(id * 3600.0), "row " + std::to_string(id)));
    return transcript;
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
    EXPECT_EQ(seen["laidOut"], true);
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

TEST(HTMLExporterBrowser, longConversationHoldsEveryRowButLaysOutOnlyTheDaysNearTheScreen) {
    const auto browser = chromium();
    if (!browser) GTEST_SKIP() << "Chromium is not installed";
    testing::TempDir dir;
    const Json seen = runProbe(*browser, dir.path(), hourly(1200), R"JS(
      setTimeout(function () {
        const rows = Array.from(document.querySelectorAll(".m"));
        const out = document.createElement("pre");
        out.id = "probe";
        out.textContent = JSON.stringify({
          sections: document.querySelectorAll("section.day").length,
          rows: rows.length,
          laidOut: rows.filter(r => r.checkVisibility({ contentVisibilityAuto: true })).length,
          firstLaidOut: rows[0].checkVisibility({ contentVisibilityAuto: true })});
        document.body.appendChild(out);
      }, 500);)JS");
    EXPECT_EQ(seen["sections"], 51);
    EXPECT_EQ(seen["rows"], 1200);
    EXPECT_EQ(seen["firstLaidOut"], true);
    EXPECT_GT(seen["laidOut"].get<int>(), 0);
    EXPECT_LE(seen["laidOut"].get<int>(), 24 * 4) << seen.dump();
}

TEST(HTMLExporterBrowser, withoutItsScriptEveryRowIsInThePageAndShown) {
    const auto browser = chromium();
    if (!browser) GTEST_SKIP() << "Chromium is not installed";
    testing::TempDir dir;
    Transcript transcript = hourly(300);
    transcript.messages.push_back(testing::callRow(9001, testing::at(301 * 3600.0), true));
    const fs::path page = exportPage(dir.path(), transcript);
    // A frame without "allow-scripts" runs none of the page's scripts; "allow-same-origin" lets
    // this page look inside it.
    testing::writeText(dir / "archive/probe.html",
                       "<iframe id=\"page\" sandbox=\"allow-same-origin\" "
                       "style=\"width:1000px;height:700px\" src=\"" +
                           html::urlPath(page.filename().string()) +
                           "\"></iframe><script src=\"probe.js\"></script>");
    testing::writeText(dir / "archive/probe.js", R"JS(
      const frame = document.getElementById("page");
      frame.addEventListener("load", function () {
        const doc = frame.contentDocument;
        const rows = Array.from(doc.querySelectorAll("section.day .m, section.day .sys"));
        const last = rows[rows.length - 1];
        const result = {
          scriptRan: doc.querySelectorAll("#tree a").length > 0,
          rows: rows.length,
          shown: rows.filter(r => r.checkVisibility({ visibilityProperty: true, opacityProperty: true })
            && r.textContent.trim() !== "").length,
          lastText: last.textContent};
        last.scrollIntoView();
        requestAnimationFrame(() => requestAnimationFrame(function () {
          result.lastLaidOut = last.checkVisibility({ contentVisibilityAuto: true });
          result.lastOnScreen = last.getBoundingClientRect().top < frame.clientHeight;
          const out = document.createElement("pre");
          out.id = "probe";
          out.textContent = JSON.stringify(result);
          document.body.appendChild(out);
        }));
      });)JS");
    const Json seen =
        probeResult(*browser, dir / "archive/probe.html", "", {"--allow-file-access-from-files"});
    EXPECT_EQ(seen["scriptRan"], false);
    EXPECT_EQ(seen["rows"], 301);
    EXPECT_EQ(seen["shown"], 301);
    EXPECT_NE(seen["lastText"].get<std::string>().find("call record 9001"), std::string::npos);
    EXPECT_EQ(seen["lastLaidOut"], true);
    EXPECT_EQ(seen["lastOnScreen"], true) << seen.dump();
}

// A large archive as a reader handles it in the browser: printed whole, and searched to its end.
class HTMLExporterBrowserLarge : public ::testing::Test {
protected:
    static constexpr int64_t messages = 3000;
    void SetUp() override {
        browser = chromium();
        if (!browser) GTEST_SKIP() << "Chromium is not installed";
        page = exportPage(dir.path(), hourly(messages));
    }
    std::optional<std::string> browser;
    testing::TempDir dir;
    fs::path page;
};

TEST_F(HTMLExporterBrowserLarge, printsEveryMessage) {
    const auto pdftotext = findExecutable("pdftotext");
    if (!pdftotext) GTEST_SKIP() << "pdftotext is not installed";
    const fs::path pdf = dir / "printed.pdf";
    const ProcessResult printed = runChromium(
        *browser, {"--no-pdf-header-footer", "--print-to-pdf=" + pdf.string(), fileURL(page)});
    ASSERT_TRUE(fs::exists(pdf)) << printed.standardError.substr(0, 2000);
    const ProcessResult text =
        runProcess({.executable = *pdftotext, .arguments = {"-layout", pdf.string(), "-"}});
    ASSERT_TRUE(text.succeeded()) << text.standardError;
    std::set<int64_t> found;
    static const std::regex row("\\brow (\\d+)\\b");
    for (std::sregex_iterator it(text.standardOutput.begin(), text.standardOutput.end(), row), end;
         it != end; ++it)
        found.insert(std::stoll((*it)[1]));
    EXPECT_EQ(found.size(), static_cast<size_t>(messages));
    EXPECT_EQ(*found.begin(), 1);
    EXPECT_EQ(*found.rbegin(), messages);
}

TEST_F(HTMLExporterBrowserLarge, findReachesTheLastMessage) {
    std::string withProbe = files::readFile(page);
    withProbe.insert(withProbe.rfind("</body>"), R"JS(<script>
      setTimeout(function () {
        const found = window.find("row 3000");
        const node = getSelection().anchorNode;
        const out = document.createElement("pre");
        out.id = "probe";
        out.textContent = JSON.stringify({ found: found,
          row: node ? node.parentElement.closest(".m").id : null });
        document.body.appendChild(out);
      }, 300);
    </script>)JS");
    testing::writeText(dir / "archive/find.html", withProbe);
    const Json seen = probeResult(*browser, dir / "archive/find.html");
    EXPECT_EQ(seen["found"], true);
    EXPECT_EQ(seen["row"], "m3000");
}

}  // namespace
}  // namespace bc
