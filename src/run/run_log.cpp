#include "run/run_log.h"

#include <array>
#include <charconv>
#include <initializer_list>

namespace povmesh {
namespace {

constexpr std::size_t kLabelWidth = 13;

std::string join(std::initializer_list<std::string_view> parts) {
    std::string text;
    for (const std::string_view part : parts) text += part;
    return text;
}

}  // namespace

void RunLog::append(std::string_view text) const {
    if (sink_) sink_(text);
}

void RunLog::trace_in(std::string_view unit, std::string_view operation) const {
    if (sink_) sink_(join({"|> ", unit, " : -in ", operation}));
}

void RunLog::trace_out(std::string_view unit, std::string_view operation) const {
    if (sink_) sink_(join({"|> ", unit, " : -out ", operation}));
}

void RunLog::start(std::string_view feature) const {
    if (sink_) sink_(join({"\n---start executing ", feature, "---"}));
}

void RunLog::value(std::string_view label, double number) const {
    if (sink_) value(label, six_decimals(number));
}

void RunLog::value(std::string_view label, std::string_view text) const {
    if (!sink_) return;
    std::string padded(label);
    if (padded.size() < kLabelWidth) padded.resize(kLabelWidth, ' ');
    sink_(join({"\n", padded, ": ", text}));
}

void RunLog::caution(std::string_view text) const {
    if (sink_) sink_(join({"\n[Caution] ", text}));
}

void RunLog::success(std::string_view operation, double seconds, std::string_view unit) const {
    if (!sink_) return;
    sink_(join({"\n---{success} ", operation, " : ", six_decimals(seconds), unit, "---\n"}));
}

void RunLog::failure(std::string_view operation, std::string_view reason) const {
    if (sink_) sink_(join({"\n---{failure} ", operation, ": ", reason, "\n"}));
}

std::string six_decimals(double number) {
    // The largest double has 309 digits before the point.
    std::array<char, 336> text{};
    const auto end =
        std::to_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed, 6);
    return {text.data(), end.ptr};
}

}  // namespace povmesh
