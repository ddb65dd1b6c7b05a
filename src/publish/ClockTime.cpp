#include "publish/ClockTime.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace quillora::publish {

namespace {

// More would be no recording's length and could overflow.
constexpr std::size_t kMostLeadingDigits = 9;
constexpr int kSecondsPerMinute = 60;

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

std::string_view takeDigits(std::string_view& text)
{
    std::size_t count = 0;
    while (count < text.size() && isDigit(text[count])) ++count;
    const std::string_view digits = text.substr(0, count);
    text.remove_prefix(count);
    return digits;
}

std::int64_t numberOf(std::string_view digits)
{
    std::int64_t number = 0;
    for (char digit : digits) number = number * 10 + (digit - '0');
    return number;
}

}  // namespace

std::string clockTime(double seconds)
{
    const auto milliseconds = seconds > 0 ? static_cast<std::int64_t>(std::llround(seconds * 1000)) : 0;
    return fmt::format("{:02}:{:02}:{:02}.{:03}", milliseconds / 3600000, milliseconds / 60000 % 60,
                       milliseconds / 1000 % 60, milliseconds % 1000);
}

std::optional<double> takeClockTime(std::string_view& text)
{
    std::string_view rest = text;
    std::vector<std::string_view> fields{takeDigits(rest)};
    while (fields.size() < 3 && rest.size() >= 2 && rest[0] == ':' && isDigit(rest[1])) {
        rest.remove_prefix(1);
        fields.push_back(takeDigits(rest));
    }
    if (fields.size() < 2 || fields[0].empty() || fields[0].size() > kMostLeadingDigits) return std::nullopt;
    std::int64_t seconds = numberOf(fields[0]);
    for (std::size_t i = 1; i < fields.size(); ++i) {
        if (fields[i].size() != 2) return std::nullopt;
        const std::int64_t part = numberOf(fields[i]);
        if (part >= kSecondsPerMinute) return std::nullopt;
        seconds = seconds * kSecondsPerMinute + part;
    }
    double fraction = 0;
    if (rest.size() >= 2 && rest[0] == '.' && isDigit(rest[1])) {
        rest.remove_prefix(1);
        const std::string_view digits = takeDigits(rest);
        fraction = static_cast<double>(numberOf(digits.substr(0, kMostLeadingDigits))) /
                   std::pow(10.0, static_cast<double>(std::min(digits.size(), kMostLeadingDigits)));
    }
    text = rest;
    return static_cast<double>(seconds) + fraction;
}

}  // namespace quillora::publish
