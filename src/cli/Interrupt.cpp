#include "cli/Interrupt.h"

#include <csignal>
#include <thread>

#include <unistd.h>

namespace bc::cli {

namespace {

int wakePipe[2] = {-1, -1};
volatile std::sig_atomic_t requests = 0;

// Only async-signal-safe calls here; the watcher thread does the rest.
extern "C" void onInterrupt(int) {
    requests = requests + 1;
    if (requests > 1) ::_exit(130);
    const char byte = 1;
    [[maybe_unused]] const auto written = ::write(wakePipe[1], &byte, 1);
}

}  // namespace

std::shared_ptr<CancelFlag> cancelOnInterrupt() {
    auto cancel = std::make_shared<CancelFlag>();
    if (::pipe(wakePipe) != 0) return cancel;  // no pipe: signals keep their default effect
    std::thread([cancel] {
        char byte = 0;
        if (::read(wakePipe[0], &byte, 1) == 1) cancel->cancel();
    }).detach();
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
    return cancel;
}

}  // namespace bc::cli
