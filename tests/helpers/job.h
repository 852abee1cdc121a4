// What runs report, kept: the one recorder of texts and progress values.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "run/run_context.h"

namespace povmesh {

struct Recorder {
    std::string text;                 // all texts, one behind another
    std::string progress;             // "10 30 "
    std::vector<std::string> events;  // texts and values in the order in which they came

    LogSink sink = [this](std::string_view more) {
        text += more;
        events.emplace_back(more);
    };
    ProgressObserver observer = [this](std::uint32_t percent) {
        events.push_back(std::to_string(percent));
        progress += events.back() + " ";
    };

    Recorder() = default;
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;
};

/// What an operation is handed, with a recorder behind it.
struct Job : Recorder {
    RunLog log{sink};
    RunContext run{Progress(nullptr, &observer), log};
};

}  // namespace povmesh
