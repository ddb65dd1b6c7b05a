#include "host/RecordingDates.h"

#include <chrono>

namespace quillora {

namespace {

Date::duration seconds(double value)
{
    return std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(value));
}

// The date at which `recorded` of recorded time had passed: the stretches
// are walked in order, the last one taking whatever is left over.
Date dateAtRecordedTime(const Array& dates, Date::duration recorded)
{
    for (std::size_t i = 0; i + 1 < dates.size(); i += 2) {
        const Date start = dates[i].asDate().value_or(Date());
        const Date stop = dates[i + 1].asDate().value_or(start);
        if (recorded <= stop - start || i + 3 >= dates.size()) return start + recorded;
        recorded -= stop - start;
    }
    return (dates.empty() ? Date() : dates[0].asDate().value_or(Date())) + recorded;
}

}  // namespace

Value startStopDatesForRecording(const Date& end, double durationSeconds)
{
    return Value::array({Value(end - seconds(durationSeconds)), Value(end)});
}

void addMissingTransitionDates(const Value& transitions, const Value& startStopRecordingDates, std::uint32_t timeScale)
{
    auto records = transitions.asArray();
    auto dates = startStopRecordingDates.asArray();
    if (!records || !dates || timeScale == 0) return;
    for (const Value& record : *records) {
        auto entries = record.asDictionary();
        if (!entries || (entries->find("date") && entries->find("date")->isDate())) continue;
        const auto time = record.integerForKey("timeValue").value_or(0);
        entries->set("date", dateAtRecordedTime(*dates, seconds(static_cast<double>(time) / timeScale)));
    }
}

}  // namespace quillora
