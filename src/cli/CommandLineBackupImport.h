#pragma once

#include <istream>
#include <optional>
#include <ostream>
#include <string>

#include "cli/Arguments.h"
#include "support/CancelFlag.h"

namespace bc::cli {

// `--import FOLDER` for an iPhone backup folder: seals its Messages, calls, contacts and
// WhatsApp as one import. An encrypted backup's password is read from standard input, never an
// argument. Statuses as CommandLineImport's.
class CommandLineBackupImport {
public:
    CommandLineBackupImport(Arguments arguments, std::istream& in, std::ostream& out,
                            std::ostream& err, const CancelFlag& cancel)
        : arguments_(std::move(arguments)), in_(in), out_(out), err_(err), cancel_(cancel) {}

    // Whether --import names a folder, which only a backup can be.
    static bool names(const Arguments& arguments);
    int run();

private:
    std::optional<std::string> password();

    Arguments arguments_;
    std::istream& in_;
    std::ostream& out_;
    std::ostream& err_;
    const CancelFlag& cancel_;
};

}  // namespace bc::cli
