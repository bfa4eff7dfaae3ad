#include "cli/CommandLineBackupImport.h"

#include <unistd.h>

#include <filesystem>
#include <iostream>

#include "cli/CommandLineImport.h"
#include "cli/PasswordInput.h"
#include "custody/Imports.h"
#include "demo/DemoStores.h"
#include "sources/IPhoneBackup.h"

namespace bc::cli {

namespace fs = std::filesystem;

bool CommandLineBackupImport::names(const Arguments& arguments) {
    const auto folder = arguments.value("--import");
    std::error_code error;
    return folder && fs::is_directory(*folder, error);
}

std::optional<std::string> CommandLineBackupImport::password() {
    if (&in_ == &std::cin && ::isatty(STDIN_FILENO))
        return askHidden(in_, err_, "Password of the iPhone backup: ");
    std::string line;
    if (!std::getline(in_, line)) return std::nullopt;
    return line;
}

int CommandLineBackupImport::run() {
    const fs::path folder = fs::absolute(*arguments_.value("--import"));
    try {
        if (arguments_.contains("--demo")) redirectStoresToDemo();
        const auto secret =
            IPhoneBackup::isEncrypted(folder) ? password() : std::optional<std::string>();
        const auto imported = Imports::importBackup(
            folder, secret, &cancel_, [&](const auto& text) { err_ << text << "\n"; });
        const ImportInfo& info = imported.info;
        out_ << "Done. " << info.id << " sealed at " << info.folder().string() << "\n";
        out_ << "  " << iphoneBackupImport::deviceText(info.backup->device) << "\n";
        out_ << "  messages: " << imported.messageCount << "\n";
        for (const auto& missing : info.backup->notInBackup)
            out_ << "  " << missing << ": " << IPhoneBackup::notInBackup << "\n";
        return CommandLineImport::custodyStatus(imported, err_);
    } catch (...) {
        err_ << "error: " << Imports::failureText(std::current_exception()) << "\n";
        return 1;
    }
}

}  // namespace bc::cli
