#include "Host/trace/Score.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <set>
#include <utility>

namespace wakelatch::host {
namespace {

using Names = std::set<std::string>;

/// Who works, by display name: each entry holds until the next one; before the first nobody does.
using Workers = std::map<Timestamp, Names>;

/// A stretch of time in which neither the sample nor who works changes.
struct Slice {
  const Sample* sample;  ///< null while nobody looked
  bool isStart;          ///< the sample was taken when it began
  double seconds;
  const Names& working;
};

std::string nameOf(const std::string& agent, const std::map<std::string, std::string>& names) {
  const auto found = names.find(agent);
  return found == names.end() ? agent : found->second;
}

Workers workersOf(const std::vector<TruthInterval>& intervals,
                  const std::map<std::string, std::string>& names) {
  Workers workers;
  for (const TruthInterval& interval : intervals) {
    workers[interval.from];
    workers[interval.to];
  }
  for (const TruthInterval& interval : intervals) {
    if (interval.doing != Doing::working) continue;
    const auto end = workers.lower_bound(interval.to);
    for (auto each = workers.lower_bound(interval.from); each != end; ++each) {
      each->second.insert(nameOf(interval.agent, names));
    }
  }
  return workers;
}

/// Calls `use` for the slices of one sample, or of a gap; for one at least.
template <class Use>
void cut(const Sample* sample, Timestamp from, Timestamp to, const Workers& workers, Use&& use) {
  static const Names nobody;
  bool isStart = true;
  do {
    const auto next = workers.upper_bound(from);
    const Timestamp end = next == workers.end() ? to : std::min(next->first, to);
    use(Slice{sample, std::exchange(isStart, false), secondsBetween(from, end),
              next == workers.begin() ? nobody : std::prev(next)->second});
    from = end;
  } while (from < to);
}

/// Calls `use` for every slice from the first sample to the end of the last, in order.
template <class Use>
void forEachSlice(const std::vector<Sample>& samples, const Workers& workers, Use&& use) {
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const Timestamp from = samples[i].at;
    const Timestamp end = after(from, secondsOf(samples, i));
    cut(&samples[i], from, end, workers, use);
    if (i + 1 == samples.size() || samples[i + 1].at <= end) continue;
    cut(nullptr, end, samples[i + 1].at, workers, use);
  }
}

/// Counts what happens while one agent works, or while any does.
class WorkMeter {
 public:
  void add(const Slice& slice, bool isWorking, Figures& figures) {
    if (!isWorking) return finish(figures);
    if (slice.sample == nullptr) return;
    const Sample& sample = *slice.sample;
    worked_ += slice.seconds;
    figures.workSeconds += slice.seconds;
    if (sample.isHeld) {
      isDetected_ = true;
      notHeld_ = 0;
      const bool isOther = !sample.agent.empty() && !slice.working.contains(sample.agent);
      if (isOther) figures.otherNameSeconds += slice.seconds;
    } else {
      if (!isDetected_) delay_ += slice.seconds;
      const double counted = std::clamp(worked_ - detectionAllowance, 0.0, slice.seconds);
      notHeld_ += counted;
      figures.notHeldSeconds += counted;
      figures.longestNotHeldSeconds = std::max(figures.longestNotHeldSeconds, notHeld_);
    }
    if (!slice.isStart) return;
    if (sample.isSleepAsked && !isSleepAsked_) ++figures.sleepsAskedInWork;
    isSleepAsked_ = sample.isSleepAsked;
  }

  /// The interval of work is over.
  void finish(Figures& figures) {
    if (worked_ > 0) figures.detectionSeconds.push_back(delay_);
    *this = {};
  }

 private:
  double worked_ = 0;   ///< since the interval began
  double notHeld_ = 0;  ///< at a stretch, until now
  double delay_ = 0;    ///< until it was detected
  bool isDetected_ = false;
  bool isSleepAsked_ = false;
};

/// Counts hold while no agent works.
class HoldMeter {
 public:
  explicit HoldMeter(Score& score) : score_(score) {}

  void add(const Slice& slice) {
    const bool isWork = !slice.working.empty();
    if (isWork) finish();
    sinceWork_ = isWork ? 0 : sinceWork_ + slice.seconds;
    if (slice.sample == nullptr) return;
    const Sample& sample = *slice.sample;
    if (!sample.isHeld) {
      finish();
      isSinceWork_ = false;
      basis_ = nullptr;
      return;
    }
    const bool isActive = sample.evidence != EvidenceKind::none;
    if (isActive || basis_ == nullptr || basis_->evidence == EvidenceKind::none) basis_ = &sample;
    if (isWork) {
      isSinceWork_ = true;
    } else if (isSinceWork_) {
      beyondGrace_ += std::clamp(sinceWork_ - sample.graceSeconds, 0.0, slice.seconds);
    } else {
      for (Figures* figures : {&score_.all, &score_.agents[basis_->agent]}) {
        figures->idleHeldSeconds += slice.seconds;
      }
    }
  }

