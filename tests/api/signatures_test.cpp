// The exported functions: names and types as promised, in the header and for the linker.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "calls.h"
#include "exports.h"

extern "C" int count_exports_in_c(void);

namespace povmesh {
namespace {

// The symbols of the shared library are held against the map by a test of their own.
TEST(Exports, AreThoseOfTheLinkerMapForCAndForCpp) {
    std::vector<std::string> mapped;
    std::ifstream map(POVMESH_SOURCE_FOLDER "/cmake/exports.map");
    for (std::string line; std::getline(map, line) && line != "local:";) {
        if (line.ends_with(";")) mapped.push_back(line.substr(4, line.size() - 5));
    }
#define NAME_OF(result, name, parameters) #name,
    const std::vector<std::string> promised = {POVMESH_FOR_EACH_EXPORT(NAME_OF)};
#undef NAME_OF
    EXPECT_THAT(mapped, testing::UnorderedElementsAreArray(promised));
    EXPECT_EQ(promised.size(), 51U);
    EXPECT_EQ(count_exports_in_c(), 51);
}

TEST(Exports, HeaderHasOneVersion) {
    EXPECT_EQ(POVMESH_VERSION, std::to_string(POVMESH_VERSION_MAJOR) + "." +
                                   std::to_string(POVMESH_VERSION_MINOR) + "." +
                                   std::to_string(POVMESH_VERSION_PATCH));
}

}  // namespace
}  // namespace povmesh
