#include "cli/CommandLine.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <set>
#include <string>
#include <vector>

#include "cli/Arguments.h"
#include "cli/Benchmark.h"
#include "cli/CommandLineAnalysis.h"
#include "cli/CommandLineBackupImport.h"
#include "cli/CommandLineExport.h"
#include "cli/CommandLineImport.h"
#include "cli/CommandLineSearch.h"
#include "cli/CounselCommands.h"
#include "cli/Interrupt.h"
#include "custody/CustodySystemInfo.h"

namespace bc::cli {

namespace {

constexpr std::string_view help =
    "Usage:\n"
    "  brindlecourt --export-html --chats 1,123 --title \"Name\" --out <folder>\n"
    "               [--from yyyy-mm-dd] [--to yyyy-mm-dd] [--format pdf|jpg]\n"
    "               [--paper letter|a4] [--dpi 144|300]\n"
    "               [--bates-prefix SMITH] [--bates-start N] [--bates-digits N]\n"
    "  brindlecourt --export-html --exhibit --chats 1,123 --out <folder> [--label \"Exhibit A\"]\n"
    "               [--context-before N] [--context-after N] [--redact TERM]...\n"
    "               [--redact-contact-details] [--include-notes] [--no-certificate]\n"
    "               [--format pdf|jpg] and the page options above\n"
    "  brindlecourt --export-html --snapshot [--chats 1,123] [--scope \"Label\"]\n"
    "  brindlecourt --export-html --verify-snapshots\n"
    "  brindlecourt --import FILE [--chat-name NAME] [--owner NAME] [--time-zone ZONE]\n"
    "               [--day-first|--month-first]\n"
    "  brindlecourt --import BACKUP_FOLDER\n"
    "               (an iPhone backup; an encrypted one's password is read from standard input)\n"
    "  brindlecourt --list-sources\n"
    "  brindlecourt --search TEXT [--chats 1,123] [--from yyyy-mm-dd] [--to yyyy-mm-dd]\n"
    "               [--sender anyone|me|others] [--attachments-only] [--deleted-only]\n"
    "               [--machine-text] [--out <folder> [--format pdf|jpg|html|csv]]\n"
    "  brindlecourt --analyze --chats 1,123 [--source SOURCE] [--whisper-model FILE]\n"
    "               (reads text in photos and transcribes voice messages on this computer)\n"
    "  brindlecourt --statement --chats 1,123 --out <file.docx> [--source SOURCE]\n"
    "  brindlecourt --bundle --title \"Title\" --out <file.zip> <item>...\n"
    "               (the bundle's password is read from standard input)\n"
    "  brindlecourt --benchmark [--generate <messages>]\n"
    "  brindlecourt [--demo] [FILE]     open the window (on FILE: a Messages database, or a\n"
    "                                   WhatsApp chat export or ChatStorage file to import)\n"
    "\n"
    "  --source SOURCE   export from messages, whatsapp, snapshot:ID or import:ID[/whatsapp], as\n"
    "                    --list-sources prints them (--statement also takes a snapshot folder)\n"
    "  --database PATH   read this Messages database or WhatsApp ChatStorage file instead of\n"
    "                    the live Messages database\n"
    "  --demo            use the generated sample data; every store goes to the demo folder\n"
    "  --version         print the program's version and build\n"
    "  --help            print this text\n";

const std::set<std::string> optionsWithValue{"--chats",
                                             "--title",
                                             "--out",
                                             "--from",
                                             "--to",
                                             "--format",
                                             "--scope",
                                             "--database",
                                             "--generate",
                                             "--paper",
                                             "--dpi",
                                             "--bates-prefix",
                                             "--bates-start",
                                             "--bates-digits",
                                             "--label",
                                             "--context-before",
                                             "--context-after",
                                             "--redact",
                                             "--source",
                                             "--search",
                                             "--sender",
                                             "--whisper-model"};
const std::set<std::string> flags{"--export-html",
                                  "--snapshot",
                                  "--verify-snapshots",
                                  "--benchmark",
                                  "--demo",
                                  "--version",
                                  "--help",
                                  "-h",
                                  "--exhibit",
                                  "--redact-contact-details",
                                  "--include-notes",
                                  "--no-certificate",
                                  "--statement",
                                  "--attachments-only",
                                  "--deleted-only",
                                  "--machine-text",
                                  "--analyze"};
const std::set<std::string> importOptionsWithValue{"--import", "--chat-name", "--owner",
                                                   "--time-zone"};
const std::set<std::string> importFlags{"--list-sources", "--day-first", "--month-first"};

// A desktop opens a chosen file with the program as "brindlecourt FILE": the window opens it.
bool opensFileInWindow(const Arguments& arguments) {
    const auto& items = arguments.items();
    const auto isFile = [](const std::string& item) {
        std::error_code error;
        return !item.starts_with("-") && std::filesystem::is_regular_file(item, error);
    };
    const auto files = std::count_if(items.begin(), items.end(), isFile);
    const auto demo = std::count(items.begin(), items.end(), std::string("--demo"));
    return files == 1 && files + demo == static_cast<long>(items.size());
}

// The first argument that is neither a known option nor the value after one.
std::optional<std::string> unknownOption(const Arguments& arguments) {
    const auto& items = arguments.items();
    for (size_t i = 0; i < items.size(); ++i) {
        if (optionsWithValue.contains(items[i]) || importOptionsWithValue.contains(items[i])) {
            ++i;
            continue;
        }
        if (!flags.contains(items[i]) && !importFlags.contains(items[i])) return items[i];
    }
    return std::nullopt;
}

}  // namespace

std::optional<int> run(int argc, char** argv, std::ostream& out, std::ostream& err) {
    const Arguments arguments(std::vector<std::string>(argv + 1, argv + argc));
    if (arguments.empty()) return std::nullopt;
    if (arguments.contains("--help") || arguments.contains("-h")) {
        out << help;
        return 0;
    }
    if (arguments.contains("--version")) {
        out << "Brindlecourt " << custodySystemInfo::appVersion() << "\n";
        return 0;
    }
    // Its items are plain paths, which the general option check would refuse.
    if (arguments.contains("--bundle")) {
        const auto cancel = cancelOnInterrupt();
        return CounselCommands(arguments, std::cin, out, err, *cancel).bundle();
    }
    if (opensFileInWindow(arguments)) return std::nullopt;
    if (const auto unknown = unknownOption(arguments)) {
        err << "Unknown option " << *unknown << ".\n" << help;
        return 2;
    }
    if (arguments.contains("--statement")) {
        const auto cancel = cancelOnInterrupt();
        return CounselCommands(arguments, std::cin, out, err, *cancel).statement();
    }
    if (arguments.contains("--benchmark")) return Benchmark(arguments, out, err).run();
    if (CommandLineBackupImport::names(arguments)) {
        const auto cancel = cancelOnInterrupt();
        return CommandLineBackupImport(arguments, std::cin, out, err, *cancel).run();
    }
    if (arguments.contains("--import") || arguments.contains("--list-sources")) {
        const auto cancel = cancelOnInterrupt();
        CommandLineImport imports(arguments, out, err, *cancel);
        return arguments.contains("--import") ? imports.importFile() : imports.listSources();
    }
    if (arguments.contains("--analyze")) {
        const auto cancel = cancelOnInterrupt();
        return CommandLineAnalysis(arguments, out, err, *cancel).run();
    }
    if (arguments.contains("--search")) {
        const auto cancel = cancelOnInterrupt();
        return CommandLineSearch(arguments, out, err, *cancel).run();
    }
    if (arguments.contains("--export-html")) {
        const auto cancel = cancelOnInterrupt();
        return CommandLineExport(arguments, out, err, *cancel).run();
    }
    // Snapshot commands act only beside --export-html; without it the window opens, as it
    // always has, and the note says why nothing else happened.
    if (arguments.contains("--snapshot") || arguments.contains("--verify-snapshots"))
        err << "Note: --snapshot and --verify-snapshots run only together with --export-html; "
               "opening the window.\n";
    return std::nullopt;
}

}  // namespace bc::cli
