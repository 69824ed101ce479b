#include "Platform/Calendar.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <stdexcept>

namespace wakelatch::platform {

using namespace std::chrono;

TEST(Calendar, LocalDaysEndWhereTheClocksMakeThem) {
  // The last whole second of the first of two days.
  using Row = std::tuple<const char*, const char*, year_month_day, year_month_day>;
  for (const auto& [name, lastInstant, day, next] : std::to_array<Row>({
           {"America/Sao_Paulo", "2018-11-04T02:59:59Z", 2018y / 11 / 3, 2018y / 11 / 4},
           {"America/Sao_Paulo", "2018-02-18T02:59:59Z", 2018y / 2 / 17, 2018y / 2 / 18},
           {"Europe/Berlin", "2025-03-30T21:59:59Z", 2025y / 3 / 30, 2025y / 3 / 31},
           {"Pacific/Apia", "2011-12-30T09:59:59Z", 2011y / 12 / 29, 2011y / 12 / 31},
           {"UTC", "1500-02-28T23:59:59Z", 1500y / 2 / 28, 1500y / 3 / 1},
       })) {
    const TimeZone zone(name);
    const Timestamp last = parseIso8601(lastInstant).value();
    EXPECT_EQ(zone.day(after(last, 0.999)), local_days{day}) << name << lastInstant;
    EXPECT_EQ(zone.day(after(last, 1)), local_days{next}) << name << lastInstant;
  }
}

TEST(Calendar, AnyInstantHasADay) {
  const TimeZone zone("Pacific/Kiritimati");
  const auto day = [&](double seconds) { return zone.day(Timestamp{duration<double>{seconds}}); };
  for (const double early : {-HUGE_VAL, -1e11, std::nan("")}) EXPECT_EQ(day(early), firstDay);
  for (const double late : {HUGE_VAL, 2.6e11}) EXPECT_EQ(day(late), lastDay);
  EXPECT_EQ(day(-0.001), local_days{1969y / 12 / 31});
  EXPECT_THROW(TimeZone("Nowhere/Land"), std::invalid_argument);
}

}  // namespace wakelatch::platform
