// A job whose texts and progress are kept.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "run/run_context.h"

namespace povmesh {

struct Job {
    std::string text;
    std::string progress;
    ProgressObserver observer = [this](std::uint32_t percent) {
        progress += std::to_string(percent) + " ";
    };
    RunLog log{[this](std::string_view t) { text += t; }};
    RunContext run{Progress(nullptr, &observer), log};
};

}  // namespace povmesh
