#include "engine/values/timedate.h"

#include <algorithm>
#include <chrono>

namespace embedded {
namespace {

constexpr int64_t ticksPerSecond = 100;
constexpr int64_t ticksPerMinute = 60 * ticksPerSecond;
constexpr int64_t ticksPerDay = int64_t{24} * 60 * ticksPerMinute;
constexpr int64_t julianDayOfEpoch = 2440588; // 1970-01-01

// Years 1 to 9999: what four digits of DXL can say.
constexpr int64_t firstDay = -719162;
constexpr int64_t lastDay = 2932896;

constexpr DWORD dayMask = 0x00FFFFFF;
constexpr DWORD dstBit = 0x80000000;
constexpr DWORD eastBit = 0x40000000;
constexpr int quarterShift = 28;
constexpr int hourShift = 24;
constexpr DWORD maxZoneHours = 15;

/** Days since 1970-01-01 of a day word, whatever its zone. */
std::optional<int64_t> DayOf(DWORD dayWord) noexcept {
    const int64_t day = static_cast<int64_t>(dayWord & dayMask) - julianDayOfEpoch;
    if (day < firstDay || day > lastDay) {
        return std::nullopt;
    }
    return day;
}

DWORD DayWordOf(int64_t day) noexcept {
    return static_cast<DWORD>(day + julianDayOfEpoch);
}

/** The zone's distance from Greenwich in minutes, daylight saving included. */
int ZoneOffset(DWORD dayWord) noexcept {
    const int quarters = static_cast<int>((dayWord >> quarterShift) & 3);
    const int hours = static_cast<int>((dayWord >> hourShift) & 15);
    const int base = hours * 60 + quarters * 15;
    return (dayWord & eastBit ? base : -base) + (dayWord & dstBit ? 60 : 0);
}

std::optional<DWORD> ZoneBits(int offset, bool dst) noexcept {
    const int base = offset - (dst ? 60 : 0);
    const auto distance = static_cast<DWORD>(base < 0 ? -base : base);
    if (distance % 15 != 0 || distance / 60 > maxZoneHours) {
        return std::nullopt;
    }
    return (dst ? dstBit : 0) | (base > 0 ? eastBit : 0) | (distance % 60 / 15) << quarterShift |
           (distance / 60) << hourShift;
}

/** A number of hundredths since 1970 by day and time of the day. */
struct DayAndTime {
    int64_t day;
    int64_t ticks;
};

DayAndTime SplitDay(int64_t hundredths) noexcept {
    const int64_t ticks = (hundredths % ticksPerDay + ticksPerDay) % ticksPerDay;
    return {(hundredths - ticks) / ticksPerDay, ticks};
}

// Every time of an import is written again, to see whether it stood there in these words: hence no snprintf.

/** The number's last digits, as many as `width`. */
std::string Digits(int64_t number, size_t width) {
    std::string text(width, '0');
    for (; width > 0; number /= 10) {
        text[--width] = static_cast<char>('0' + number % 10);
    }
    return text;
}

std::string DateText(int64_t day) {
    const std::chrono::year_month_day date{std::chrono::sys_days{std::chrono::days{day}}};
    return Digits(static_cast<int>(date.year()), 4) + Digits(static_cast<unsigned>(date.month()), 2) +
           Digits(static_cast<unsigned>(date.day()), 2);
}

std::string TimeText(int64_t ticks) {
    const int64_t seconds = ticks / ticksPerSecond;
    return "T" + Digits(seconds / 3600, 2) + Digits(seconds / 60 % 60, 2) + Digits(seconds % 60, 2) + "," +
           Digits(ticks % ticksPerSecond, 2);
}

std::string OffsetText(int offset) {
    const int distance = offset < 0 ? -offset : offset;
    const std::string hours = (offset < 0 ? "-" : "+") + Digits(distance / 60, 2);
    return distance % 60 == 0 ? hours : hours + Digits(distance % 60, 2);
}

/** Takes digits and signs off the front of a text; a failure sticks. */
class Reader {
public:
    explicit Reader(std::string_view text) : rest_(text) {}

