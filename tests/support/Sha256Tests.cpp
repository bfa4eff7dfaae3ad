#include <gtest/gtest.h>

#include "support/CancelFlag.h"
#include "support/Process.h"
#include "support/Sha256.h"
#include "testing/Testing.h"

namespace bc {
namespace {

TEST(Sha256, KnownDigestsOfBytes) {
    EXPECT_EQ(Sha256::hex(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(Sha256::hex("abc"),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(Sha256, FileDigestMatchesSha256sumAcrossChunkBoundaries) {
    testing::TempDir dir;
    // Just over two chunks, with every byte value, so a chunking fault changes the digest.
    std::string bytes;
    for (size_t i = 0; i < 2 * Sha256::chunkSize + 17; ++i)
        bytes += static_cast<char>(i * 31 % 251);
    testing::writeText(dir / "data.bin", bytes);

    const auto result =
        runProcess({.executable = "sha256sum", .arguments = {(dir / "data.bin").string()}});
    ASSERT_TRUE(result.succeeded());
    EXPECT_EQ(Sha256::hexOfFile(dir / "data.bin"), result.standardOutput.substr(0, 64));
    EXPECT_EQ(Sha256::hexOfFile(dir / "data.bin"), Sha256::hex(bytes));
}

TEST(Sha256, MissingFileAndCancellationAreErrors) {
    testing::TempDir dir;
    EXPECT_THROW(Sha256::hexOfFile(dir / "absent"), Error);
    testing::writeText(dir / "x", "x");
    CancelFlag cancel;
    cancel.cancel();
    EXPECT_THROW(Sha256::hexOfFile(dir / "x", &cancel), CancelledError);
}

}  // namespace
}  // namespace bc
