// The exported functions: names and types as promised, in the header and for the linker.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>
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
    std::erase_if(mapped, [](const std::string& name) { return name.starts_with("povmesh_"); });
    EXPECT_THAT(mapped, testing::UnorderedElementsAreArray(promised));
    EXPECT_EQ(promised.size(), 51U);
    EXPECT_EQ(count_exports_in_c(), 51);
}

// A function that is declared and not in the map could not be called. The defaults of options are
// functions of the header itself.
TEST(Exports, OfTheSecondInterfaceAreThoseOfItsHeader) {
    const auto words_of = [](const std::string& file, char end) {
        std::set<std::string> names;
        std::ifstream stream(file);
        const std::string text{std::istreambuf_iterator<char>(stream), {}};
        for (std::size_t i = text.find("povmesh_"); i != std::string::npos;
             i = text.find("povmesh_", i + 1)) {
            const std::size_t last = text.find_first_not_of("abcdefghijklmnopqrstuvwxyz_", i);
            const bool is_comment = text.compare(i, last - i, "povmesh_repair_defaults") == 0;
            if (last != std::string::npos && text[last] == end && !is_comment) {
                names.insert(text.substr(i, last - i));
            }
        }
        return names;
    };
    std::set<std::string> declared =
        words_of(POVMESH_SOURCE_FOLDER "/include/povmesh/context.h", '(');
    std::erase_if(declared, [](const std::string& name) { return name.ends_with("_defaults"); });
    EXPECT_EQ(words_of(POVMESH_SOURCE_FOLDER "/cmake/exports.map", ';'), declared);
    EXPECT_EQ(declared.size(), 50U);
}

TEST(Exports, HeaderHasOneVersion) {
    EXPECT_EQ(POVMESH_VERSION_TEXT, std::to_string(POVMESH_VERSION_MAJOR) + "." +
                                        std::to_string(POVMESH_VERSION_MINOR) + "." +
                                        std::to_string(POVMESH_VERSION_PATCH));
}

}  // namespace
}  // namespace povmesh
