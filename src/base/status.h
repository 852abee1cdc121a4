// The outcome of an operation that can fail for a reason a person can mend.
#pragma once

#include <string>
#include <utility>

namespace povmesh {

enum class StatusCode {
    Ok,
    CannotRead,   // the file cannot be opened or read
    BadFile,      // it was read, but is truncated or no such model
    CannotWrite,  // the target cannot be written; what was there before is unchanged
    TooLarge,     // the model exceeds what the indices can number
    BadOption,    // an option is out of range or not a number
    Nothing,      // the model gives no result: no cube is left inside, the plane misses it, ...
};

/// A code, and for every code but Ok one line that says what, where (byte, line, face) and what to
/// do.
class [[nodiscard]] Status {
public:
    Status() = default;
    Status(StatusCode code, std::string text) : code_(code), text_(std::move(text)) {}

    bool ok() const { return code_ == StatusCode::Ok; }
    StatusCode code() const { return code_; }
    const std::string& text() const { return text_; }

private:
    StatusCode code_ = StatusCode::Ok;
    std::string text_;
};

}  // namespace povmesh
