#include "cli/PasswordInput.h"

#include <termios.h>
#include <unistd.h>

namespace bc::cli {

namespace {

// Echo off for as long as it lives; the terminal is put back even on an early return.
class HiddenInput {
public:
    HiddenInput() : active_(::tcgetattr(STDIN_FILENO, &saved_) == 0) {
        if (!active_) return;
        termios quiet = saved_;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    }
    ~HiddenInput() {
        if (active_) ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved_);
    }
    HiddenInput(const HiddenInput&) = delete;
    HiddenInput& operator=(const HiddenInput&) = delete;

private:
    termios saved_{};
    bool active_;
};

}  // namespace

std::string askHidden(std::istream& in, std::ostream& err, const char* prompt) {
    err << prompt << std::flush;
    const HiddenInput hidden;
    std::string line;
    std::getline(in, line);
    err << "\n";
    return line;
}

}  // namespace bc::cli
