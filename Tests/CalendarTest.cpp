#include "Platform/Calendar.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace wakelatch::platform {
namespace {

using namespace std::chrono;

Timestamp at(std::string_view text) {
  return parseIso8601(text).value();
}

TEST(Calendar, NamesTheLocalDay) {
  struct Row {
    const char* zone;
    const char* lastInstant;  // the last whole second of `day`
    year_month_day day, next;
  };
  for (const auto& [name, lastInstant, day, next] : std::to_array<Row>({
           {"America/Sao_Paulo", "2018-11-04T02:59:59Z", 2018y / 11 / 3, 2018y / 11 / 4},
           {"America/New_York", "2024-02-29T04:59:59Z", 2024y / 2 / 28, 2024y / 2 / 29},
           {"Asia/Kathmandu", "2025-01-01T18:14:59Z", 2025y / 1 / 1, 2025y / 1 / 2},
           {"Pacific/Kiritimati", "2024-12-31T09:59:59Z", 2024y / 12 / 31, 2025y / 1 / 1},
           {"Etc/GMT+12", "2025-01-01T11:59:59Z", 2024y / 12 / 31, 2025y / 1 / 1},
           {"Pacific/Apia", "2011-12-30T09:59:59Z", 2011y / 12 / 29, 2011y / 12 / 31},
           {"UTC", "1500-02-28T23:59:59Z", 1500y / 2 / 28, 1500y / 3 / 1},
       })) {
    const TimeZone zone(name);
    EXPECT_EQ(zone.day(after(at(lastInstant), 0.999)), local_days{day}) << name;
    EXPECT_EQ(zone.day(after(at(lastInstant), 1)), local_days{next}) << name;
  }
}

TEST(Calendar, DaysAreAsLongAsTheClocksMakeThem) {
  const auto hours = [](const char* name, year_month_day day) {
    const TimeZone zone(name);
    const Timestamp midnight{sys_days{day}};
    int halves = 0;
    for (int half = -96; half < 96; ++half) {
      halves += zone.day(after(midnight, half * 1800)) == local_days{day};
    }
    return halves / 2.0;
  };
  EXPECT_EQ(hours("America/Sao_Paulo", 2018y / 11 / 4), 23) << "no midnight";
  EXPECT_EQ(hours("America/Sao_Paulo", 2018y / 2 / 17), 25);
  EXPECT_EQ(hours("Asia/Beirut", 2021y / 3 / 28), 23) << "no midnight";
  EXPECT_EQ(hours("America/Havana", 2021y / 11 / 7), 25) << "midnight comes twice";
  EXPECT_EQ(hours("Europe/Berlin", 2025y / 3 / 30), 23);
  EXPECT_EQ(hours("Europe/Berlin", 2025y / 10 / 26), 25);
  EXPECT_EQ(hours("Australia/Lord_Howe", 2021y / 10 / 3), 23.5);
  EXPECT_EQ(hours("Pacific/Apia", 2011y / 12 / 30), 0) << "there was none";
}

TEST(Calendar, AnyInstantHasADay) {
  const TimeZone zone("Pacific/Kiritimati");
  constexpr double infinity = std::numeric_limits<double>::infinity();
  const auto day = [&](double seconds) { return zone.day(Timestamp{duration<double>{seconds}}); };
  for (const double early : {-infinity, -1e300, -1e11, std::nan("")}) {
    EXPECT_EQ(day(early), firstDay) << early;
  }
  for (const double late : {infinity, 1e300, 2.6e11}) EXPECT_EQ(day(late), lastDay) << late;
  EXPECT_EQ(day(-0.001), local_days{1969y / 12 / 31});
  EXPECT_THROW(TimeZone("Nowhere/Land"), std::invalid_argument);
  EXPECT_THROW(TimeZone(""), std::invalid_argument);
}

}  // namespace
}  // namespace wakelatch::platform
