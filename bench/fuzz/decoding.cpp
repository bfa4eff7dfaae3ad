// libFuzzer target for the two decoders that read untrusted bytes from a Messages database:
// the archived attributed string and the edit-history property list. `make fuzz` builds it with
// clang and runs it on the seeds in corpus/ (taken from the sample database of demo mode).
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "sources/EditHistory.h"
#include "sources/MessageDecoding.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    if (const auto text = bc::messages::decodeAttributedBody(bytes)) {
        // The decoded text always lies within the input.
        if (text->size() > size * 3) __builtin_trap();
    }
    for (const auto& version : bc::messages::editHistory(bytes)) {
        if (version.part < 0) __builtin_trap();
    }
    return 0;
}
