// libFuzzer target for the two decoders that read untrusted bytes from a Messages database:
// the archived attributed string and the edit-history property list. Build and run (clang):
//   clang++ -std=c++20 -g -O1 -fsanitize=fuzzer,address,undefined -Isrc \
//     bench/fuzz/decoding.cpp src/sources/MessageDecoding.cpp src/sources/EditHistory.cpp \
//     src/support/Text.cpp src/support/Date.cpp src/support/DateFormat.cpp \
//     $(pkg-config --cflags --libs libplist-2.0 icu-i18n icu-uc) -o build/fuzz_decoding
//   build/fuzz_decoding -max_total_time=900 -max_len=4096 corpus/
#include <cstddef>
#include <cstdint>
#include <string_view>

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
