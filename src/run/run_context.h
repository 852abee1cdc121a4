// What an operation is handed to report with: a progress value and a log.
#pragma once

#include "run/progress.h"
#include "run/run_log.h"

namespace povmesh {

struct RunContext {
    Progress progress;
    RunLog& log;
};

}  // namespace povmesh
