#include "Host/FirstRun.h"

#include <exception>

#include "Host/SupportDirectory.h"
#include "Host/UITextNotice.h"
#include "Platform/Files.h"
#include "WakelatchCore/AccessibilityDetector.h"
#include "WakelatchCore/Json.h"

namespace wakelatch {
namespace host {
namespace {

/// What an application would keep in its user defaults.
struct Defaults {
  bool hasCompletedOnboarding = false;
};

}  // namespace
}  // namespace host

template <>
inline constexpr auto json::fields<host::Defaults> = std::tuple{
    json::optional(Onboarding::completedDefaultsKey, &host::Defaults::hasCompletedOnboarding),
};

namespace host {
namespace {

/// What cannot be read has not been completed.
Defaults load(const std::filesystem::path& file) {
  try {
    return decode<Defaults>(platform::readFile(file));
  } catch (const std::runtime_error&) {
    return {};
  }
}

}  // namespace

void greetOnce(const Observation& seen, const GuardSettings& settings,
               const AgentProfiles& profiles, Notifier& notifier) {
  const auto file = supportDirectory() / "defaults.json";
  try {
    // A program on the command line has no terms to accept first.
    constexpr bool needsLegalAcceptance = false;
    if (!Onboarding::needsOnboarding(load(file).hasCompletedOnboarding, needsLegalAcceptance)) {
      return;
    }
    notifier.tell(
        Onboarding::detectionHeadline(seen.strongest.strength, seen.strongest.appName).text);
    notifier.tell("Accessibility permission: " +
                  accessibilityNote(AccessibilityDetector(), settings, profiles));
    platform::writeAtomically(file, encode(Defaults{true}));
  } catch (const std::exception& error) {
    notifier.tell(std::string("cannot remember the first start: ") + error.what());
  }
}

}  // namespace host
}  // namespace wakelatch
