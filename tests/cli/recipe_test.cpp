// Recipes, as users of the tool meet them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "helpers/shapes.h"
#include "helpers/thorough.h"
#include "tool_runner.h"

namespace povmesh {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::HasSubstr;

class Recipes : public ToolTest {
protected:
    void SetUp() override {
        ToolTest::SetUp();
        write_stl_file("box.stl", shapes::box({0, 0, 0}, {20, 20, 20}));
        write("five.json",
              R"([{"operation": "repair"}, {"operation": "subdivide", "levels": 2},
                  {"operation": "check", "require": {"closed": true}},
                  {"operation": "reduce", "keep": 0.5},
                  {"operation": "hollow", "thickness": 2, "drain": [10, 10, 0, 1.5]}])");
    }

    // The commands that a recipe stands for, with files in between; the worst status.
    int run_one_by_one(const std::vector<std::vector<std::string>>& steps, std::string model,
                       const std::string& between, const std::string& target) const {
        int worst = 0;
        for (std::size_t i = 0; i < steps.size(); ++i) {
            std::vector<std::string> command = {steps[i][0], model};
            command.insert(command.end(), steps[i].begin() + 1, steps[i].end());
            if (steps[i][0] != "check") {
                model = i + 1 == steps.size() ? target : "step_" + std::to_string(i) + between;
                command.insert(command.end(), {"-o", model});
            }
            worst = std::max(worst, run(command).status);
            if (worst > 1 || !fs::exists(path(model))) return worst;
        }
        return worst;
    }
};

const std::vector<std::vector<std::string>> kFive = {
    {"repair"},
    {"subdivide", "--levels", "2"},
    {"check"},
    {"reduce", "--keep", "0.5"},
    {"hollow", "--thickness", "2", "--drain", "10,10,0,1.5"}};

TEST_F(Recipes, MakesTheBytesOfItsStepsWithFilesInBetween) {
    ASSERT_EQ(run({"convert", "box.stl", "box.3mf"}).status, 0);
    for (const std::string end : {".stl", ".obj", ".ply", ".3mf"}) {
        ASSERT_EQ(run_one_by_one(kFive, "box.stl", ".obj", "files" + end), 0);
        const ToolResult result = run({"run", "five.json", "box.stl", "-o", "memory" + end});
        ASSERT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(read("memory" + end), read("files" + end)) << end;
    }
    ASSERT_EQ(run_one_by_one(kFive, "box.3mf", ".3mf", "files.3mf"), 0);
    ASSERT_EQ(run({"run", "five.json", "box.3mf", "-o", "memory.3mf"}).status, 0);
    EXPECT_EQ(read("memory.3mf"), read("files.3mf"));

    ASSERT_EQ(run({"convert", "memory.stl", "memory.stl.gz"}).status, 0);
    ASSERT_EQ(
        run({"run", "five.json", "-", "-o", "-", "--format", "stl"}, "piped", "box.stl").status, 0);
    EXPECT_EQ(read("piped"), read("memory.stl"));
    ASSERT_EQ(run({"run", "five.json", "box.stl", "-o", "packed.stl.gz"}).status, 0);
    EXPECT_EQ(read("packed.stl.gz"), read("memory.stl.gz"));
    ASSERT_EQ(run({"run", "five.json", "box.stl", "-o", "box.stl"}).status, 0);
    EXPECT_EQ(read("box.stl"), read("memory.stl"));
}

