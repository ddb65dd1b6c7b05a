// Error records and the exceptions the layers use among themselves.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "foundation/Value.h"

namespace quillora {

// The user-info keys of an error record's texts, as the host's alerts read them.
inline constexpr const char* kLocalizedDescriptionKey = "NSLocalizedDescription";
inline constexpr const char* kLocalizedRecoverySuggestionKey = "NSLocalizedRecoverySuggestion";
inline constexpr const char* kLocalizedRecoveryOptionsKey = "NSLocalizedRecoveryOptions";
// Why it happened, in the system's words ("No space left on device").
inline constexpr const char* kLocalizedFailureReasonKey = "NSLocalizedFailureReason";

// What reaches the user: a domain, a code and a user-info dictionary holding
// the localized description, recovery suggestion and recovery options.
struct ErrorRecord {
    std::string domain;
    std::int64_t code = 0;
    Value userInfo = Value::dictionary();

    std::string localizedDescription() const { return userInfo.stringForKey(kLocalizedDescriptionKey).value_or(""); }
    std::string localizedRecoverySuggestion() const
    {
        return userInfo.stringForKey(kLocalizedRecoverySuggestionKey).value_or("");
    }
    // The button titles, in order; empty when the record offers none.
    std::vector<std::string> localizedRecoveryOptions() const
    {
        std::vector<std::string> options;
        const Value* stored = userInfo.get(kLocalizedRecoveryOptionsKey);
        if (auto items = stored ? stored->asArray() : nullptr) {
            for (const auto& item : *items) {
                if (const auto* title = item.asString()) options.push_back(*title);
            }
        }
        return options;
    }
};

// An exception with a name, a reason and user info, raised by a pipeline to
// turn a failed stage into an error record.
class NamedException : public std::runtime_error {
public:
    NamedException(std::string name, std::string reason, Value userInfo = Value::dictionary())
        : std::runtime_error(reason), name_(std::move(name)), userInfo_(std::move(userInfo))
    {
    }
    const std::string& name() const { return name_; }
    std::string reason() const { return what(); }
    const Value& userInfo() const { return userInfo_; }

private:
    std::string name_;
    Value userInfo_;
};

// A state the design says cannot happen (a failed string conversion, a
// missing preference object): names the method and the source file.
class InternalInconsistency : public std::logic_error {
public:
    InternalInconsistency(const std::string& method, const std::string& file, int line, const std::string& what)
        : std::logic_error("*** Assertion failure in " + method + ", " + file + ":" + std::to_string(line) + " " + what)
    {
    }
};

#define QUILLORA_ASSERT(condition, method, description)                                                                \
    do {                                                                                                               \
        if (!(condition)) throw ::quillora::InternalInconsistency((method), __FILE__, __LINE__, (description));        \
    } while (false)

}  // namespace quillora
