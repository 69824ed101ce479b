#include "Platform/Calendar.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <time.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace wakelatch::platform {
namespace {

using namespace std::chrono;

const char* const zoneTable = "/usr/share/zoneinfo/zone1970.tab";

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
  if (!std::filesystem::exists(zoneTable)) GTEST_SKIP() << "no time zones here";
  // The last whole second of the first of two days.
  using Row = std::tuple<const char*, const char*, year_month_day, year_month_day>;
  for (const auto& [name, lastInstant, day, next] : std::to_array<Row>({
           {"America/Sao_Paulo", "2018-11-04T02:59:59Z", 2018y / 11 / 3, 2018y / 11 / 4},
           {"America/Sao_Paulo", "2018-02-18T02:59:59Z", 2018y / 2 / 17, 2018y / 2 / 18},
           {"America/Mexico_City", "2025-07-15T05:59:59Z", 2025y / 7 / 14, 2025y / 7 / 15},
           {"Pacific/Apia", "2011-12-30T09:59:59Z", 2011y / 12 / 29, 2011y / 12 / 31},
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

// `date` also shows the seconds of local mean time, before there were zones.
TEST(Calendar, AgreesWithTheDateProgramInEveryZone) {
#ifndef __linux__
  GTEST_SKIP() << "date takes no list of instants here";
#endif
  std::vector<std::string> zones = {"<+0545>-5:45", "CET-1CEST,M3.5.0,M10.5.0/3"};
  std::ifstream table(zoneTable);
  for (std::string line, field; std::getline(table, line);) {
    std::istringstream fields(line);
    if (line[0] != '#' && fields >> field >> field >> field) zones.push_back(field);
  }
  if (zones.size() == 2) GTEST_SKIP() << "no time zones here";

  // From 1811 to 2100: in local mean time, in winter, in summer, between, beyond the tables.
  const std::vector<double> instants = {-5e9,       -2e9,       1.3e9,     1736922600,
                                        1752557400, 1761438600, 4102444800};
  std::string command = "for zone in";
  for (const std::string& zone : zones) command += " '" + zone + "'";
  command += "; do TZ=$zone date -f - +%FT%TZ <<END\n";
  for (const double instant : instants) command += '@' + std::to_string(instant) + '\n';
  FILE* const dates = ::popen((command + "END\ndone").c_str(), "r");
  ASSERT_TRUE(dates);
  for (const std::string& name : zones) {
    const InZone zone(name);
    for (const double instant : instants) {
      char line[64] = "";
      ASSERT_TRUE(::fgets(line, sizeof line, dates));
      const Timestamp expected = parseIso8601(std::string_view(line, 20)).value();
      EXPECT_EQ(localOffset(at(instant)), expected - at(instant)) << name << ' ' << line;
      EXPECT_EQ(localDay(at(instant)).time_since_epoch(), floor<days>(expected).time_since_epoch())
          << name << ' ' << line;
    }
  }
  EXPECT_EQ(::pclose(dates), 0);
}

}  // namespace
}  // namespace wakelatch::platform
