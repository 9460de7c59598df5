// The platform's moment: ticks of 10 ms and Julian day, with the zone it was written in.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "notes_api.h"

namespace embedded {

/** A moment of which one half is missing has all bits set in that half. */
constexpr DWORD anyTime = 0xFFFFFFFF;
constexpr DWORD anyDay = 0xFFFFFFFF;

/** Hundredths of a second since 1970-01-01 00:00:00 UTC, to a TIMEDATE in zone GMT and back. */
TIMEDATE TimedateFromHundredths(int64_t hundredths) noexcept;
/** Nothing for a wildcard (date only, time only, all bits set) or a day out of range. */
std::optional<int64_t> HundredthsFromTimedate(const TIMEDATE& time) noexcept;

/** DXL's form: "20010522T103636,81-04"; a date or a time alone too. Nothing when it has none (bad bits); with
 *  IsDaylightSaving() it gives the same bits again. */
std::optional<std::string> DxlFromTimedate(const TIMEDATE& time);
/** `dst`: DXL's attribute of that name. Hundredths may be left out; a moment without zone is in GMT. */
std::optional<TIMEDATE> TimedateFromDxl(std::string_view text, bool dst);
bool IsDaylightSaving(const TIMEDATE& time) noexcept;

/** By day and time; a zone does not count. */
bool IsBefore(const TIMEDATE& a, const TIMEDATE& b) noexcept;

/** "2026-11-22 20:33:00,12 UTC" for a person. */
std::string TextFromHundredths(int64_t hundredths);

} // namespace embedded
