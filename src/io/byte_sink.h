// Where a writer puts its bytes: a file, a pipe, a compressor before either.
#pragma once

#include <span>

#include "base/status.h"

namespace povmesh {

class ByteSink {
public:
    ByteSink() = default;
    virtual ~ByteSink() = default;
    ByteSink(const ByteSink&) = delete;
    ByteSink& operator=(const ByteSink&) = delete;

    /// Appends; after a failed write everything further, `commit` included, fails with the same
    /// status.
    virtual Status write(std::span<const char> bytes) = 0;

    /// Ends the content. A target that is not committed is as it was.
    virtual Status commit() = 0;
};

}  // namespace povmesh
