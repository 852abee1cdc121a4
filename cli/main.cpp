// The tool povmesh.
#include <algorithm>
#include <exception>
#include <new>
#include <stdexcept>
#include <string>

#include "base/convert.h"
#include "base/job_state.h"
#include "cli/command_line.h"
#include "cli/commands.h"
#include "cli/interrupt.h"
#include "cli/model.h"
#include "cli/platform.h"
#include "cli/recipe.h"
#include "job/phases.h"

namespace povmesh::cli {
namespace {

int print_step(const CommandLine& line, Console& console) {
    std::string text;
    const std::string error = step_text(*line.operation, line.arguments, text);
    if (error.empty()) {
        console.print(text);
        return Clean;
    }
    console.error(error);
    return Usage;
}

int run(int argument_count, char** arguments, Console& console) {
    const CommandLine line = read_command_line(argument_count, arguments);
    if (!line.error.empty()) {
        console.error(line.error);
        return Usage;
    }
    int status = Clean;
    if (line.operation != nullptr) {
        console.set_quiet(line.arguments.has("--quiet"));
        console.set_phases(job::phases_of(line.operation->name));
        if (line.arguments.has("--format")) {
            set_pipe_kind(kind_of("model." + line.arguments.text("--format")));
        }
        JobSettings settings{.wish = &interrupt_wish(), .threads = 0, .has_own_workers = false};
        if (line.arguments.has("--threads")) {
            settings.threads = static_cast<unsigned>(line.arguments.number("--threads"));
        }
        // A recipe has its own limits: they count for all steps, and for what is kept between them.
        if (line.arguments.has("--memory") && line.operation->name != "run") {
            settings.memory_limit = saturate_to<std::uint64_t>(line.arguments.bytes("--memory"));
        }
        JobState job(settings);
        const JobScope scope(&job);
        watch_for_interrupts();
        try {
            status = line.arguments.has("--as-recipe")
                         ? print_step(line, console)
                         : line.operation->run(line.arguments, console);
        } catch (const std::bad_alloc&) {
            // The operations tell of it with the file they were at; this is the net below.
            console.error(no_memory_text());
            status = CannotRead;
        }
        if (status != Clean && job.has_met_limit()) status = OverLimit;
    } else {
        console.print(line.text);
    }
    if (status != Clean && interrupt_status() != 0) return interrupt_status();
    return console.flush() ? status : std::max<int>(status, CannotWrite);
}

}  // namespace
}  // namespace povmesh::cli

int main(int argument_count, char** arguments) {
    povmesh::cli::prepare_process(argument_count, arguments);
    povmesh::cli::Console console;
    try {
        return povmesh::cli::run(argument_count, arguments, console);
    } catch (const povmesh::Cancelled&) {
        console.error("interrupted; the file that was being made is not written");
        return povmesh::cli::interrupt_status();
    } catch (const std::bad_alloc&) {
        console.error("not enough memory; close other programs or use a smaller model");
    } catch (const std::exception& error) {
        console.error(std::string("internal error: ") + error.what());
    }
    return povmesh::cli::CannotRead;
}