TEST_F(Recipes, TheLastStepMayMakeSeveralModels) {
    shapes::SoupVector two = shapes::box({0, 0, 0}, {20, 20, 20});
    shapes::append(two, shapes::box({30, 0, 0}, {40, 10, 10}));
    write_stl_file("two.stl", two);
    ASSERT_EQ(run({"subdivide", "two.stl", "-o", "fine.obj"}).status, 0);
    const std::vector<std::pair<std::string, std::vector<std::string>>> divisions = {
        {R"("split")", {"split", "--format", "stl"}},
        {R"("split", "format": "3mf")", {"split", "--format", "3mf"}},
        {R"("cut", "point": [0, 0, 4])", {"cut", "--point", "0,0,4", "--format", "stl"}},
        {R"("decompose", "size": "12")", {"decompose", "--size", "12", "--format", "stl"}},
    };
    for (const auto& [step, words] : divisions) {
        write("divide.json", R"([{"operation": "subdivide"}, {"operation": )" + step + "}]");
        std::vector<std::string> command = {words[0], "fine.obj", "-o", "alone"};
        command.insert(command.end(), words.begin() + 1, words.end());
        ASSERT_EQ(run(command).status, 0);
        const ToolResult result = run({"run", "divide.json", "two.stl", "-o", "together/"});
        ASSERT_EQ(result.status, 0) << result.err;
        std::size_t count = 0;
        for (const auto& entry : fs::directory_iterator(path("alone"))) {
            const std::string name = entry.path().filename().string();
            EXPECT_EQ(read("together/two" + name.substr(4)), read("alone/" + name)) << name;
            ++count;
        }
        EXPECT_GE(count, 2U);
        EXPECT_THAT(result.out, HasSubstr(std::to_string(count) + " files written after 2 steps"));
        fs::remove_all(path("alone"));
        fs::remove_all(path("together"));
    }
    write("missed.json", R"([{"operation": "cut", "point": [0, 0, 99]}])");
    EXPECT_EQ(run({"run", "missed.json", "two.stl", "-o", "none"}).status, 1);
    EXPECT_FALSE(fs::exists(path("none")));
    EXPECT_EQ(run({"run", "missed.json", "two.stl", "-o", "-", "--format", "stl"}).status, 2);
    write("look.json", R"([{"operation": "decompose", "size": "12", "preview": true},
                           {"operation": "repair"}])");
    EXPECT_EQ(run({"run", "look.json", "two.stl", "-o", "out.stl"}).status, 0);
}

TEST_F(Recipes, MistakesAreToldWithStepAndKeyBeforeAnythingRuns) {
    const struct {
        const char* recipe;
        std::vector<const char*> told;
    } cases[] = {
        {R"([{"operation": "repair"}, {"operation": "hollo"}])", {"step 2", "\"hollo\"", "hollow"}},
        {R"([{"operation": "split"}, {"operation": "repair"}])",
         {"step 1 (split)", "only be the last step"}},
        {R"([{"operation": "convert"}])", {"step 1 (convert)", "no model"}},
        {R"([{"operation": "hollow"}])", {"step 1 (hollow)", "\"thickness\" is missing"}},
        {R"([{"operation": "hollow", "thick": 1}])", {"\"thick\"", "it takes thickness"}},
        {R"([{"operation": "hollow", "thickness": "1"}])", {"\"1\"", "it takes a number"}},
        {R"([{"operation": "hollow", "thickness": -1}])", {"'-1'", "at least 0"}},
        {R"([{"operation": "hollow", "thickness": 1, "drain": [[0, 0, 0]]}])", {"four numbers"}},
        {R"([{"operation": "repair", "solid": 1}])", {"\"solid\" is 1", "true or false"}},
        {R"([{"operation": "repair", "output": "x.stl"}])", {"unknown key \"output\""}},
        {R"([{"operation": "repair", "solid": true, "solid": false}])", {"\"solid\" twice"}},
        {R"([{"operation": "repair", "require": {}}])", {"unknown key \"require\""}},
        {R"([{"operation": "check", "require": {}}])", {"\"require\"", "some of clean"}},
        {R"([{"operation": "check", "require": {"thin": 1}}])", {"\"thin\"", "min_wall"}},
        {R"([{"operation": "check", "require": {"min_wall": 0}}])", {"number above 0"}},
        {R"([{"operation": "check", "require": {"max_size": [1, 2]}}])", {"three numbers"}},
        {R"([{"operation": "repair"})", {"is no JSON", "line 1"}},
        {"{}", {"list of 1 to"}},
        {"[]", {"list of 1 to"}},
        {"[7]", {"step 1", "is 7"}},
    };
    for (const auto& [recipe, told] : cases) {
        write("bad.json", recipe);
        // The model is not there: it is not looked for.
        const ToolResult result = run({"run", "bad.json", "missing.stl", "-o", "out.stl"});
        EXPECT_EQ(result.status, 2) << recipe;
        for (const char* const part : told) EXPECT_THAT(result.err, HasSubstr(part)) << recipe;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    }
}

