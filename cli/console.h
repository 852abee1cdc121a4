// What the tool says: results, one-line messages and the progress line of a terminal.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <thread>

#include "job/phases.h"
#include "run/progress.h"

namespace povmesh::cli {

/// Control characters as escapes ("\n", "\x1b"), so that a text from outside, such as a file name,
/// stays on its line and cannot steer the terminal.
std::string on_one_line(std::string_view text);

/// Results go to standard output unless a model goes there, everything else to standard error.
class Console {
public:
    void set_quiet(bool is_quiet) { is_quiet_ = is_quiet; }
    bool is_quiet() const { return is_quiet_; }

    /// What the progress lines of the operation call what it is at.
    void set_phases(std::span<const job::Phase> phases) { phases_ = phases; }
    std::span<const job::Phase> phases() const { return phases_; }

    /// Lets results go to standard error: standard output is for a model.
    void send_results_to_error() { results_ = stderr; }

    /// Lets results go to the end of a text instead, which must outlive this.
    void collect_results(std::string& text) { collected_ = &text; }

    /// Writes a result as it stands. What fails is remembered for `flush`.
    void print(std::string_view text);

    /// One line, "povmesh: TEXT".
    void error(std::string_view text);

    /// One line, "povmesh: warning: TEXT"; nothing when quiet.
    void warn(std::string_view text);

    /// Brings all results out; false, after an error line, when some could not be written. A reader
    /// that has gone away ("| head") is a failure without a line.
    bool flush();

private:
    bool is_quiet_ = false;
    std::span<const job::Phase> phases_;
    std::FILE* results_ = stdout;
    std::string* collected_ = nullptr;
    int output_error_ = 0;
};

/// What the progress line says: "NAME: [#####.....] 48 %, closing holes, about 12 s left"; what the
/// operation is at, or "working" where it has no phases; and the time left, as the time taken so
/// far tells it, from where that tells anything on.
std::string progress_text(const std::string& name, std::uint32_t percent, double seconds,
                          std::span<const job::Phase> phases);

/// The progress of one job. From the second second on a terminal shows its line, which is erased at
/// the end; anything but a terminal, and a quiet console, shows nothing. The line is written by a
/// thread of its own that watches the cell.
class ProgressLine {
public:
    ProgressLine(const Console& console, const std::string& path);
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    Progress progress() { return Progress(&percent_); }

    /// Erases the line for good. To be called before anything else is written.
    void stop();

private:
    void watch();

    std::string name_;
    std::span<const job::Phase> phases_;
    std::uint32_t percent_ = 0;
    bool is_stopped_ = false;
    std::mutex mutex_;
    std::condition_variable stopped_;
    std::thread watcher_;  // the last member: it uses the others
};

}  // namespace povmesh::cli
