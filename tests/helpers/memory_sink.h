// Where tests and fuzz targets have writers put their bytes.
#pragma once

#include <span>
#include <string>

#include "io/byte_sink.h"

namespace povmesh {

class MemorySink final : public ByteSink {
public:
    Status write(std::span<const char> piece) override {
        bytes.append(piece.data(), piece.size());
        return {};
    }
    Status commit() override { return {}; }

    std::string bytes;
};

}  // namespace povmesh
