// povmesh run: the steps of a recipe, one after the other, on one model.
//
// Between two steps the model is what a file of it would give, so that a recipe and its steps one
// by one make the same bytes; only that the file is in memory. The last model is made in the format
// of the target, and written there when every step is done.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <system_error>
#include <vector>

#include "base/timer.h"
#include "cli/commands.h"
#include "cli/job_limits.h"
#include "cli/kept_models.h"
#include "cli/model.h"
#include "cli/pieces.h"
#include "cli/recipe.h"
#include "cli/shared_options.h"
#include "job/numbers.h"

namespace povmesh::cli {
namespace {

constexpr std::string_view kStandardInput = "standard input";

struct StepReport {
    int status = Clean;
    double seconds = 0;
    Json json;         // what the operation told
    std::string gate;  // why a gate does not let the model through
};

struct RunReport {
    int status = Clean;
    std::string outcome = "ok";  // a word for programs, see `outcome_of`
    std::string failure;         // why nothing is written, as one line; may be told already
    std::vector<StepReport> steps;
};

// The words for what became of a job. They are a promise to scripts.
std::string outcome_of(int status) {
    switch (status) {
        case Clean:
            return "ok";
        case Flawed:
            return "flaws";
        case CannotRead:
            return "unreadable";
        case CannotWrite:
            return "unwritten";
        default:
            return "failed";
    }
}

class RecipeRun {
public:
    RecipeRun(const Recipe& recipe, const Arguments& arguments, Console& console)
        : recipe_(recipe),
          source_(arguments.text("IN")),
          target_(arguments.text("--output")),
          is_json_(arguments.has("--json")),
          console_(console) {}

    int run(const LimitValues& limits) {
        const Timer timer;
        Limits watched(limits, [&](Limit limit) { end_at(limit, limits, timer); });
        model_ = source_;
        if (take_source() && run_steps()) {
            watched.lift();  // what can be written by now is written whole
            deliver();
        }
        watched.lift();
        seconds_ = timer.seconds();
        if (is_json_) {
            console_.print(json_text(to_json()));
        } else if (report_.failure.empty() && !console_.is_quiet()) {
            console_.print(on_one_line(target_) + ": " +
                           (files_ > 0 ? counted(files_, "file") + " " : std::string()) +
                           "written after " + counted(report_.steps.size(), "step") + "\n");
        }
        return report_.status;
    }

private:
    bool fail(int status, const std::string& outcome, const std::string& text) {
        const std::lock_guard lock(mutex_);
        report_.status = status;
        report_.outcome = outcome;
        report_.failure = text;
        return false;
    }

    bool fail_aloud(int status, const std::string& outcome, const std::string& text) {
        console_.error(text);
        return fail(status, outcome, text);
    }

    // What is read more than once, or replaced by what was made of it.
    bool take_source() {
        if (is_pipe(source_)) {
            KeptModel& kept = keep_model(std::string(kStandardInput), kind_of(source_));
            kept.stem = stem_of(source_);
            const std::string failure = keep_standard_input(kept);
            model_ = kStandardInput;
            return failure.empty() || fail_aloud(CannotRead, outcome_of(CannotRead), failure);
        }
        std::error_code ignored;
        if (!std::filesystem::equivalent(source_, target_, ignored)) return true;
        LoadedModel model;
        const std::string failure = load_model(source_, {}, model);
        if (!failure.empty()) return fail_aloud(CannotRead, outcome_of(CannotRead), failure);
        return model.is_whole ||
               fail_aloud(CannotWrite, outcome_of(CannotWrite), replaced_in_part(target_));
    }

    FileKind kind_between() const {
        return kind_of(source_) == FileKind::ThreeMf ? FileKind::ThreeMf : FileKind::Obj;
    }

    bool run_steps() {
        std::size_t last = recipe_.steps.size();
        while (last > 0 && recipe_.steps[last - 1].role == StepRole::Look) --last;
        for (step_ = 0; step_ < recipe_.steps.size(); ++step_) {
            const FileKind kind = step_ + 1 == last ? kind_of(target_) : kind_between();
            if (!run_step(kind, step_ + 1 == last)) return false;
        }
        return true;
    }

