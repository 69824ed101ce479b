#include "WakelatchCore/AccessibilityDetector.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>
#include <variant>

#include "Platform/Text.h"
#include "WakelatchCore/AgentAppName.h"
#include "WakelatchCore/PhraseMatcher.h"

namespace wakelatch {
namespace {

using platform::Accessibility;
using Element = Accessibility::Element;

constexpr int focusedWindowDepth = 4;  // levels below the window
constexpr int otherWindowDepth = 3;
constexpr std::size_t maxOtherWindows = 3;
constexpr std::size_t maxFragments = 300;  // of one application, checked on entry to an element
constexpr std::size_t maxChildren = 80;    // of one element

/// Seconds of a monotonic clock.
double uptime() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// Reads one application until the budget is used up; all values are absent from then on.
class Reader {
 public:
  Reader(Accessibility& accessibility, const ReadingBudget& budget, double secondsLeft)
      : accessibility_(accessibility),
        budget_(budget),
        end_(uptime() + std::min(budget.applicationSeconds, secondsLeft)) {}

  Accessibility::Value read(const Element& element, std::string_view name,
                            std::size_t maxElements = Accessibility::Limits().elements) {
    const double left = isOver_ ? 0 : end_ - uptime();
    if (left <= 0) return {};
    Accessibility::Value value = accessibility_.attribute(
        element, name, {maxElements, std::min(budget_.answerSeconds, left)});
    const bool isLate = std::holds_alternative<Accessibility::NoAnswer>(value);
    if (isLate || std::holds_alternative<std::monostate>(value)) ++absentValues_;
    isOver_ =
        absentValues_ >= budget_.absentValues || (isLate && std::isfinite(budget_.answerSeconds));
    return value;
  }

  /// The first `maxElements` elements of an attribute; none if its value is not a list.
  std::vector<Element> list(const Element& element, std::string_view name,
                            std::size_t maxElements = Accessibility::Limits().elements) {
    Accessibility::Value value = read(element, name, maxElements);
    auto* list = std::get_if<std::vector<Element>>(&value);
    if (list == nullptr) return {};
    if (list->size() > maxElements) list->resize(maxElements);
    return std::move(*list);
  }

 private:
  Accessibility& accessibility_;
  const ReadingBudget& budget_;
  const double end_;
  std::size_t absentValues_ = 0;
  bool isOver_ = false;
};

/// Appends the text of `element`, then that of its children, depth first.
void collectText(Reader& reader, const Element& element, std::vector<std::string>& fragments,
                 int depth, int maxDepth) {
  if (depth > maxDepth || fragments.size() >= maxFragments) return;
  for (const auto* name : {"AXTitle", "AXValue", "AXDescription", "AXHelp"}) {
    Accessibility::Value value = reader.read(element, name);
    auto* text = std::get_if<std::string>(&value);
    if (text != nullptr && !platform::trimmed(*text).empty()) fragments.push_back(std::move(*text));
  }
  if (depth == maxDepth || fragments.size() >= maxFragments) return;  // no child would be read
  for (const Element& child : reader.list(element, "AXChildren", maxChildren)) {
    collectText(reader, child, fragments, depth + 1, maxDepth);
  }
}

/// The signal for `appName` from a match; absent if there is no match or the phrase does not count.
std::optional<ActivitySignal> signalFor(const std::string& appName, const PhraseMatchKind& match,
                                        bool requireMultiWord) {
  if (match.kind == PhraseMatchKind::Case::none) return std::nullopt;
  if (requireMultiWord && match.phrase.find(' ') == std::string::npos) return std::nullopt;
  const bool isActive = match.kind == PhraseMatchKind::Case::active;
  return ActivitySignal{.strength = isActive ? SignalStrength::strong : SignalStrength::presence,
                        .appName = appName,
                        .reason = std::string("UI text matched ") + (isActive ? "active" : "idle") +
                                  " phrase \"" + match.phrase + "\"",
                        .matchedText = match.phrase};
}

/// Keeps in `best` the strongest signal of each name; among equals the first.
void offer(std::vector<ActivitySignal>& best, std::optional<ActivitySignal> signal) {
  if (!signal) return;
  const auto same = std::find_if(best.begin(), best.end(), [&](const ActivitySignal& other) {
    return other.appName == signal->appName;
  });
  if (same == best.end()) {
    best.push_back(std::move(*signal));
  } else if (signal->strength > same->strength) {
    *same = std::move(*signal);
  }
}

const std::string* firstTargetMatching(const std::vector<std::string>& targets,
                                       std::string_view name) {
  const auto found = std::find_if(targets.begin(), targets.end(), [&](const std::string& target) {
    return AgentAppName::matches(name, target);
  });
  return found == targets.end() ? nullptr : &*found;
}

}  // namespace

/// All phrases to be searched, folded once and kept until the profiles or the user's phrases
/// change.
struct AccessibilityDetector::Phrases {
  std::vector<AgentProfile> profiles;
  std::vector<std::string> userActive, userIdle;
  PhraseIndex index;  ///< one matcher per profile, then the user's