    int Number(size_t digits) noexcept {
        int value = 0;
        for (size_t i = 0; i < digits; ++i) {
            if (i >= rest_.size() || rest_[i] < '0' || rest_[i] > '9') {
                good_ = false;
                return 0;
            }
            value = value * 10 + (rest_[i] - '0');
        }
        rest_.remove_prefix(digits);
        return value;
    }
    bool Sign(char wanted) noexcept {
        if (!rest_.starts_with(wanted)) {
            return false;
        }
        rest_.remove_prefix(1);
        return true;
    }
    [[nodiscard]] size_t Left() const noexcept { return rest_.size(); }
    [[nodiscard]] bool Done() const noexcept { return good_ && rest_.empty(); }
    void Fail() noexcept { good_ = false; }

private:
    std::string_view rest_;
    bool good_ = true;
};

int64_t ReadDate(Reader& reader) noexcept {
    const int year = reader.Number(4);
    const auto month = static_cast<unsigned>(reader.Number(2));
    const auto day = static_cast<unsigned>(reader.Number(2));
    const std::chrono::year_month_day date{std::chrono::year{year}, std::chrono::month{month}, std::chrono::day{day}};
    if (year < 1 || !date.ok()) {
        reader.Fail();
    }
    return date.ok() ? std::chrono::sys_days{date}.time_since_epoch().count() : 0;
}

int64_t ReadTime(Reader& reader) noexcept {
    const int hours = reader.Number(2);
    const int minutes = reader.Number(2);
    const int seconds = reader.Number(2);
    const int hundredths = reader.Sign(',') ? reader.Number(2) : 0;
    if (hours > 23 || minutes > 59 || seconds > 59) {
        reader.Fail();
    }
    return ((int64_t{hours} * 60 + minutes) * 60 + seconds) * ticksPerSecond + hundredths;
}

/** Minutes east of Greenwich; none given is Greenwich. */
int ReadOffset(Reader& reader) noexcept {
    if (reader.Left() == 0 || reader.Sign('Z')) {
        return 0;
    }
    const bool west = reader.Sign('-');
    if (!west && !reader.Sign('+')) {
        reader.Fail();
    }
    const int hours = reader.Number(2);
    const int minutes = reader.Left() > 0 ? reader.Number(2) : 0;
    if (minutes > 59) {
        reader.Fail();
    }
    return west ? -(hours * 60 + minutes) : hours * 60 + minutes;
}

} // namespace

TIMEDATE TimedateFromHundredths(int64_t hundredths) noexcept {
    hundredths = std::clamp(hundredths, firstDay * ticksPerDay, (lastDay + 1) * ticksPerDay - 1);
    const auto [day, ticks] = SplitDay(hundredths);
    return TIMEDATE{{static_cast<DWORD>(ticks), DayWordOf(day)}};
}

std::optional<int64_t> HundredthsFromTimedate(const TIMEDATE& time) noexcept {
    const auto day = DayOf(time.Innards[1]);
    if (!day || time.Innards[0] >= ticksPerDay) {
        return std::nullopt;
    }
    return *day * ticksPerDay + time.Innards[0];
}

bool IsDaylightSaving(const TIMEDATE& time) noexcept {
    return time.Innards[0] != anyTime && time.Innards[1] != anyDay && (time.Innards[1] & dstBit) != 0;
}

std::optional<std::string> DxlFromTimedate(const TIMEDATE& time) {
    if (time.Innards[1] == anyDay) {
        if (time.Innards[0] >= ticksPerDay) {
            return std::nullopt;
        }
        return TimeText(time.Innards[0]);
    }
    if (time.Innards[0] == anyTime) {
        const auto day = DayOf(time.Innards[1]);
        if (!day || DayWordOf(*day) != time.Innards[1]) {
            return std::nullopt; // a zone has no place in a date alone
        }
        return DateText(*day);
    }
    const auto hundredths = HundredthsFromTimedate(time);
    const int offset = ZoneOffset(time.Innards[1]);
    if (!hundredths || ZoneBits(offset, IsDaylightSaving(time)) != (time.Innards[1] & ~dayMask)) {
        return std::nullopt; // "east of Greenwich" by nothing, for one
    }
    const auto [day, ticks] = SplitDay(*hundredths + offset * ticksPerMinute);
    if (day < firstDay || day > lastDay) {
        return std::nullopt;
    }
    return DateText(day) + TimeText(ticks) + OffsetText(offset);
}

std::optional<TIMEDATE> TimedateFromDxl(std::string_view text, bool dst) {
    Reader reader(text);
    if (reader.Sign('T')) {
        const int64_t ticks = ReadTime(reader);
        if (!reader.Done() || dst) {
            return std::nullopt;
        }
        return TIMEDATE{{static_cast<DWORD>(ticks), anyDay}};
    }
    const int64_t localDay = ReadDate(reader);
    if (!reader.Sign('T')) {
        if (!reader.Done() || dst) {
            return std::nullopt;
        }
        return TIMEDATE{{anyTime, DayWordOf(localDay)}};
    }
    const int64_t localTicks = ReadTime(reader);
    const int offset = ReadOffset(reader);
    const auto zone = ZoneBits(offset, dst);
    const int64_t hundredths = localDay * ticksPerDay + localTicks - offset * ticksPerMinute;
    if (!reader.Done() || !zone || hundredths < firstDay * ticksPerDay || hundredths >= (lastDay + 1) * ticksPerDay) {
        return std::nullopt;
    }
    TIMEDATE time = TimedateFromHundredths(hundredths);
    time.Innards[1] |= *zone;
    return time;
}

bool IsBefore(const TIMEDATE& a, const TIMEDATE& b) noexcept {
    const DWORD dayA = a.Innards[1] & dayMask, dayB = b.Innards[1] & dayMask;
    return dayA != dayB ? dayA < dayB : a.Innards[0] < b.Innards[0];
}

std::string TextFromHundredths(int64_t hundredths) {
    const auto [day, ticks] = SplitDay(*HundredthsFromTimedate(TimedateFromHundredths(hundredths)));
    std::string text = DateText(day) + TimeText(ticks);
    text.replace(8, 1, " "); // yyyymmddThhmmss,hh
    text.insert(13, ":").insert(11, ":");
    text.insert(6, "-").insert(4, "-");
    return text + " UTC";
}

} // namespace embedded
