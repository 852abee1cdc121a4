// The texts with which operations tell what they do, and where they go.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace povmesh {

// Names for a sink that writes to a file, and the alphabet of one that encodes what it writes
// (RFC 4648). Nothing here opens a file or encodes a text.
constexpr std::string_view kLogFileName = "logFile.log";
constexpr std::string_view kDefaultLogPath = "D:\\povmeshlog.log";
constexpr std::string_view kEmptyLogText;
constexpr std::string_view kBase64Alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// Receives each text as it is appended, on the thread that runs the operation.
using LogSink = std::function<void(std::string_view text)>;

/// Composes the texts of operations and passes each to the sink; without a sink they are dropped,
/// and nothing is composed.
class RunLog {
public:
    RunLog() = default;
    explicit RunLog(LogSink sink) : sink_(std::move(sink)) {}

    /// A text as it stands.
    void append(std::string_view text) const;

    /// "|> UNIT : -in OPERATION" and "|> UNIT : -out OPERATION".
    void trace_in(std::string_view unit, std::string_view operation) const;
    void trace_out(std::string_view unit, std::string_view operation) const;

    /// "\n---start executing FEATURE---".
    void start(std::string_view feature) const;

    /// "\nLABEL: VALUE", the label padded with blanks to the 13 characters that the columns of a
    /// summary have; a number is printed with six decimals.
    void value(std::string_view label, double number) const;
    void value(std::string_view label, std::string_view text) const;

    /// "\n[Caution] TEXT".
    void caution(std::string_view text) const;

    /// "\n---{success} OPERATION : SECONDSsec.---\n", the seconds with six decimals. Hosts know
    /// some operations with another unit behind the number: " sec.".
    void success(std::string_view operation, double seconds, std::string_view unit = "sec.") const;

    /// "\n---{failure} OPERATION: REASON\n".
    void failure(std::string_view operation, std::string_view reason) const;

private:
    LogSink sink_;
};

/// A number with six decimals and a point, whatever the locale ("%f" in the C locale).
std::string six_decimals(double number);

}  // namespace povmesh
