#pragma once

#include <functional>
#include <string>
#include <vector>

#include "evidence/Analyzer.h"

namespace bc {

inline constexpr const char* nothingToAnalyse =
    "Every photo and voice message in this conversation has already been analysed.";

// What one run over the pending attachments came to.
struct AnalysisTally {
    int read = 0;     // text was found and stored
    int empty = 0;    // read, but nothing was recognised
    int failed = 0;   // could not be read: not an image, damaged, timed out…
    int skipped = 0;  // voice messages with no speech recognition to read them
    int missing = 0;  // the file went away; stays pending
    bool cancelled = false;
};

// Reads `pending` in order, storing each result in `texts` and handing the map to `save` as
// each arrives, so a cancelled run keeps what it read. One attachment's failure never stops
// the run; a failing save does (Error) since nothing more could be kept. `progress` gets the
// status line before each attachment.
AnalysisTally analyzeAttachments(const std::vector<Attachment>& pending, Analyzer& analyzer,
                                 MachineTextMap& texts,
                                 const std::function<void(const MachineTextMap&)>& save,
                                 const CancelFlag& cancel, const ProgressFn& progress);

// "Read 3 of 12 photos on this computer."
std::string analysisProgress(int done, const std::vector<Attachment>& pending);
// The end-of-run status line, beginning "Analysis stopped. " after a cancel.
std::string analysisSummary(const AnalysisTally& tally);

}  // namespace bc