TEST_F(Recipes, AGateLetsThroughWhatIsAskedAndNothingElse) {
    const struct {
        const char* require;
        bool is_met;
    } cases[] = {
        {R"({"closed": true, "clean": true})", true},
        {R"({"closed": false})", false},
        {R"({"min_wall": 19})", true},
        {R"({"min_wall": 21})", false},
        {R"({"max_triangles": 12})", true},
        {R"({"max_triangles": 11})", false},
        {R"({"max_shells": 0})", false},
        {R"({"max_self_intersections": 0})", true},
        {R"({"min_volume": 8000, "max_volume": 8000})", true},
        {R"({"min_volume": 8001})", false},
        {R"({"max_volume": 7999})", false},
        {R"({"max_size": [20, 20, 20]})", true},
        {R"({"max_size": [20, 20, 19.5]})", false},
    };
    for (const auto& [require, is_met] : cases) {
        write("gate.json", std::string(R"([{"operation": "check", "require": )") + require + "}]");
        write("out.stl", "what was there");
        const ToolResult result = run({"run", "gate.json", "box.stl", "-o", "out.stl", "--json"});
        EXPECT_EQ(result.status, is_met ? 0 : 1) << require;
        EXPECT_EQ(read("out.stl") == "what was there", !is_met) << require;
        EXPECT_EQ(json::parse(result.out)["outcome"], is_met ? "ok" : "no result");
    }
    EXPECT_THAT(run({"run", "gate.json", "box.stl", "-o", "out.stl"}).err,
                HasSubstr("step 1 (check): the model is not as required: max_size"));
}

TEST_F(Recipes, AStepWithoutAResultStopsAndSaysWhich) {
    write("thick.json", R"([{"operation": "repair"}, {"operation": "hollow", "thickness": 50}])");
    const ToolResult result = run({"run", "thick.json", "box.stl", "-o", "out.stl", "--json"});
    EXPECT_EQ(result.status, 1);
    const json object = json::parse(result.out);
    EXPECT_EQ(object["outcome"], "no result");
    EXPECT_THAT(object["error"].get<std::string>(), HasSubstr("step 2 (hollow)"));
    EXPECT_EQ(object["steps"].size(), 2);
    EXPECT_EQ(object["steps"][0]["report"]["verdict"], "clean");
    EXPECT_FALSE(fs::exists(path("out.stl")));
    EXPECT_EQ(run({"run", "thick.json", "missing.stl", "-o", "out.stl"}).status, 3);
}

TEST_F(Recipes, LimitsEndTheJobWithAReasonAndWithoutAFile) {
    write("long.json", R"([{"operation": "remesh", "edge": 0.2}])");
    for (const auto& [option, value, outcome] :
         {std::tuple("--time", "0.05", "timeout"), {"--memory", "4000000", "out of memory"}}) {
        const ToolResult result =
            run({"run", "long.json", "box.stl", "-o", "out.stl", "--json", option, value});
        EXPECT_EQ(result.status, 7) << result.err;
        EXPECT_EQ(json::parse(result.out)["outcome"], outcome);
        EXPECT_THAT(result.err, HasSubstr(option));
        EXPECT_FALSE(fs::exists(path("out.stl")));
    }
    EXPECT_EQ(
        run({"run", "five.json", "box.stl", "-o", "out.stl", "--time", "600", "--memory", "8e9"})
            .status,
        0);
}

