#include "WakelatchCore/Json.h"

#include <gtest/gtest.h>

#include <cmath>

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

constexpr auto signal = problem<ActivitySignal>;
constexpr auto power = problem<PowerSnapshot>;
constexpr auto settings = problem<GuardSettings>;
constexpr auto usage = problem<UsageMetrics>;

TEST(Json, ErrorsNameTheKeyAndWhatIsWrong) {
  const std::string day = R"({"installDate":0,"days":{"2025-03-01":)";
  const std::tuple<std::string (*)(std::string_view), std::string, std::string> rows[] = {
      {signal, R"({"strength":5})", "strength: no such case: 5"},
      {signal, R"({"strength":3,"reason":null})", "reason: must not be null"},
      {signal, R"({"appName":1,"strength":3})", "reason: missing"},
      {power, R"({"isOnACPower":1})", "isOnACPower: expected true or false"},
      {settings, R"({"warningPercent":-9223372036854775808.0})",
       "warningPercent: expected an integer of at most 64 bits"},
      {settings, R"({"batteryProfile":{}})", "batteryProfile.batteryCutoffPercent: missing"},
      {settings, R"({"cpuThresholdPercent":false})", "cpuThresholdPercent: expected a number"},
      {settings, R"({"targetApps":["a",null]})", "targetApps[1]: expected a string"},
      {settings, R"({"targetApps":{}})", "targetApps: expected an array"},
      {usage, day + "{}}}", "days.2025-03-01.protectedSeconds: missing"},
      {usage, R"({"installDate":0,"lastCloseReason":"Idle"})",
       R"(lastCloseReason: no such case: "Idle")"},
  };
  for (const auto& [problem, text, expected] : rows) EXPECT_EQ(problem(text), expected) << text;
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
  const std::string deep = std::string(100'000, '[') + std::string(100'000, ']');
  EXPECT_EQ(usage(deep), "expected an object");
  EXPECT_EQ(settings("{\"unknown\":" + deep + "}"), "");
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
  EXPECT_EQ(decode<double>("18446744073709551616"), 0x1p64);
}

TEST(Json, DatesAreNumbersOrIso8601CutToTheSecond) {
  EXPECT_EQ(encode(after({}, 978307200.25)), "0.25");
  EXPECT_EQ(decode<Timestamp>("-9.783072e8"), Timestamp{});
  EXPECT_EQ(encode(after({}, 0.1), DateCoding::secondsSince1970), "0.1");
  constexpr auto iso = DateCoding::iso8601;
  const std::string text = R"("1969-12-31T23:59:58Z")";
  EXPECT_EQ(encode(after({}, -1.1), iso), text);
  EXPECT_EQ(encode(decode<Timestamp>(text, iso), iso), text);
  EXPECT_THROW(decode<Timestamp>("-2", iso), DecodingError);
  EXPECT_THROW(encode(after({}, 1e12), iso), std::domain_error);
  EXPECT_THROW(encode(after({}, std::nan(""))), std::domain_error);
}

}  // namespace
}  // namespace wakelatch
