// Writes that failed (a full disk, a file-size limit, a disk gone
// read-only), reported the moment they fail to one process-wide sink, from
// whatever thread wrote. The layer that wrote still answers in its own way
// (an exception, a false result, or nothing where the design goes on); a
// host that wants to stop at the first failure, with the system's own cause,
// listens here.
#pragma once

#include <filesystem>
#include <functional>

namespace quillora {

// error is the errno of the failed call.
using WriteFailureSink = std::function<void(const std::filesystem::path& path, int error)>;

// Replaces the sink for the whole process (an empty one stops reporting);
// returns the previous one.
WriteFailureSink setWriteFailureSink(WriteFailureSink sink);

void reportWriteFailure(const std::filesystem::path& path, int error);

}  // namespace quillora