TEST_F(Recipes, ACommandPrintsTheStepThatDoesTheSame) {
    const std::vector<std::string> command = {"hollow",      "box.stl",   "-o",      "out.stl",
                                              "--thickness", "2",         "--drain", "10,10,0,1.5",
                                              "--drain",     "10,10,20,1"};
    auto printing = command;
    printing.emplace_back("--as-recipe");
    const json step = json::parse(run(printing).out);
    EXPECT_FALSE(fs::exists(path("out.stl")));
    EXPECT_EQ(step, json::parse(R"({"operation": "hollow", "thickness": 2,
                                    "drain": [[10, 10, 0, 1.5], [10, 10, 20, 1]]})"));
    ASSERT_EQ(run(command).status, 0);
    write("one.json", json::array({step}).dump());
    ASSERT_EQ(run({"run", "one.json", "box.stl", "-o", "run.stl"}).status, 0);
    EXPECT_EQ(read("run.stl"), read("out.stl"));
    EXPECT_EQ(json::parse(run({"split", "box.stl", "-o", "pieces", "--as-recipe"}).out),
              json::parse(R"({"operation": "split"})"));
    EXPECT_THAT(run({"run", "one.json", "--explain"}).out, HasSubstr("thickness 2"));
}

TEST_F(Recipes, TheSchemaOfTheProjectIsThatOfTheTool) {
    std::ifstream file(std::string(POVMESH_TEST_DATA) + "/../../docs/recipe.schema.json");
    std::stringstream text;
    text << file.rdbuf();
    EXPECT_TRUE(run({"run", "--schema"}).out == text.str())
        << "options have changed: povmesh run --schema > docs/recipe.schema.json";
}

// With POVMESH_MODELS naming a folder of models, every second of the smaller ones. A model takes
// six processes, each a tenth of a second to start in a build with sanitizers: there every 8th.
TEST_F(Recipes, MakesTheBytesOfItsStepsOnRealModels) {
    const char* const folder = std::getenv("POVMESH_MODELS");
    if (folder == nullptr) GTEST_SKIP() << "POVMESH_MODELS names no folder of models";
    write("models.json",
          R"([{"operation": "repair"}, {"operation": "revise"}, {"operation": "check"},
              {"operation": "reduce", "keep": 0.5}, {"operation": "subdivide", "levels": 1}])");
    const std::vector<std::vector<std::string>> steps = {{"repair"},
                                                         {"revise"},
                                                         {"check"},
                                                         {"reduce", "--keep", "0.5"},
                                                         {"subdivide", "--levels", "1"}};
    constexpr std::uintmax_t kLargest = 100000;
    constexpr std::size_t kStep = test::kIsSanitized ? 8 : 2;
    std::vector<std::string> models;
    for (const auto& entry : fs::directory_iterator(folder)) {
        const std::string end = entry.path().extension().string();
        if ((end != ".stl" && end != ".obj") || entry.file_size() > kLargest) continue;
        models.push_back(entry.path().string());
    }
    std::sort(models.begin(), models.end());
    std::size_t written = 0;
    for (std::size_t i = 0; i < models.size(); i += kStep) {
        const std::string& model = models[i];
        fs::remove(path("files.stl"));
        fs::remove(path("memory.stl"));
        const int status = run_one_by_one(steps, model, ".obj", "files.stl");
        EXPECT_EQ(run({"run", "models.json", model, "-o", "memory.stl"}).status, status) << model;
        ASSERT_EQ(fs::exists(path("memory.stl")), fs::exists(path("files.stl"))) << model;
        if (!fs::exists(path("files.stl"))) continue;
        ++written;
        EXPECT_EQ(read("memory.stl"), read("files.stl")) << model;
    }
    EXPECT_GT(written, 0);
}

}  // namespace
}  // namespace povmesh
