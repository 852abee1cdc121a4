// The texts of the run log, letter by letter, and the progress cell.
#include "run/run_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "run/run_context.h"

namespace povmesh {
namespace {

TEST(RunLog, ComposesTheTextsInOrder) {
    std::vector<std::string> texts;
    const RunLog log([&](std::string_view text) { texts.emplace_back(text); });
    log.trace_in("TestDll", "tri.build_f");
    log.trace_out("TestDll", "tri.build_f");
    log.append("|> TestDll : Start free poly arrays");
    log.start("light weight");
    log.value("thickness", 2.5);
    log.value("hollow volume", -0.0000005);
    log.value("a label beyond the column", "text");
    log.caution("hollow nothing!\n");
    log.success("cut", 12.3456789, " sec.");
    log.success("fem_analysis", 1);
    log.failure("lampshade preview", "thin object caution ");
    EXPECT_THAT(texts,
                testing::ElementsAre(
                    "|> TestDll : -in tri.build_f", "|> TestDll : -out tri.build_f",
                    "|> TestDll : Start free poly arrays", "\n---start executing light weight---",
                    "\nthickness    : 2.500000", "\nhollow volume: -0.000000",
                    "\na label beyond the column: text", "\n[Caution] hollow nothing!\n",
                    "\n---{success} cut : 12.345679 sec.---\n",
                    "\n---{success} fem_analysis : 1.000000sec.---\n",
                    "\n---{failure} lampshade preview: thin object caution \n"));
}

TEST(RunLog, PrintsTheLongestNumberAndNeedsNoSink) {
    const std::string longest = six_decimals(std::numeric_limits<double>::lowest());
    EXPECT_EQ(longest.size(), 1U + 309 + 7);
    EXPECT_EQ(longest.substr(0, 8), "-1797693");
    EXPECT_EQ(six_decimals(std::numeric_limits<double>::infinity()), "inf");
    const RunLog silent;
    silent.success("cut", 1);
    silent.value("label", 1);
    silent.append("text");
}

TEST(RunLog, NamesTheConstantsOfASink) {
    EXPECT_EQ(kLogFileName, "logFile.log");
    EXPECT_EQ(kDefaultLogPath, R"(D:\povmeshlog.log)");
    EXPECT_EQ(kEmptyLogText, "");
    std::string alphabet;
    for (char c = 'A'; c <= 'Z'; ++c) alphabet += c;
    for (char c = 'a'; c <= 'z'; ++c) alphabet += c;
    for (char c = '0'; c <= '9'; ++c) alphabet += c;
    EXPECT_EQ(kBase64Alphabet, alphabet + "+/");
}

TEST(Progress, IsSeenByAWatchingThread) {
    Progress().set(50);  // no cell: nothing to write to
    std::uint32_t cell = 0;
    const Progress progress(&cell);
    std::vector<std::uint32_t> seen;
    std::thread host([&] {
        const std::atomic_ref<std::uint32_t> watched(cell);
        std::uint32_t last = 0;
        while (last < 100) {
            const std::uint32_t now = watched.load(std::memory_order_acquire);
            if (now != last) seen.push_back(now);
            last = now;
        }
    });
    for (std::uint32_t percent = 1; percent <= 100; ++percent) progress.set(percent);
    host.join();
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
    EXPECT_EQ(seen.back(), 100U);
}

}  // namespace
}  // namespace povmesh
