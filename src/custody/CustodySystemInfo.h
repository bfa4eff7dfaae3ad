#pragma once

#include <string>
#include <string_view>

#include "model/CustodySystemInfo.h"

// This machine and program as every custody record and manifest names them.
namespace bc::custodySystemInfo {

// Read afresh on every call: the host name or the user's full name may change while running.
CustodySystemInfo current();

// "version (build)" of this build, e.g. "0.1.0 (248)".
std::string appVersion();
// An empty version is shown as "dev", an empty build number as "0".
std::string appVersion(std::string_view version, std::string_view build);

}  // namespace bc::custodySystemInfo