  static PhraseIndex makeIndex(const std::vector<AgentProfile>& profiles,
                               const GuardSettings& settings) {
    std::vector<PhraseIndex::Lists> lists;
    lists.reserve(profiles.size() + 1);
    for (const auto& profile : profiles) {
      lists.push_back({profile.activePhrases, profile.idlePhrases});
    }
    lists.push_back({settings.activePhrases, settings.idlePhrases});
    return PhraseIndex(lists);
  }
};

std::shared_ptr<const AccessibilityDetector::Phrases> AccessibilityDetector::phrasesFor(
    const std::vector<AgentProfile>& profiles, const GuardSettings& settings) {
  const platform::MutexLock lock(mutex_);
  if (!phrases_ || phrases_->profiles != profiles ||
      phrases_->userActive != settings.activePhrases ||
      phrases_->userIdle != settings.idlePhrases) {
    phrases_ = std::make_shared<const Phrases>(Phrases{profiles, settings.activePhrases,
                                                       settings.idlePhrases,
                                                       Phrases::makeIndex(profiles, settings)});
  }
  return phrases_;
}

std::vector<ActivitySignal> AccessibilityDetector::detectPerApp(const GuardSettings& settings) {
  if (!settings.accessibilityDetectionEnabled || !isTrusted()) return {};
  const AgentResolver resolver = profiles_.watched(settings);
  const std::vector<AgentProfile>& profiles = resolver.profiles();
  const auto phrases = phrasesFor(profiles, settings);
  const double end = uptime() + budget_.totalSeconds;
  /// The matches of each profile's phrases and, last, of the user's in an application's text.
  const auto matches = [&](const platform::RunningApplication& application) {
    const std::string text = visibleText(application.processID, end - uptime());
    return text.empty() ? std::vector<PhraseMatchKind>(profiles.size() + 1)
                        : phrases->index.match(text);
  };

  std::vector<ActivitySignal> best;
  for (const auto& application : accessibility_.runningApplications()) {
    const std::string bundleID = platform::lowercased(application.bundleID.value_or(""));
    const AgentProfile* owner = resolver.profileForBundleID(bundleID);
    if (owner != nullptr || AgentCatalog::terminalBundleIDs().contains(bundleID)) {
      const auto found = matches(application);
      for (std::size_t i = 0; i < profiles.size(); ++i) {
        const AgentProfile& profile = profiles[i];
        if (&profile == owner) {
          offer(best, signalFor(profile.displayName, found[i], profile.requireMultiWordPhrases));
        } else if (owner == nullptr && profile.scanTerminalText) {
          // Single words are too common in a terminal.
          offer(best, signalFor(profile.displayName, found[i], /*requireMultiWord=*/true));
        }
      }
    } else if (const std::string* target = firstTargetMatching(
                   settings.targetApps, application.localizedName.value_or(""))) {
      offer(best, signalFor(*target, matches(application).back(), /*requireMultiWord=*/false));
    }
  }
  return best;
}

ActivitySignal AccessibilityDetector::detect(const GuardSettings& settings) {
  return strongest(detectPerApp(settings));
}

std::string AccessibilityDetector::visibleText(std::int32_t processID) {
  return visibleText(processID, ReadingBudget::unlimited);
}

std::string AccessibilityDetector::visibleText(std::int32_t processID, double secondsLeft) {
  Reader reader(accessibility_, budget_, secondsLeft);
  const Element application = accessibility_.application(processID);
  std::vector<std::string> fragments;
  const Accessibility::Value focused = reader.read(application, "AXFocusedWindow");
  if (const auto* window = std::get_if<Element>(&focused)) {
    collectText(reader, *window, fragments, 0, focusedWindowDepth);
  } else {
    for (const Element& other : reader.list(application, "AXWindows", maxOtherWindows)) {
      collectText(reader, other, fragments, 0, otherWindowDepth);
    }
  }
  std::string text;
  for (const auto& fragment : fragments) {
    if (!text.empty()) text += ' ';
    text += fragment;
  }
  return text;
}

std::vector<std::string> AccessibilityDetector::windowTitles(std::int32_t processID) {
  std::vector<std::string> titles;
  Reader reader(accessibility_, budget_, ReadingBudget::unlimited);
  for (const auto& window : reader.list(accessibility_.application(processID), "AXWindows")) {
    Accessibility::Value title = reader.read(window, "AXTitle");
    if (auto* text = std::get_if<std::string>(&title)) titles.push_back(std::move(*text));
  }
  return titles;
}

}  // namespace wakelatch
