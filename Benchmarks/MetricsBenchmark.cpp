// The cost of ten years of statistics: a tick on them, compared with a tick on ten days and with a
// copy, and their JSON form, compared with the JSON library's own.
#include <chrono>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "Benchmarks/SideBySide.h"
#include "WakelatchCore/UsageMetrics.h"

namespace {

using namespace wakelatch;

constexpr int ticks = 100'000;

/// Statistics of `days` days and six agents, up to a tick just before noon of the last day.
UsageMetrics storeOf(int days) {
  const Timestamp end = platform::parseIso8601("2025-03-01T12:00:00Z").value();
  UsageMetrics metrics(after(end, -86400.0 * days));
  for (int i = 0; i < days; ++i) {
    DayBucket& bucket = metrics.days[UsageMetrics::dayKey(after(end, -86400.0 * i))];
    const double part = 1000.0 / (i + 7);  // many digits, like real sums
    bucket = {3600 + part, 7200 + part, 100 + part, part, 11, 13, {}, {}};
    for (const char* agent : {"claude", "codex", "gemini", "cursor", "opencode", "aider"}) {
      bucket.protectedSecondsByAgent[agent] = 600 + part;
      bucket.sessionsByAgent[agent] = i % 5;
    }
  }
  metrics.lastTickAt = end;
  return metrics;
}

template <class Work>
double microsecondsOf(const Work& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
      .count();
}

/// The time of one tick on `metrics`, which are moved in and back.
bench::Side tickOn(UsageMetrics& metrics) {
  return [&metrics] {
    const Timestamp start = *metrics.lastTickAt;
    const double time = microsecondsOf([&] {
      for (int i = 1; i <= ticks; ++i) {
        metrics = UsageMetrics::recording(std::move(metrics), true, KeepAwakeTrigger::activeSignal,
                                          SignalStrength::strong, LidState::closed, "codex", 90,
                                          true, after(start, 0.01 * i));
      }
    });
    metrics.lastTickAt = start;
    return time / ticks;
  };
}

}  // namespace

int main() {
  UsageMetrics tenYears = storeOf(3650), tenDays = storeOf(10);
  if (tenYears.days.size() != 3650) std::abort();
  bench::compare("tick on ten years, against ten days", "us", tickOn(tenYears), tickOn(tenDays),
                 1.5);
  bench::compare(
      "tick on ten years, against a copy of them", "us", tickOn(tenYears),
      [&] {
        return microsecondsOf([&] {
          if (UsageMetrics(tenYears).days.empty()) std::abort();
        });
      },
      0.001);

  const std::string text = encode(tenYears);
  const auto tree = nlohmann::ordered_json::parse(text);
  bench::compare(
      "decode ten years, against a bare parse", "us",
      [&] {
        return microsecondsOf([&] {
          if (decode<UsageMetrics>(text).days.empty()) std::abort();
        });
      },
      [&] {
        return microsecondsOf([&] {
          if (nlohmann::json::parse(text).empty()) std::abort();
        });
      },
      2);
  bench::compare(
      "encode ten years, against a bare dump", "us",
      [&] {
        return microsecondsOf([&] {
          if (encode(tenYears).empty()) std::abort();
        });
      },
      [&] {
        return microsecondsOf([&] {
          if (tree.dump().empty()) std::abort();
        });
      },
      2);
}
