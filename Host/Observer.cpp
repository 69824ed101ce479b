#include "Host/Observer.h"

#include <utility>

#include "Host/UITextNotice.h"
#include "WakelatchCore/AgentCatalog.h"

namespace wakelatch::host {

Observer::Detectors::Detectors(const Sources& sources, const AgentProfiles& profiles,
                               double textSeconds)
    : processes(sources.tools, profiles),
      accessibility(sources.accessibility, ReadingBudget::within(textSeconds), profiles),
      sessions(sources.files, profiles),
      turns(sources.turns, profiles),
      activity(processes, accessibility, sessions, &turns, profiles) {}

Observer::Observer(const Sources& sources, AgentProfiles profiles, double textSeconds)
    : sources_(sources), textSeconds_(textSeconds), power_(sources.tools), lid_(sources.tools) {
  lookFor(std::move(profiles));
}

void Observer::lookFor(AgentProfiles profiles) {
  profiles_ = std::move(profiles);
  detectors_ = std::make_unique<Detectors>(sources_, profiles_, textSeconds_);
}

Observation Observer::look(const GuardSettings& settings, Timestamp now) {
  sources_.beginLook();
  Observation seen;
  seen.at = now;
  seen.thermalState = sources_.heat();
  const double age = powerAskedAt_ ? secondsBetween(*powerAskedAt_, now) : -1;
  if (!isQuiet_ || age < 0 || age >= quietPowerSeconds) {
    lastPower_ = power_.snapshot();
    lastLid_ = lid_.lidState();
    powerAskedAt_ = now;
  }
  seen.power = lastPower_;
  seen.lidState = lastLid_;
  seen.evidence = detectors_->activity.gather(settings, seen.power, now);
  seen.strongest = strongest(seen.evidence.merged);
  const AgentResolver resolver = profiles_.watched(settings);
  for (const AgentProfile& profile : resolver.profiles()) {
    KnownAgent& agent =
        seen.agents.try_emplace(profile.displayName, KnownAgent{profile.id}).first->second;
    if (!profile.sessionActivityGlobs.empty()) {
      agent.newestSessionFile = sources_.files.newestModification(profile.sessionActivityGlobs);
    }
  }
  seen.uiTextNotice = uiTextNotice(detectors_->accessibility, settings, profiles_);
  return seen;
}

}  // namespace wakelatch::host