    bool run_step(FileKind kind, bool is_last) {
        const RecipeStep& step = recipe_.steps[step_];
        Arguments arguments = step.arguments;
        arguments.add(step.operation->positionals.front().name, model_);
        std::string result;
        if (step.role == StepRole::Several) {
            if (!arguments.has("--format")) {
                arguments.add("--format", std::string(extension_of(kind_of(source_)).substr(1)));
            }
            arguments.add("--output", target_);
            keep_folder(target_);
        } else if (step.role == StepRole::Change) {
            result = "model after " + step_name(recipe_, step_);
            KeptModel& place = keep_model(result, kind);
            place.is_for_people = is_last;
            place.stem = stem_of(source_);
            arguments.add("--output", result);
        }
        const StepReport told = start(step, arguments);
        {
            const std::lock_guard lock(mutex_);
            report_.steps.push_back(told);
            report_.status = std::max(report_.status, told.status);
        }
        if (!told.gate.empty()) {
            return fail_aloud(Flawed, "no result", place() + told.gate + "; nothing is written");
        }
        if (told.status > Flawed) return fail(told.status, outcome_of(told.status), error_of(told));
        if (step.role == StepRole::Several && kept_in_folder().empty()) {
            return fail(std::max<int>(told.status, Flawed), "no result", error_of(told));
        }
        if (result.empty()) return true;
        if (kept_model(result)->bytes.empty()) {
            return fail(std::max<int>(told.status, Flawed), "no result", error_of(told));
        }
        forget_model(model_);
        model_ = result;
        return true;
    }

    // The operation has said it itself; programs find it in one place.
    std::string error_of(const StepReport& told) const {
        const bool has_error = told.json.is_object() && told.json.contains("error");
        return place() + (has_error ? told.json.at("error").get<std::string>()
                                    : "ended with status " + std::to_string(told.status));
    }

    // Behind the last step it is still that one.
    std::string place() const {
        const std::size_t step = std::min<std::size_t>(step_, recipe_.steps.size() - 1);
        return recipe_.path + ": " + step_name(recipe_, step) + ": ";
    }

    StepReport start(const RecipeStep& step, Arguments arguments) {
        const bool is_gate = !step.requirements.empty();
        const bool is_collected = is_json_ || is_gate;
        if (!is_json_ && !console_.is_quiet()) {
            console_.print("step " + std::to_string(step_ + 1) + " of " +
                           std::to_string(recipe_.steps.size()) + ": " +
                           std::string(step.operation->name) + "\n");
        }
        console_.set_phases(job::phases_of(step.operation->name));
        Console collecting = console_;
        std::string text;
        if (is_collected) {
            collecting.collect_results(text);
            arguments.add("--json", "true");
        }
        StepReport told;
        const Timer timer;
        told.status = step.operation->run(arguments, is_collected ? collecting : console_);
        told.seconds = timer.seconds();
        if (is_collected) told.json = report_in(text);
        if (is_gate && told.status <= Flawed) pass_gate(step, told);
        return told;
    }

    // An operation prints an object or, of several files, a list of them; a picture is none.
    static Json report_in(const std::string& text) {
        Json json = Json::parse(text, nullptr, false);
        if (json.is_array() && json.size() == 1) return json.front();
        return json.is_discarded() ? Json() : json;
    }

    // What else a check finds is no reason to stop.
    void pass_gate(const RecipeStep& step, StepReport& told) {
        std::vector<Row> rows;
        std::string unmet;
        for (const Requirement& requirement : step.requirements) {
            const bool is_met = requirement.spec->is_met(told.json, requirement.asked);
            const std::string name(requirement.spec->name);
            const std::string asked = requirement.asked.dump();
            const std::string found = requirement.spec->found(told.json);
            std::string row = found;
            row.append(" (asked: ").append(asked).append(is_met ? ")" : ", not met)");
            rows.emplace_back(name, std::move(row));
            if (is_met) continue;
            unmet.append(unmet.empty() ? "" : ", ").append(name).append(" ");
            unmet.append(asked).append(": ").append(found);
        }
        told.status = unmet.empty() ? Clean : Flawed;
        if (!unmet.empty()) told.gate = "the model is not as required: " + unmet;
        if (!is_json_) console_.print(table_text(rows));
    }

    void deliver() {
        if (recipe_.steps.back().role == StepRole::Several) {
            deliver_folder();
        } else if (const KeptModel* const kept = kept_model(model_);
                   kept != nullptr && is_made(*kept)) {
            const std::string failure = deliver_kept(*kept, target_);
            if (!failure.empty()) fail_aloud(CannotWrite, outcome_of(CannotWrite), failure);
        } else {
            convert();
        }
        if (report_.failure.empty()) report_.outcome = outcome_of(report_.status);
    }

    void deliver_folder() {
        std::string failure = make_folder(target_);
        for (const std::string& path : kept_in_folder()) {
            if (!failure.empty()) break;
            failure = deliver_kept(*kept_model(path), path);
            if (failure.empty()) ++files_;
        }
        if (failure.empty()) return;
        if (files_ > 0) failure += "; written before: " + counted(files_, "file");
        fail_aloud(CannotWrite, outcome_of(CannotWrite), failure);
    }

    bool is_made(const KeptModel& kept) const {
        return model_ != kStandardInput && !kept.bytes.empty();
    }

    // No step has changed the model.
    void convert() {
        Arguments arguments;
        arguments.add("IN", model_);
        arguments.add("OUT", target_);
        console_.set_phases({});
        Console collecting = console_;
        std::string text;
        collecting.collect_results(text);
        const int status = convert_operation().run(arguments, is_json_ ? collecting : console_);
        if (status > Flawed) {
            fail(
                status, outcome_of(status),
                target_ + ": ended with status " + std::to_string(status) + "; nothing is written");
        }
    }

