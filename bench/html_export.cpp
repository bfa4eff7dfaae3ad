// The HTML archive at scale: messages per second for a 100,000-message conversation, how fast
// its page opens in headless Chromium, and attachment copying with verification against
// `cp` followed by `sha256sum` on the same files.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>

#include "export/HTMLExporter.h"
#include "export/html/Attachments.h"
#include "support/DateFormat.h"
#include "support/Files.h"
#include "support/Process.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

struct Scratch {
    fs::path path;
    Scratch() {
        std::string pattern = (fs::temp_directory_path() / "bc-bench-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
        path = pattern;
    }
    ~Scratch() { fs::remove_all(path); }
};

std::string name(bool fromMe, const std::string& handle) {
    return fromMe ? "Me" : "Ann " + handle;
}

// About 70 messages a day over four years, with the texts, replies and reactions of a real
// conversation.
bc::Transcript conversation(int count) {
    static const char* texts[] = {
        "Running late, see you at 7?",
        "Sure. Did you talk to the landlord about the deposit?",
        "He said the deposit comes back once the keys are returned — https://example.com/lease",
        "Ok 👍",
        "Can you send me the photos of the flat from Sunday? The ones with the kitchen & the "
        "bathroom <before> we moved out.",
        "I'll check tonight"};
    std::mt19937 random(7);
    bc::Transcript t;
    t.messages.reserve(count);
    bc::Date date = *bc::dates::parseIso8601("2021-01-04T08:00:00Z");
    for (int i = 1; i <= count; ++i) {
        date = date + std::uniform_real_distribution<double>(60, 2400)(random);
        bc::Message m;
        m.id = i;
        m.guid = "GUID-" + std::to_string(i);
        m.date = date;
        m.isFromMe = i % 2 == 0;
        m.sender = m.isFromMe ? "" : "+15551234567";
        m.text = texts[i % 6];
        m.textAsStored = m.text;
        m.chatID = 1;
        m.dateDelivered = date + 2;
        if (m.isFromMe) m.dateRead = date + 30;
        if (i % 25 == 0) m.replyToGUID = "GUID-" + std::to_string(i - 3);
        if (i % 9 == 0) m.reactions = {{.emoji = "❤️", .sender = "+15551234567"}};
        t.messages.push_back(std::move(m));
    }
    return t;
}

bc::HTMLExporter exporter() {
    return bc::HTMLExporter({.title = "Ann", .participants = {"Ann"}, .sourceDescription = "bench"},
                            name, {}, {});
}

void setUp() {
    bc::dates::setCurrentLocale("en_US");
    bc::dates::setCurrentTimeZone("America/New_York");
}

void htmlArchive(benchmark::State& state) {
    setUp();
    const auto transcript = conversation(static_cast<int>(state.range(0)));
    const auto archive = exporter();
    bc::CancelFlag cancel;
    for (auto _ : state) {
        Scratch scratch;
        benchmark::DoNotOptimize(
            archive.exportTranscript(transcript, scratch.path / "a", cancel, nullptr));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

std::optional<std::string> chromium() {
    for (const char* candidate : {"chromium", "chromium-browser", "google-chrome"}) {
        if (auto found = bc::findExecutable(candidate)) return found;
    }
    return std::nullopt;
}

// Time from navigation start until the first day is laid out, by the page's own clock, and the
// whole browser run around it.
void pageOpensInChromium(benchmark::State& state) {
    setUp();
    const auto browser = chromium();
    if (!browser) {
        state.SkipWithError("Chromium is not installed");
        return;
    }
    Scratch scratch;
    bc::CancelFlag cancel;
    const auto summary = exporter().exportTranscript(conversation(static_cast<int>(state.range(0))),
                                                     scratch.path / "a", cancel, nullptr);
    std::string page = bc::files::readFile(summary.htmlURL);
    page.insert(
        page.rfind("</body>"),
        "<script>const first = document.querySelector('section.day');"
        "const firstTop = first.getBoundingClientRect().top;"
        "document.body.insertAdjacentHTML('beforeend', '<pre id=\"opened\">' + "
        "performance.now().toFixed(0) + ' ' + (firstTop < innerHeight) + '</pre>');</script>");
    bc::files::writeFileAtomically(scratch.path / "a/open.html", page);
    double pageMs = 0;
    for (auto _ : state) {
        Scratch profile;
        const auto result = bc::runProcess(
            {.executable = *browser,
             .arguments = {"--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
                           "--no-first-run", "--disable-background-networking",
                           "--disable-component-update", "--disable-sync",
                           "--user-data-dir=" + profile.path.string(), "--dump-dom",
                           "file://" + (scratch.path / "a/open.html").string()},
             .timeoutSeconds = 120});
        const auto at = result.standardOutput.rfind("<pre id=\"opened\">");
        if (at == std::string::npos ||
            result.standardOutput.find(" true</pre>", at) == std::string::npos) {
            state.SkipWithError("the first day was not shown");
            return;
        }
        pageMs = std::stod(result.standardOutput.substr(at + 17));
    }
    state.counters["first_day_ms"] = pageMs;
    state.counters["page_MB"] = static_cast<double>(page.size()) / 1e6;
}

// Attachments as a phone leaves them: many photos, a few videos.
std::vector<fs::path> attachmentFiles(const fs::path& folder) {
    std::vector<fs::path> files;
    std::mt19937_64 random(3);
    fs::create_directories(folder);
    for (int i = 0; i < 120; ++i) {
        const size_t size = i % 30 == 0 ? (24 << 20) : (2 << 20);
        std::string bytes(size, '\0');
        for (size_t k = 0; k + 8 <= size; k += 8) {
            const uint64_t v = random();
            std::memcpy(bytes.data() + k, &v, 8);
        }
        files.push_back(folder / ("IMG_" + std::to_string(i) + ".jpg"));
        std::ofstream(files.back(), std::ios::binary) << bytes;
    }
    return files;
}

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void copyAndVerifyAgainstCpAndSha256sum(benchmark::State& state) {
    Scratch scratch;
    const auto sources = attachmentFiles(scratch.path / "src");
    bc::CancelFlag cancel;
    double ours = 0, tools = 0;
    for (auto _ : state) {
        fs::remove_all(scratch.path / "ours");
        fs::remove_all(scratch.path / "cp");
        fs::create_directories(scratch.path / "ours/attachments");
        auto start = Clock::now();
        int64_t id = 0;
        for (const auto& source : sources) {
            const bc::Attachment a{.id = ++id, .path = source.string(), .name = "x.jpg"};
            benchmark::DoNotOptimize(bc::html::copyAttachment(a, 1, scratch.path / "ours", cancel));
        }
        ours = secondsSince(start);
        start = Clock::now();
        const auto result = bc::runProcess(
            {.executable = "/bin/sh",
             .arguments = {"-c", "cp -r \"$0/src\" \"$0/cp\" && sha256sum \"$0\"/cp/* > /dev/null",
                           scratch.path.string()}});
        tools = secondsSince(start);
        if (!result.succeeded()) state.SkipWithError("cp or sha256sum failed");
    }
    state.counters["ours_s"] = ours;
    state.counters["cp_sha256sum_s"] = tools;
    state.counters["ratio"] = ours / tools;
    state.SetBytesProcessed(state.iterations() * 8 * (24 << 20) / 2 +
                            state.iterations() * 116 * (2 << 20));
}

}  // namespace

BENCHMARK(htmlArchive)->Arg(100'000)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(pageOpensInChromium)->Arg(100'000)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(copyAndVerifyAgainstCpAndSha256sum)->Unit(benchmark::kMillisecond)->Iterations(3);
