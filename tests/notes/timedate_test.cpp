#include "engine/values/timedate.h"

#include <gtest/gtest.h>

#include "engine/values/unid.h"

namespace embedded {
namespace {

constexpr int64_t day = int64_t{24} * 60 * 60 * 100;
constexpr TIMEDATE wildcard{{0xFFFFFFFF, 0xFFFFFFFF}};

TEST(Timedate, HasOneDxlFormAndOneOnly) {
    struct Case {
        TIMEDATE time;
        const char* text;
        bool dst;
    };
    const Case cases[] = {
        {{{0x005F8BFC, 0x85256A38}}, "20010424T132337,56-04", true},
        {{{0, 0x85255DC9}}, "19920805T200000,00-04", true}, // the day before, there
        {{{0, 0x00253D8C}}, "19700101T000000,00+00", false},
        {{{0x0018B820, 0x65258B2F}}, "20240601T100000,00+0530", false},
        {{{0x0018B820, 0x75258B2F}}, "20240601T101500,00+0545", false},
        {{{0x0018B820, 0x23258B2F}}, "20240601T010000,00-0330", false},
        {{{0x0018B820, 0xE9258B2F}}, "20240601T150000,00+1030", true},
        {{{0x0018B820, 0x80258B2F}}, "20240601T053000,00+01", true},
        {{{0x0018B820, 0x81258B2F}}, "20240601T043000,00+00", true},
        {{{8639999, 0x41258AD2}}, "20240301T005959,99+01", false},
        {{{8639999, 0x00258AD2}}, "20240229T235959,99+00", false},
        {{{0xFFFFFFFF, 0x00258AD2}}, "20240229", false},
        {{{0x0036EE80, 0xFFFFFFFF}}, "T100000,00", false},
        {{{0, 0x001A4452}}, "00010101T000000,00+00", false},
        {{{8639999, 0x0051FE2C}}, "99991231T235959,99+00", false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(DxlFromTimedate(c.time), c.text);
        EXPECT_EQ(IsDaylightSaving(c.time), c.dst) << c.text;
        const auto back = TimedateFromDxl(c.text, c.dst);
        ASSERT_TRUE(back) << c.text;
        EXPECT_EQ(IdText(*back), IdText(c.time)) << c.text;
    }
}

TEST(Timedate, BitsThatMeanNoMomentHaveNoDxlForm) {
    const TIMEDATE cases[] = {
        wildcard,
        {{0, 0}},                   // no such year
        {{8640000, 0x00258B2F}},    // past midnight
        {{8640000, 0xFFFFFFFF}},    //
        {{0, 0x40258B2F}},          // east of Greenwich by nothing
        {{0xFFFFFFFF, 0x41258B2F}}, // a date alone with a zone
        {{0, 0x051A4452}},          // in the year 0, there
        {{8639999, 0x4151FE2C}},    // in the year 10000, there
    };
    for (const TIMEDATE& time : cases) {
        EXPECT_EQ(DxlFromTimedate(time), std::nullopt) << IdText(time);
    }
}

TEST(Timedate, ReadsShorterForms) {
    const TIMEDATE ten{{0x0036EE80, 0x00258B2F}};
    for (const char* text : {"20240601T100000,00+00", "20240601T100000+0000", "20240601T100000Z", "20240601T100000"}) {
        const auto time = TimedateFromDxl(text, false);
        ASSERT_TRUE(time) << text;
        EXPECT_EQ(IdText(*time), IdText(ten)) << text;
    }
}

TEST(Timedate, RefusesWhatIsNoDateOrTime) {
    const char* const refused[] = {
        "",
        "20230229",
        "20241301",
        "00000101",
        "20240601T",
        "T240000",
        "T100060",
        "20240601T100000,0",
        "2024-06-01",
        "20240601T100000,00+0507",
        "T100000+01",
        "20240601T100000,00 +02",
        "20240601T100000,00+16",
        "20240601T100000,00+0060",
        "00010101T000000,00+01",
        "99991231T235959,99-01",
    };
    for (const char* text : refused) {
        EXPECT_FALSE(TimedateFromDxl(text, false)) << text;
    }
    EXPECT_FALSE(TimedateFromDxl("20240601", true));
    EXPECT_FALSE(TimedateFromDxl("T100000,00", true));
}

TEST(Timedate, CountsHundredthsSince1970) {
    struct Case {
        int64_t hundredths;
        DWORD ticks, dayWord;
        const char* text;
    };
    const Case cases[] = {
        {0, 0, 0x253D8C, "1970-01-01 00:00:00,00 UTC"},
        {-1, 8639999, 0x253D8B, "1969-12-31 23:59:59,99 UTC"},
        {179537958012, 7398012, 0x258EB7, "2026-11-22 20:33:00,12 UTC"},
        {10957 * day, 0, 0x256859, "2000-01-01 00:00:00,00 UTC"},
    };
    for (const Case& c : cases) {
        const TIMEDATE time{{c.ticks, c.dayWord}};
        EXPECT_EQ(IdText(TimedateFromHundredths(c.hundredths)), IdText(time)) << c.text;
        EXPECT_EQ(HundredthsFromTimedate(time), c.hundredths) << c.text;
        EXPECT_EQ(TextFromHundredths(c.hundredths), c.text);
    }
    EXPECT_EQ(HundredthsFromTimedate({{0, 0xE9253D8C}}), 0) << "the zone does not move the moment";
    for (const TIMEDATE& none : {wildcard, TIMEDATE{{0xFFFFFFFF, 0x253D8C}}, TIMEDATE{{0, 0xFFFFFFFF}}, TIMEDATE{}}) {
        EXPECT_EQ(HundredthsFromTimedate(none), std::nullopt) << IdText(none);
    }
    // Beyond what a TIMEDATE holds, the nearest that it does.
    EXPECT_EQ(TextFromHundredths(INT64_MAX), "9999-12-31 23:59:59,99 UTC");
    EXPECT_EQ(TextFromHundredths(INT64_MIN), "0001-01-01 00:00:00,00 UTC");
}

} // namespace
} // namespace embedded
