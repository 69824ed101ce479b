#include "Platform/Calendar.h"

#include <gtest/gtest.h>
#include <time.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>

namespace wakelatch::platform {
namespace {

using namespace std::chrono;

Timestamp at(double seconds) {
  return Timestamp{duration<double>{seconds}};
}

/// The process in another zone.
struct InZone {
  const char* before = std::getenv("TZ");
  std::string kept = before ? before : "";

  explicit InZone(const std::string& zone) {
    ::setenv("TZ", zone.c_str(), 1);
    ::tzset();
  }
  ~InZone() {
    before ? ::setenv("TZ", kept.c_str(), 1) : ::unsetenv("TZ");
    ::tzset();
  }
};

TEST(Calendar, LocalDaysEndWhereTheClocksMakeThem) {
  if (!std::filesystem::exists("/usr/share/zoneinfo/UTC")) GTEST_SKIP() << "no time zones here";
  // The last whole second of the first of two days.
  using Row = std::tuple<const char*, const char*, year_month_day, year_month_day>;
  for (const auto& [name, lastInstant, day, next] : std::to_array<Row>({
           {"America/Sao_Paulo", "2018-11-04T02:59:59Z", 2018y / 11 / 3, 2018y / 11 / 4},
           {"America/Sao_Paulo", "2018-02-18T02:59:59Z", 2018y / 2 / 17, 2018y / 2 / 18},
           {"America/Mexico_City", "2025-07-15T05:59:59Z", 2025y / 7 / 14, 2025y / 7 / 15},
           {"Pacific/Apia", "2011-12-30T09:59:59Z", 2011y / 12 / 29, 2011y / 12 / 31},
           {"<+0545>-5:45", "2025-07-14T18:14:59Z", 2025y / 7 / 14, 2025y / 7 / 15},
           {"UTC", "1500-02-28T23:59:59Z", 1500y / 2 / 28, 1500y / 3 / 1},
       })) {
    const InZone zone(name);
    const Timestamp last = parseIso8601(lastInstant).value();
    EXPECT_EQ(localDay(after(last, 0.999)), local_days{day}) << name << lastInstant;
    EXPECT_EQ(localDay(after(last, 1)), local_days{next}) << name << lastInstant;
  }
}

TEST(Calendar, AnyInstantHasADay) {
  const InZone zone("<+14>-14");
  const auto day = [](double seconds) { return localDay(at(seconds)); };
  for (const double early : {-HUGE_VAL, -1e11, std::nan("")}) EXPECT_EQ(day(early), firstDay);
  for (const double late : {HUGE_VAL, 2.6e11}) EXPECT_EQ(day(late), lastDay);
  EXPECT_EQ(day(-14 * 3600 - 0.001), local_days{1969y / 12 / 31});
  for (const double any : {-HUGE_VAL, HUGE_VAL, std::nan("")}) EXPECT_EQ(localOffset(at(any)), 14h);
}

}  // namespace
}  // namespace wakelatch::platform