    Json to_json() const {
        Json json = {{"file", source_},
                     {"output", target_},
                     {"recipe", recipe_.path},
                     {"outcome", report_.outcome},
                     {"status", report_.status}};
        if (!report_.failure.empty()) json["error"] = report_.failure;
        json["seconds"] = seconds_;
        json["steps"] = Json::array();
        for (std::size_t i = 0; i < report_.steps.size(); ++i) {
            const StepReport& told = report_.steps[i];
            Json step = {{"operation", recipe_.steps[i].operation->name},
                         {"options", recipe_.steps[i].options},
                         {"status", told.status},
                         {"seconds", told.seconds}};
            if (!told.gate.empty()) step["unmet"] = told.gate;
            if (!told.json.is_null()) step["report"] = told.json;
            json["steps"].push_back(std::move(step));
        }
        return json;
    }

    // Called by the watcher while a step runs. Nothing has been written by then: the program ends
    // as it stands, without waiting for what the other threads are at.
    void end_at(Limit limit, const LimitValues& limits, const Timer& timer) {
        const std::string reason =
            limit == Limit::Time
                ? "not done after " + human_number(limits.seconds) + " seconds (--time)"
                : "needs more memory than " + human_number(limits.bytes) + " bytes (--memory)";
        fail_aloud(OverLimit, limit == Limit::Time ? "timeout" : "out of memory",
                   place() + reason + "; nothing is written");
        const std::lock_guard lock(mutex_);
        seconds_ = timer.seconds();
        if (is_json_) console_.print(json_text(to_json()));
        console_.flush();
        std::_Exit(OverLimit);
    }

    const Recipe& recipe_;
    const std::string source_;
    const std::string target_;
    const bool is_json_;
    Console& console_;
    std::string model_;                  // that the next step reads
    std::atomic<std::size_t> step_ = 0;  // the watcher tells it
    double seconds_ = 0;
    std::size_t files_ = 0;  // written into the folder of a last step that makes several models
    std::mutex mutex_;       // over the report
    RunReport report_;
};

int refuse(const std::string& text, Console& console) {
    console.error(text);
    return Usage;
}

int run_recipe(const Arguments& arguments, Console& console) {
    if (arguments.has("--schema")) {
        console.print(recipe_schema());
        return Clean;
    }
    if (!arguments.has("RECIPE")) {
        return refuse("run: RECIPE is missing; see 'povmesh run --help'", console);
    }
    Recipe recipe;
    const std::string error = read_recipe(arguments.text("RECIPE"), recipe);
    if (!error.empty()) return refuse(error, console);
    if (arguments.has("--explain")) {
        console.print(explain(recipe));
        return Clean;
    }
    if (!arguments.has("IN") || !arguments.has("--output")) {
        return refuse("run: IN and --output are needed; see 'povmesh run --help'", console);
    }
    const std::string& target = arguments.text("--output");
    if (recipe.steps.back().role != StepRole::Several) {
        if (!is_model_name(target, console)) return Usage;
    } else if (is_pipe(target)) {
        return refuse("run: the last step makes several models; name a folder", console);
    }
    LimitValues limits;
    if (arguments.has("--time")) limits.seconds = arguments.number("--time");
    if (arguments.has("--memory")) limits.bytes = arguments.bytes("--memory");
    return RecipeRun(recipe, arguments, console).run(limits);
}

OptionSpec result_output() {
    OptionSpec option = model_output();
    option.is_required = false;
    option.help =
        "File to write; its name ends in .stl, .obj, .ply or .3mf; or the folder for the models "
        "that cut, decompose or split as a last step makes";
    return option;
}

}  // namespace

OperationSpec run_operation() {
    return {
        .name = "run",
        .summary = "Do the steps of a recipe",
        .description =
            "A recipe is a JSON file with a list of operations and their options: [{\"operation\": "
            "\"repair\"}, {\"operation\": \"hollow\", \"thickness\": 1.5}]. It is checked whole "
            "before anything is done. The model stays in memory from step to step; OUT is written "
            "when all steps are done.",
        .positionals = {{"RECIPE", false, "JSON file with the steps", false},
                        {kModelFile.name, false, kModelFile.help, false}},
        .options = {result_output(),
                    {.name = "--explain", .help = "Check the recipe and tell what it would do"},
                    {.name = "--schema", .help = "Print the JSON schema of recipes"},
                    {.name = "--time",
                     .type = ValueType::Number,
                     .placeholder = "SECONDS",
                     .unit = "seconds",
                     .low = 0,
                     .high = kNoLimit,
                     .help = "Give up, and write nothing, when it takes longer; 0 is for ever"},
                    {.name = "--json",
                     .help = "Print one JSON object with the report of each step"}},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_recipe,
    };
}

}  // namespace povmesh::cli
