// Bytes that come or go in one stream: gzip files, pipes.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "base/status.h"
#include "io/byte_sink.h"
#include "io/file.h"

namespace povmesh {

/// Copies what a gzip file holds, or the file itself when it is not compressed, into a temporary
/// file that has no name any more, so that readers can go to any place of it, whatever its size.
///
/// @return  CannotRead when the file cannot be opened, the temporary file cannot be written, or the
///          content grows beyond 256 MB and a hundred times its size, which no model does; BadFile
///          when the compressed bytes are damaged or end early. The name stands in messages.
Status unpack_gzip(const std::string& path, InputFile& content);

/// The same of standard input, which may be compressed or not; `name` stands in messages.
Status read_standard_input(const std::string& name, InputFile& content);

/// Compresses on the way to another sink, which must outlive this one. The same bytes give the same
/// file: no name and no time stand in it.
class GzipSink final : public ByteSink {
public:
    explicit GzipSink(ByteSink& target);
    ~GzipSink() override;

    Status write(std::span<const char> bytes) override;
    Status commit() override;

private:
    struct Stream;
    Status pump(int flush);

    ByteSink& target_;
    std::unique_ptr<Stream> stream_;
};

/// Copies a file to standard output. CannotWrite, with the reason; `name` stands in messages.
Status copy_to_standard_output(const InputFile& file, const std::string& name);

}  // namespace povmesh
