// What an operation tells a person beyond its numbers.
#pragma once

#include <string>
#include <vector>

namespace povmesh {

struct Remarks {
    std::vector<std::string> warnings;  // of the result, without the file
    // Why the result, though there is one, is not to be trusted.
    std::vector<std::string> doubts;
};

}  // namespace povmesh
