#include "Host/Observer.h"

#include <algorithm>

#include "Host/UITextNotice.h"
#include "WakelatchCore/AgentCatalog.h"

namespace wakelatch::host {

Observer::Observer(const Sources& sources, double textSeconds)
    : power_(sources.tools),
      lid_(sources.tools),
      processes_(sources.tools),
      accessibility_(sources.accessibility, ReadingBudget::within(textSeconds)),
      files_(sources.files),
      rememberedFiles_(files_),
      sessions_(rememberedFiles_),
      activity_(processes_, accessibility_, sessions_),
      heat_(sources.heat) {}

Observation Observer::look(const GuardSettings& settings, Timestamp now) {
  Observation seen;
  seen.at = now;
  seen.thermalState = heat_();
  seen.power = power_.snapshot();
  seen.lidState = lid_.lidState();
  seen.evidence = activity_.gather(settings, seen.power, now);
  seen.strongest = ActivitySignal::none();
  for (const ActivitySignal& signal : seen.evidence.merged) {
    if (signal.strength > seen.strongest.strength) seen.strongest = signal;
  }
  const AgentResolver resolver = AgentResolver::make(settings);
  for (const AgentProfile& profile : resolver.profiles()) {
    const auto newest = rememberedFiles_.lastNewest(profile.sessionActivityGlobs);
    KnownAgent& agent =
        seen.agents.try_emplace(profile.displayName, KnownAgent{profile.id}).first->second;
    if (newest) agent.sessionFileAge = std::max(0.0, secondsBetween(*newest, now));
  }
  seen.uiTextNotice = uiTextNotice(accessibility_, settings);
  return seen;
}

std::optional<std::int64_t> Observer::sessionFileAge(const std::string& agentName,
                                                     Timestamp at) const {
  for (const AgentProfile& profile : AgentCatalog::builtin()) {
    if (profile.displayName != agentName || profile.sessionActivityGlobs.empty()) continue;
    const auto newest = files_.newestModification(profile.sessionActivityGlobs);
    if (!newest) return std::nullopt;
    return static_cast<std::int64_t>(std::max(0.0, secondsBetween(*newest, at)));
  }
  return std::nullopt;
}

}  // namespace wakelatch::host
