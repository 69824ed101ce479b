#include <gmock/gmock.h>

#include <cmath>
#include <sstream>

#include "Host/trace/Limits.h"
#include "Host/trace/Score.h"
#include "Host/trace/ScoreReport.h"
#include "Host/trace/Truth.h"
#include "Platform/Files.h"
#include "Tests/TemporaryDirectory.h"

namespace wakelatch::host {
namespace {

using testing::ElementsAre, testing::HasSubstr, testing::Not, testing::StartsWith,
    testing::ThrowsMessage;

const Timestamp start = *platform::parseIso8601("2025-03-10T12:00:00Z");
const std::map<std::string, std::string> displayNames{{"a", "Alpha"}, {"b", "Beta"}};

struct Stretch {
  std::string what;
  double from, to;  // seconds after the start
};

/// A timeline in words: what happened, and for how many seconds, one after another.
std::vector<Stretch> stretchesOf(const std::string& timeline) {
  std::vector<Stretch> stretches;
  std::istringstream words(timeline);
  double at = 0, seconds = 0;
  for (std::string what; words >> what >> seconds; words.ignore()) {
    stretches.push_back({what, at, at + seconds});
    at += seconds;
  }
  return stretches;
}

/// What an agent really did; "away" is no interval.
std::vector<TruthInterval> truthOf(const std::string& agent, const std::string& timeline) {
  std::vector<TruthInterval> intervals;
  for (const auto& [what, from, to] : stretchesOf(timeline)) {
    if (const auto doing = fromRawValue<Doing>(what))
      intervals.push_back({after(start, from), after(start, to), agent, *doing});
  }
  return intervals;
}

Sample heldBy(const std::string& agent, EvidenceKind evidence) {
  return {.at = {}, .isHeld = true, .agent = agent, .evidence = evidence};
}
/// What may have been decided.
const std::map<std::string, Sample> decisions{
    {"process", heldBy("Alpha", EvidenceKind::process)},
    {"text", heldBy("Alpha", EvidenceKind::uiText)},
    {"files", heldBy("Alpha", EvidenceKind::sessionFile)},
    {"other", heldBy("Beta", EvidenceKind::process)},
    {"grace", heldBy("", EvidenceKind::none)},
    {"released", {}},
    {"sleep", {.at = {}, .isSleepAsked = true, .agent = ""}}};

/// A sample every 5 s; none while all is "unseen".
std::vector<Sample> samplesOf(const std::string& timeline) {
  std::vector<Sample> samples;
  for (const auto& [what, from, to] : stretchesOf(timeline)) {
    for (double at = from; at < to && what != "unseen"; at += 5) {
      samples.push_back(decisions.at(what));
      samples.back().at = after(start, at);
      samples.back().graceSeconds = 10;
    }
  }
  return samples;
}

/// The figures that are not 0: "work 20, delays 0 5".
std::string text(const Figures& figures) {
  std::string result;
  const auto add = [&](const std::string& name, double value) {
    if (value > 0) result += ", " + name + " " + std::to_string(std::lround(value));
  };
  add("work", figures.workSeconds);
  add("not held", figures.notHeldSeconds);
  add("longest", figures.longestNotHeldSeconds);
  add("sleeps", static_cast<double>(figures.sleepsAskedInWork));
  add("beyond", figures.beyondGraceSeconds);
  for (const auto& [kind, seconds] : figures.beyondGraceByEvidence) add(kind, seconds);
  add("idle", figures.idleHeldSeconds);
  if (!figures.detectionSeconds.empty()) result += ", delays";
  for (const double delay : figures.detectionSeconds) {
    result += " " + std::to_string(std::lround(delay));
  }
  add("other name", figures.otherNameSeconds);
  return result.empty() ? result : result.substr(2);
}

TEST(Score, FiguresAreThoseOfTheirDefinitions) {
  const struct {
    const char *truth, *samples, *figures;
  } rows[] = {
      // The allowance to its end, and beyond.
      {"working 20", "released 10, process 10", "work 20, delays 10"},
      {"working 20", "released 15, process 5", "work 20, not held 5, longest 5, delays 15"},
      {"working 40", "process 15, released 5, process 5, released 10, process 5",
       "work 40, not held 15, longest 10, delays 0"},
      {"working 15, idle 5, working 15", "process 15, grace 10, released 10",
       "work 30, not held 5, longest 5, delays 0 0"},
      // Intervals that touch are one.
      {"working 10, working 10", "released 10, process 10", "work 20, delays 10"},
      // Completion sleeps count by onset, and in work alone.
      {"working 30", "process 5, sleep 10, process 5, sleep 5, process 5, sleep 5",
       "work 30, not held 10, longest 5, sleeps 2, delays 0"},
      {"idle 5, working 10", "sleep 15", "work 10, sleeps 1, delays 10"},
      // Hold after work: grace is not counted, what follows is its last active sample's.
      {"working 10", "process 10, text 5, files 10, grace 10, released 10",
       "work 10, beyond 15, sessionFile 15, delays 0"},
      {"working 10, waiting 10", "process 10, files 5, text 5, grace 10",
       "work 10, beyond 10, uiText 10, delays 0"},
      {"working 10, idle 30, working 10", "process 30, released 10, process 10, files 15",
       "work 20, beyond 15, process 10, sessionFile 5, delays 0 0"},
      // Other hold: after a break, before work, of a trace without truth.
      {"working 10", "process 10, grace 10, released 5, process 5", "work 10, idle 5, delays 0"},
      {"working 15", "process 10, released 5, process 10",
       "work 15, not held 5, longest 5, idle 10, delays 0"},
      {"", "process 10, grace 5, released 5", "idle 15"},
      // Nobody looks for longer than 10 s: only grace passes.
      {"working 40", "released 5, unseen 25, released 5, process 5",
       "work 20, not held 5, longest 5, delays 15"},
      {"working 10", "process 10, unseen 15, process 5, released 10",
       "work 10, beyond 5, process 5, delays 0"},
      {"working 10, away 10, idle 5, working 10", "released 10, unseen 25, process 5",
       "work 10, idle 10, delays 10"},
      // Little to go by.
      {"working 5", "process 5", ""},
      {"working 10", "other 5, process 5", "work 10, delays 0, other name 5"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(text(score(samplesOf(row.samples), truthOf("a", row.truth), displayNames).all),
              row.figures)
        << row.truth << "|" << row.samples;
  }
}

TEST(Score, EachAgentHasItsWorkAndTheMachineTheUnion) {
  const struct {
    const char *alpha, *beta, *samples;
    std::string figures;
  } rows[] = {
      {"working 20", "idle 10, working 20", "process 25, other 5",
       "work 30, delays 0, other name 5; Alpha: work 20, delays 0; "
       "Beta: work 20, delays 0, other name 5"},
      {"working 20", "idle 10, working 20", "released 20, other 10",
       "work 30, not held 10, longest 10, delays 20; "
       "Alpha: work 20, not held 10, longest 10, delays 20; Beta: work 20, delays 10"},
      // Hold is whose name its last active sample has; the end of one agent's work explains none.
      {"working 10", "idle 15, working 5, idle 20",
       "other 10, process 5, grace 15, other 5, grace 5",
       "work 15, beyond 10, process 10, delays 0 0, other name 10; "
       "Alpha: work 10, delays 0, other name 10; Beta: work 5, beyond 10, process 10, delays 0"},
      {"idle 5", "", "process 5, grace 10, released 5, grace 5",
       "idle 20; : idle 5; Alpha: idle 15"},
  };
  for (const auto& row : rows) {
    std::vector<TruthInterval> truth = truthOf("a", row.alpha);
    for (const TruthInterval& interval : truthOf("b", row.beta)) truth.push_back(interval);
    const Score got = score(samplesOf(row.samples), truth, displayNames);
    std::string figures = text(got.all);
    for (const auto& [agent, each] : got.agents) figures += "; " + agent + ": " + text(each);
    EXPECT_EQ(figures, row.figures) << row.samples;
  }
}

TEST(Truth, FileIsReadStrictly) {
  const TemporaryDirectory directory;
  const auto file = directory.path() / "truth.jsonl";
  const auto line = [](const char* from, const char* to, const char* agent,
                       const char* state = "working") {
    const std::string hour = "\"2025-03-10T12:";
    return "{\"from\":" + hour + from + "Z\",\"to\":" + hour + to + "Z\",\"agent\":\"" + agent +
           "\",\"state\":\"" + state + "\"}\n";
  };
  platform::writeAtomically(file, line("02:00", "03:00.5", "a", "idle") +
                                      line("01:00.25", "02:00", "a") +
                                      line("01:30", "01:30", "b", "waiting"));
  const auto truth = loadTruth(file);
  ASSERT_EQ(truth.size(), 3u);
  EXPECT_EQ(truth[0].from, after(start, 60.25));
  EXPECT_EQ(truth[1].agent + std::string(rawValue(truth[1].doing)), "bwaiting");
  EXPECT_EQ(truth[2].to, after(start, 180.5));

  const std::string good = line("01:00", "02:00", "a");
  const std::pair<std::string, const char*> wrong[] = {
      {good + "\n", ":2: not JSON"},
      {good + line("01:59.999", "02:30", "a", "idle"), ":2: overlaps line 1 of the same agent"},
      {line("01:00", "09:00", "b") + line("01:10", "01:20", "b") + line("03:00", "04:00", "b"),
       ":2: overlaps line 1 "},
      {line("02:00", "01:59.9", "a"), ":1: to: before from"},
      {line("01:00", "02:00.0000000001", "a"), ":1: to: expected a time such as"},
      {good + R"({"from":"2025-03-10T12:05:00Z","agent":"a","state":"idle"})", ":2: to: missing"},
  };
  for (const auto& [content, reason] : wrong) {
    platform::writeAtomically(file, content);
    EXPECT_THAT([&] { loadTruth(file); },
                ThrowsMessage<std::runtime_error>(StartsWith(file.string() + reason)));
  }
}

TEST(Limits, EveryDifferenceIsReported) {
  const TemporaryDirectory directory;
  const auto file = directory.path() / "limits.json";
  Figures figures;
  figures.workSeconds = 100.04;
  figures.notHeldSeconds = 0.3;
  figures.detectionSeconds = {1, 7.25};
  const Limits limits{{"a \"b\"", limitOf(figures)}, {"z", limitOf(Figures())}};
  platform::writeAtomically(file, encodeLimits(limits));
  EXPECT_THAT(compare(loadLimits(file), limits), ElementsAre());

  Figures now = figures;
  now.notHeldSeconds = 0.349;  // less than a tenth more
  EXPECT_THAT(compare({{"t", limitOf(figures)}}, {{"t", limitOf(now)}}), ElementsAre());
  now.notHeldSeconds = 0.35;
  now.workSeconds = 99;
  now.detectionSeconds = {1, 7};
  EXPECT_THAT(compare({{"t", limitOf(figures)}, {"old", {}}}, {{"new", {}}, {"t", limitOf(now)}}),
              ElementsAre("new: has no limits",
                          "t: medianDetectionSeconds is 4, limit 4.1: better, tighten the limit",
                          "t: notHeldSeconds is 0.4, limit 0.3: worse",
                          "t: workSeconds is 99, limit 100: worse",
                          "t: worstDetectionSeconds is 7, limit 7.3: better, tighten the limit",
                          "old: has limits, but there is no such trace"));
}

TEST(ScoreReport, TableIsAlignedAndThePageDrawsToScale) {
  const std::string odd = "<b>\033";
  ScoredTrace trace{odd + "x", samplesOf("process 20, unseen 10, released 10, sleep 5, process 5"),
                    truthOf(odd, "working 20, waiting 10, idle 10, working 10")};
  const Score sum = score(trace.samples, trace.intervals, {});
  const std::string table = scoreText(sum);
  EXPECT_THAT(table, HasSubstr("\n<b>\uFFFD                   "));
  EXPECT_THAT(table, Not(HasSubstr("\033")));

  const std::string page = scorePage({trace, {"empty", {}, {}}}, sum, start);
  for (const char* part :
       {"<bdi>&lt;b&gt;\033x</bdi>", R"(class="kind0" x="0.00%" width="40.00%")",
        R"(class="kind2" x="40.00%" width="20.00%")", R"(class="kind1" x="0.00%" width="50.00%")",
        R"(class="sleep" x="80.00%" width="10.00%")", R"(class="kind3" x="90.00%" width="10.00%")"})
    EXPECT_THAT(page, HasSubstr(part));
  EXPECT_THAT(page, Not(HasSubstr("<b>\033")));
}

}  // namespace
}  // namespace wakelatch::host
