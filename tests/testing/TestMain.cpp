#include <gtest/gtest.h>

#include "support/DateFormat.h"

// Every test program runs in one known locale and time zone, whatever the machine's are.
int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    bc::dates::setCurrentLocale("en_US");
    bc::dates::setCurrentTimeZone("America/New_York");
    return RUN_ALL_TESTS();
}
