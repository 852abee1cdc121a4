#include <gtest/gtest.h>

#include "signatures.h"

extern "C" int count_exports_in_c(void);

// The types are checked by compiling; the counts tell that no function is missing from the list.
TEST(Header, DeclaresEveryFunctionForCAndForCpp) {
    EXPECT_EQ(count_exports(), 51);
    EXPECT_EQ(count_exports_in_c(), 51);
}