  /// The hold since the end of work is over, so its last active evidence is known.
  void finish() {
    if (basis_ == nullptr || !(beyondGrace_ > 0)) return;
    const std::string kind(rawValue(basis_->evidence));
    for (Figures* figures : {&score_.all, &score_.agents[basis_->agent]}) {
      figures->beyondGraceSeconds += beyondGrace_;
      figures->beyondGraceByEvidence[kind] += beyondGrace_;
    }
    beyondGrace_ = 0;
  }

 private:
  Score& score_;
  bool isSinceWork_ = false;       ///< held ever since an agent worked
  double sinceWork_ = 0;           ///< by the clock, as the grace period is counted
  double beyondGrace_ = 0;         ///< of the hold since the end of work
  const Sample* basis_ = nullptr;  ///< of the hold: its last active sample, else its last one
};

/// The figures of the machine and of each agent.
Score measure(const std::vector<Sample>& samples, const Workers& workers, const Names& agents) {
  Score score;
  WorkMeter work;
  std::map<std::string, WorkMeter> workOf;
  HoldMeter hold(score);
  forEachSlice(samples, workers, [&](const Slice& slice) {
    work.add(slice, !slice.working.empty(), score.all);
    for (const std::string& agent : agents) {
      workOf[agent].add(slice, slice.working.contains(agent), score.agents[agent]);
    }
    hold.add(slice);
  });
  work.finish(score.all);
  for (auto& [agent, meter] : workOf) meter.finish(score.agents[agent]);
  hold.finish();
  return score;
}

/// The machine's figures if it were held awake exactly while `isHeld`.
Figures measureIf(bool Sample::*isHeld, std::vector<Sample> samples, const Workers& workers) {
  for (Sample& sample : samples) {
    sample.isHeld = sample.*isHeld;
    sample.isSleepAsked = false;
    sample.agent.clear();
    sample.evidence = sample.isHeld ? EvidenceKind::process : EvidenceKind::none;
  }
  return measure(samples, workers, {}).all;
}

}  // namespace

double secondsOf(const std::vector<Sample>& samples, std::size_t index) {
  const std::size_t next = index + 1;
  if (next == samples.size()) return index == 0 ? 0 : secondsOf(samples, index - 1);
  return std::clamp(secondsBetween(samples[index].at, samples[next].at), 0.0, longestSampleSeconds);
}

double Figures::medianDetection() const {
  if (detectionSeconds.empty()) return 0;
  std::vector<double> sorted = detectionSeconds;
  std::sort(sorted.begin(), sorted.end());
  return (sorted[(sorted.size() - 1) / 2] + sorted[sorted.size() / 2]) / 2;
}

double Figures::worstDetection() const {
  double worst = 0;
  for (const double seconds : detectionSeconds) worst = std::max(worst, seconds);
  return worst;
}

Figures& Figures::operator+=(const Figures& other) {
  workSeconds += other.workSeconds;
  notHeldSeconds += other.notHeldSeconds;
  longestNotHeldSeconds = std::max(longestNotHeldSeconds, other.longestNotHeldSeconds);
  sleepsAskedInWork += other.sleepsAskedInWork;
  beyondGraceSeconds += other.beyondGraceSeconds;
  for (const auto& [kind, seconds] : other.beyondGraceByEvidence) {
    beyondGraceByEvidence[kind] += seconds;
  }
  idleHeldSeconds += other.idleHeldSeconds;
  detectionSeconds.insert(detectionSeconds.end(), other.detectionSeconds.begin(),
                          other.detectionSeconds.end());
  otherNameSeconds += other.otherNameSeconds;
  return *this;
}

Score& Score::operator+=(const Score& other) {
  all += other.all;
  for (const auto& [agent, figures] : other.agents) agents[agent] += figures;
  whileProcess += other.whileProcess;
  whileLoad += other.whileLoad;
  return *this;
}

Score score(const std::vector<Sample>& samples, const std::vector<TruthInterval>& intervals,
            const std::map<std::string, std::string>& displayNames) {
  const Workers workers = workersOf(intervals, displayNames);
  Names agents;
  for (const TruthInterval& interval : intervals) {
    agents.insert(nameOf(interval.agent, displayNames));
  }
  Score score = measure(samples, workers, agents);
  score.whileProcess = measureIf(&Sample::hasProcess, samples, workers);
  score.whileLoad = measureIf(&Sample::hasLoad, samples, workers);
  return score;
}

double tenths(double seconds) {
  return std::round(seconds * 10) / 10;
}

}  // namespace wakelatch::host
