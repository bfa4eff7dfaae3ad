#pragma once

#include <optional>
#include <string>
#include <vector>

namespace bc {

class CancelFlag;

// Runs an external tool (ffmpeg, afconvert, hdiutil…) without a shell.
struct ProcessRequest {
    std::string executable;  // absolute path, or a name looked up on PATH
    std::vector<std::string> arguments;
    std::string standardInput;  // written through a pipe, then closed
    double timeoutSeconds = 120;
    const CancelFlag* cancel = nullptr;
};

struct ProcessResult {
    int exitStatus = -1;  // the exit code; -1 when killed by a signal or a time-out
    bool timedOut = false;
    std::string standardOutput;
    std::string standardError;
    bool succeeded() const { return exitStatus == 0 && !timedOut; }
};

// Throws Error when the program can't be started and CancelledError when cancelled
// (the child is killed either way). A time-out kills the child and is reported in the result.
ProcessResult runProcess(const ProcessRequest& request);

// Absolute path of an executable found on PATH, if any.
std::optional<std::string> findExecutable(const std::string& name);

}  // namespace bc
