#pragma once

#include <string>

#include "model/CustodyRecord.h"

// The certificate that explains one custody record to a reader who trusts none of our files.
namespace bc::certificate {

// Stand-alone beside an export, or embedded as a page inside one.
std::string text(const CustodyRecord& record, bool embedded);

}  // namespace bc::certificate
