#include "cli/console.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "cli/platform.h"

namespace povmesh::cli {
namespace {

// Shorter jobs are over before anybody has read the line.
constexpr std::chrono::milliseconds kQuietStart{1000};
constexpr std::chrono::milliseconds kRefresh{100};

// Bytes of a file name on the progress line: a line that wraps cannot be erased.
constexpr std::size_t kNameLength = 24;

constexpr std::uint32_t kBarLength = 20;

// Jobs set their cell below it while they read, and from the other one on while they write.
constexpr std::uint32_t kIsRead = 45;
constexpr std::uint32_t kIsDone = 90;

// From so many percent and seconds on, the time taken tells something of the time left.
constexpr std::uint32_t kTellingPercent = 5;
constexpr double kTellingSeconds = 3;

// Returns to the first column and clears the line (ECMA-48, "erase in line").
constexpr std::string_view kEraseLine = "\r\x1b[K";

// One call, so that lines of several programs on one terminal do not mix.
void write_to_error(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

std::string short_name(const std::string& path) {
    std::string name = on_one_line(std::filesystem::path(path).filename().string());
    if (name.size() <= kNameLength) return name;
    std::size_t end = kNameLength;
    // Not in the middle of a UTF-8 character: its further bytes are 10xxxxxx.
    while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0U) == 0x80U) --end;
    return name.substr(0, end) + "...";
}

}  // namespace

std::string on_one_line(std::string_view text) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string line;
    line.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7F) {
            line += c;
        } else if (c == '\n') {
            line += "\\n";
        } else if (c == '\t') {
            line += "\\t";
        } else {
            line += "\\x";
            line += kDigits[byte >> 4];
            line += kDigits[byte & 15];
        }
    }
    return line;
}

void Console::print(std::string_view text) {
    if (collected_ != nullptr) {
        collected_->append(text);
        return;
    }
    if (output_error_ != 0) return;
    if (std::fwrite(text.data(), 1, text.size(), results_) != text.size()) {
        output_error_ = errno != 0 ? errno : EIO;
    }
}

void Console::error(std::string_view text) {
    std::fflush(results_);
    write_to_error("povmesh: " + on_one_line(text) + "\n");
}

void Console::warn(std::string_view text) {
    if (!is_quiet_) error("warning: " + std::string(text));
}

bool Console::flush() {
    if (std::fflush(results_) != 0 && output_error_ == 0) output_error_ = errno != 0 ? errno : EIO;
    if (output_error_ == 0) return true;
    if (output_error_ != EPIPE) {
        error("standard output: cannot be written: " +
              std::generic_category().message(output_error_) +
              "; make room there or send the output elsewhere");
    }
    return false;
}

std::string progress_text(const std::string& name, std::uint32_t percent, double seconds,
                          std::span<const job::Phase> phases) {
    percent = std::min<std::uint32_t>(percent, 100);
    const std::uint32_t filled = percent * kBarLength / 100;
    std::string text = name + ": [" + std::string(filled, '#') +
                       std::string(kBarLength - filled, '.') + "] " + std::to_string(percent) +
                       " %, ";
    text += percent < kIsRead   ? "reading"
            : !phases.empty()   ? job::phase_at(phases, percent)
            : percent < kIsDone ? "working"
                                : "writing";
    if (percent < kTellingPercent || percent >= 100 || seconds < kTellingSeconds) return text;
    const double left = seconds * (100.0 - percent) / percent;
    if (left < 90) return text + ", about " + std::to_string(std::lround(left)) + " s left";
    return text + ", about " + std::to_string(std::lround(left / 60)) + " min left";
}

ProgressLine::ProgressLine(const Console& console, const std::string& path)
    : name_(short_name(path)), phases_(console.phases()) {
    if (console.is_quiet() || !is_terminal(stderr)) return;
    try {
        watcher_ = std::thread([this] { watch(); });
    } catch (const std::system_error&) {
        // No thread to be had: the work goes on without the line.
    }
}

ProgressLine::~ProgressLine() {
    stop();
}

void ProgressLine::stop() {
    if (!watcher_.joinable()) return;
    {
        const std::lock_guard lock(mutex_);
        is_stopped_ = true;
    }
    stopped_.notify_one();
    watcher_.join();
}

void ProgressLine::watch() {
    const auto begin = std::chrono::steady_clock::now();
    std::unique_lock lock(mutex_);
    const auto is_over = [this] { return is_stopped_; };
    if (stopped_.wait_for(lock, kQuietStart, is_over)) return;
    do {
        const std::uint32_t percent =
            std::atomic_ref<std::uint32_t>(percent_).load(std::memory_order_acquire);
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
        write_to_error(std::string(kEraseLine) +
                       progress_text(name_, percent, taken.count(), phases_));
    } while (!stopped_.wait_for(lock, kRefresh, is_over));
    write_to_error(std::string(kEraseLine));
}

}  // namespace povmesh::cli
