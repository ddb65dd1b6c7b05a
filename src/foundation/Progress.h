// What an export is doing, for a host that shows it: the step a person would
// recognise, and for the long steps how far they have got (bytes copied or
// moved by the file layer, pictures drawn). Reports go to one process-wide
// sink, from whatever thread does the work. With no sink installed a report
// costs one atomic load, so the file layer can report every block it moves.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace quillora {

// A fraction is reported in thousandths (done of total 1000).
enum class ProgressUnit { none, bytes, pictures, fraction };

struct ProgressReport {
    std::string stage;  // the step last begun; empty before the first
    ProgressUnit unit = ProgressUnit::none;
    std::int64_t done = 0;
    std::int64_t total = 0;
};

using ProgressSink = std::function<void(const ProgressReport& report)>;

// Replaces the sink for the whole process (an empty one stops reporting);
// returns the previous one.
ProgressSink setProgressSink(ProgressSink sink);

// A new step, reported with no measure yet.
void beginProgressStage(std::string_view stage);

// How far the current step has got.
void reportProgress(ProgressUnit unit, std::int64_t done, std::int64_t total);

// Units that finish one by one, on any number of threads: the total first,
// then one call for each unit done. Each call reports the count so far.
void startCountingProgress(ProgressUnit unit, std::int64_t total);
void countProgress();

}  // namespace quillora
