#include "WakelatchCore/Json.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

#include "WakelatchCore/UsageMetrics.h"

namespace wakelatch {
namespace {

/// What a decoding complains about; empty when it succeeds.
template <class T>
std::string problem(std::string_view text) {
  try {
    decode<T>(text);
    return "";
  } catch (const DecodingError& error) {
    return error.what();
  }
}

std::string nested(std::size_t depth) {
  return std::string(depth, '[') + std::string(depth, ']');
}

constexpr auto signal = problem<ActivitySignal>;
constexpr auto power = problem<PowerSnapshot>;
constexpr auto settings = problem<GuardSettings>;
constexpr auto usage = problem<UsageMetrics>;

TEST(Json, ErrorsNameTheKeyAndWhatIsWrong) {
  const std::string bucket =
      R"({"protectedSeconds":1,"keptAwakeSeconds":1,"manualSeconds":1,"sessionsSaved":1,)"
      R"("pluggedInUnlimitedSeconds":1,"totalSessions":"1")";
  const std::string day = R"({"installDate":0,"days":{"2025-03-01":)";
  struct Row {
    std::string (*problem)(std::string_view);
    std::string text, expected;
  };
  for (const Row& row : std::vector<Row>{
           {signal, R"({"strength":5,"reason":""})", "strength: no such case: 5"},
           {signal, R"({"strength":2.5,"reason":""})", "strength: expected an integer"},
           {signal, R"({"strength":"3","reason":""})", "strength: expected an integer"},
           {signal, R"({"strength":true,"reason":""})", "strength: expected an integer"},
           {signal, R"({"strength":3,"reason":null})", "reason: must not be null"},
           {signal, R"({"appName":1,"strength":3})", "reason: missing"},
           {power, R"({"isOnACPower":1})", "isOnACPower: expected true or false"},
           {power,
            R"({"isOnACPower":true,"rawDescription":"","batteryPercent":9223372036854775808})",
            "batteryPercent: expected an integer of at most 64 bits"},
           {settings, "[]", "expected an object"},
           {settings, R"({"batteryProfile":{}})", "batteryProfile.batteryCutoffPercent: missing"},
           {settings, R"({"warningPercent":"9"})", "warningPercent: expected an integer"},
           {settings, R"({"idleGracePeriodSeconds":false})",
            "idleGracePeriodSeconds: expected a number"},
           {settings, R"({"targetApps":["a",null]})", "targetApps[1]: expected a text"},
           {settings, R"({"targetApps":{}})", "targetApps: expected a list"},
           {usage, R"({"days":5})", "installDate: missing"},
           {usage, R"({"installDate":"2025-03-01"})", "installDate: expected a number"},
           {usage, day + "null}}", "days.2025-03-01: expected an object"},
           {usage, day + bucket + "}}}", "days.2025-03-01.totalSessions: expected an integer"},
           {usage, R"({"installDate":0,"lastCloseReason":"Idle"})",
            "lastCloseReason: no such case: \"Idle\""},
       }) {
    EXPECT_EQ(row.problem(row.text), row.expected) << row.text;
  }
}

TEST(Json, WhatIsNoJsonIsAnError) {
  for (const std::string& text : std::vector<std::string>{
           "", "{", "nul", "{}x", "{'a':1}", "[1,]", "{\"a\":NaN}", "{\"installDate\":1e999}", "01",
           "\xff", "\"\xed\xa0\x80\"", "{\"\xc3\":1}", std::string("{}\0", 3), "\"\\ud800\"",
           std::string(100'000, '['), "\"" + std::string(1'000'000, 'x') + "\xff\""}) {
    const std::string problem = usage(text);
    EXPECT_EQ(problem.rfind("not JSON: ", 0), 0u) << text.substr(0, 50) << " gives " << problem;
    EXPECT_LT(problem.size(), 300u);
  }
  EXPECT_EQ(usage(nested(100'000)), "expected an object");
  EXPECT_EQ(settings("{\"unknown\":" + nested(100'000) + "}"), "");
}

TEST(Json, ReadsWhatIsMeantAndWritesInOrder) {
  const auto snapshot = decode<PowerSnapshot>(
      R"( {"batteryPercent":1,"isOnACPower":true,"rawDescription":"\u00e9\n","batteryPercent":2e1} )");
  EXPECT_EQ(snapshot, (PowerSnapshot{true, 20, "é\n"}));
  EXPECT_EQ(encode(snapshot), R"({"isOnACPower":true,"batteryPercent":20,"rawDescription":"é\n"})");
  EXPECT_EQ(encode(decode<ActivitySignal>(
                R"({"processPresent":null,"reason":"r","strength":3.0,"sessionCount":-0})")),
            R"({"strength":3,"reason":"r","sessionCount":0})");
  EXPECT_EQ(encode(std::string("a\"\\\x01\x7f\xff")), "\"a\\\"\\\\\\u0001\x7f\xEF\xBF\xBD\"");
  EXPECT_EQ(encode(std::vector<double>{0.1, -0.0, 5, 1e300}), "[0.1,-0.0,5,1e+300]");
  EXPECT_TRUE(std::signbit(decode<double>("-0.0")));
  EXPECT_EQ(decode<double>("18446744073709551616"), 18446744073709551616.0);
}

TEST(Json, NumericDatesKeepEveryBit) {
  std::mt19937_64 random(1);
  const auto fraction = [&] { return std::ldexp(static_cast<double>(random() >> 11), -53); };
  std::vector<double> instants = {0,           0.1,
                                  -0.1,        1e-300,
                                  -978307200,  978307200.1,
                                  489153599.9, 1.7e9 + 0.123456789,
                                  -5e9 / 3,    1.8446744073709552e19};
  for (int i = 0; i < 2000; ++i) {
    instants.push_back(fraction() * 4e9 - 1e9);
    double anything = 0;
    const std::uint64_t bits = random();
    std::memcpy(&anything, &bits, sizeof anything);
    if (std::isfinite(anything)) instants.push_back(anything);
  }
  for (const double seconds : instants) {
    const Timestamp instant{std::chrono::duration<double>{seconds}};
    for (const auto coding : {DateCoding::secondsSince2001, DateCoding::secondsSince1970}) {
      EXPECT_EQ(decode<Timestamp>(encode(instant, coding), coding), instant)
          << encode(instant, coding);
    }
  }
  const Timestamp instant = platform::parseIso8601("2025-03-01T14:05:09Z").value();
  EXPECT_EQ(encode(after(instant, 0.25)), "762530709.25");
  EXPECT_EQ(encode(Timestamp{}), "-978307200");
  EXPECT_EQ(encode(after(Timestamp{}, 0.1)), "-978307199.9");
  EXPECT_EQ(decode<Timestamp>("762530709"), instant);
  EXPECT_EQ(decode<Timestamp>("-9.783072e8"), Timestamp{});
}

TEST(Json, DatesInIso8601AreCutToTheSecond) {
  constexpr auto iso = DateCoding::iso8601;
  const Timestamp instant = platform::parseIso8601("1969-12-31T23:59:58Z").value();
  EXPECT_EQ(encode(after(instant, 0.9), iso), "\"1969-12-31T23:59:58Z\"");
  EXPECT_EQ(decode<Timestamp>("\"1969-12-31T23:59:58Z\"", iso), instant);
  for (const char* text : {"\"1969-12-31T23:59:58\"", "\"1969-02-29T23:59:58Z\"", "5",
                           "\"1969-12-31T24:00:00Z\"", "\"1969-12-31T23:59:58.5Z\""}) {
    EXPECT_THROW(decode<Timestamp>(text, iso), DecodingError) << text;
  }
}

TEST(Json, RefusesToWriteWhatCannotBeRead) {
  const Timestamp start;
  EXPECT_THROW(encode(std::nan("")), std::domain_error);
  EXPECT_THROW(encode(after(start, 1e12), DateCoding::iso8601), std::domain_error);
  EXPECT_THROW(encode(after(start, -INFINITY), DateCoding::secondsSince2001), std::domain_error);
}

}  // namespace
}  // namespace wakelatch
