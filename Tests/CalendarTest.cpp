#include "Platform/Calendar.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <map>
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
    local_days day;
  };
  for (const Row& row : std::to_array<Row>({
           {"America/Sao_Paulo", "2018-11-04T02:59:59Z", local_days{2018y / 11 / 3}},
           {"Europe/Berlin", "2024-12-31T22:59:59Z", local_days{2024y / 12 / 31}},
           {"America/New_York", "2024-02-29T04:59:59Z", local_days{2024y / 2 / 28}},
           {"Asia/Kathmandu", "2025-01-01T18:14:59Z", local_days{2025y / 1 / 1}},
           {"Pacific/Kiritimati", "2024-12-31T09:59:59Z", local_days{2024y / 12 / 31}},
           {"Etc/GMT+12", "2025-01-01T11:59:59Z", local_days{2024y / 12 / 31}},
           {"Pacific/Apia", "2011-12-30T09:59:59Z", local_days{2011y / 12 / 29}},
           {"UTC", "1500-02-28T23:59:59Z", local_days{1500y / 2 / 28}},
       })) {
    const TimeZone zone(row.zone);
    const bool skipsADay = row.day == local_days{2011y / 12 / 29};
    EXPECT_EQ(zone.day(at(row.lastInstant)), row.day) << row.zone;
    EXPECT_EQ(zone.day(after(at(row.lastInstant), 0.999)), row.day) << row.zone;
    EXPECT_EQ(zone.day(after(at(row.lastInstant), 1)), row.day + days{skipsADay ? 2 : 1})
        << row.zone;
  }
}

TEST(Calendar, DaysAreAsLongAsTheClocksMakeThem) {
  struct Row {
    const char* zone;
    year_month_day day;
    double hours;
  };
  for (const Row& row : std::to_array<Row>({
           {"America/Sao_Paulo", 2018y / 11 / 4, 23},  // no midnight
           {"America/Sao_Paulo", 2018y / 2 / 17, 25},
           {"Asia/Beirut", 2021y / 3 / 28, 23},  // no midnight
           {"Asia/Beirut", 2021y / 10 / 30, 25},
           {"Africa/Cairo", 2014y / 5 / 16, 23},  // no midnight
           {"Africa/Cairo", 2014y / 9 / 25, 25},
           {"America/Havana", 2021y / 11 / 7, 25},  // midnight comes twice
           {"Europe/Berlin", 2025y / 3 / 30, 23},
           {"Europe/Berlin", 2025y / 10 / 26, 25},
           {"Australia/Lord_Howe", 2021y / 10 / 3, 23.5},
           {"Pacific/Apia", 2011y / 12 / 29, 24},
           {"Pacific/Apia", 2011y / 12 / 30, 0},  // there was none
           {"Pacific/Kiritimati", 2024y / 12 / 31, 24},
       })) {
    const TimeZone zone(row.zone);
    double hours = 0;
    for (double minutes = -48 * 60; minutes < 48 * 60; minutes += 30) {
      if (zone.day(after(Timestamp{sys_days{row.day}}, minutes * 60)) == local_days{row.day}) {
        hours += 0.5;
      }
    }
    EXPECT_EQ(hours, row.hours) << row.zone << ' ' << unsigned{row.day.day()};
  }
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
