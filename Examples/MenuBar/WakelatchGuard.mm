#import "WakelatchGuard.h"

#include <exception>
#include <memory>
#include <string>
#include <utility>

#include "Host/KeepAwake.h"
#include "WakelatchCore/WakelatchCore.h"

using namespace wakelatch;

namespace {

constexpr double tickSeconds = 2, toolSeconds = 10, promptSeconds = 120, releaseDelaySeconds = 60;
constexpr int sessionFileDepth = 12;

/// Runs every tool in a fixed locale: with decimal commas the process listing cannot be read, and
/// in "C" letters beyond ASCII are printed as escapes.
class PlainLanguageRunner final : public CommandRunning {
 public:
  explicit PlainLanguageRunner(double timeoutSeconds) : runner_(timeoutSeconds) {}

  CommandResult run(const ShellCommand &command) override {
    ShellCommand plain{"/usr/bin/env", {"LC_ALL=en_US.UTF-8", command.executable}};
    plain.arguments.insert(plain.arguments.end(), command.arguments.begin(),
                           command.arguments.end());
    return runner_.run(plain);
  }

 private:
  ProcessCommandRunner runner_;
};

ThermalState thermalState() {
  switch (NSProcessInfo.processInfo.thermalState) {
    case NSProcessInfoThermalStateNominal:
      return ThermalState::nominal;
    case NSProcessInfoThermalStateFair:
      return ThermalState::fair;
    case NSProcessInfoThermalStateSerious:
      return ThermalState::serious;
    case NSProcessInfoThermalStateCritical:
      return ThermalState::critical;
  }
  return ThermalState::nominal;
}

NSString *toNSString(std::string_view text) {
  NSString *string = [[NSString alloc] initWithBytes:text.data()
                                              length:text.size()
                                            encoding:NSUTF8StringEncoding];
  return string != nil ? string : @"";
}

/// What the host owns for its whole life. Used only on the guard's queue.
struct Machinery {
  PlainLanguageRunner runner{toolSeconds}, adminRunner{promptSeconds};
  PowerMonitor power{runner};
  LidStateDetector lid{runner};
  ProcessDetector processes{runner};
  AccessibilityDetector accessibility{platform::systemAccessibility(),
                                      ReadingBudget::within(tickSeconds / 2)};
  FileActivityProbe files{NSHomeDirectory().fileSystemRepresentation, sessionFileDepth};
  SessionActivityDetector sessions{files};
  ActivityDetector activity{processes, accessibility, sessions};
  AgentStateMachine machine;
  SleepController controller{runner, adminRunner, FileLogger::shared(), "/usr/bin/caffeinate"};
  host::Notifier notifier;
  // One thread decides and acts, so no newer decision can come while it acts.
  host::KeepAwake keepAwake{
      controller,
      notifier,
      releaseDelaySeconds,
      {{.promptShown = [](const auto &) {}, .isCancelled = [] { return false; }},
       [] { return true; }}};
  AppMode mode = AppMode::watchAgentUI;
  GuardSettings settings;

  explicit Machinery(host::Notifier::Sink sink) : notifier(std::move(sink)) {}

  GuardDecision tick() {
    const Timestamp now = platform::now();
    const PowerSnapshot reading = power.snapshot();
    const LidState lidState = lid.lidState();
    const ThermalState heat = thermalState();
    const ActivitySignal signal = activity.detect(settings, reading, now);
    machine.forgetFuture(now);
    const GuardDecision decision =
        machine.evaluate(mode, settings, reading, lidState, signal,
                         controller.isSleepPreventionEnabled(), heat, now);
    // Read again, as the tools above take a while.
    keepAwake.apply(host::makeWish(decision, settings, reading, lidState, heat, platform::now()));
    return decision;
  }
};

}  // namespace

@implementation WakelatchStatus

- (instancetype)initWithDecision:(const GuardDecision &)decision keepsAwake:(BOOL)keepsAwake {
  if ((self = [super init])) {
    _title = toNSString(displayName(decision.status));
    _reason = toNSString(decision.reason);
    _keepsAwake = keepsAwake;
    _isBatteryWarning = decision.isBatteryWarning;
  }
  return self;
}

@end

@implementation WakelatchGuard {
  dispatch_queue_t _queue;
  dispatch_source_t _timer;
  id<NSObject> _activity;
  // Both are used only on the queue.
  std::unique_ptr<Machinery> _machinery;  // null once the guard has been stopped
  BOOL _restored;                         // whether the stop has restored normal sleep
}

- (instancetype)init {
  if ((self = [super init])) {
    _queue = dispatch_queue_create("com.lumenhold.wakelatch", DISPATCH_QUEUE_SERIAL);
    __weak WakelatchGuard *weakSelf = self;
    _machinery = std::make_unique<Machinery>([weakSelf](const std::string &text) {
      NSString *notice = toNSString(text);
      dispatch_async(dispatch_get_main_queue(), ^{
        WakelatchGuard *guard = weakSelf;
        if (guard.onNotice) guard.onNotice(notice);
      });
    });
  }
  return self;
}

- (void)start {
  // Otherwise App Nap would slow down the timers of an application without windows. This activity
  // does not keep the system awake.
  _activity = [NSProcessInfo.processInfo
      beginActivityWithOptions:NSActivityUserInitiatedAllowingIdleSystemSleep
                        reason:@"Watching agents"];
  [self enqueue:^(Machinery &machinery) {
    machinery.keepAwake.endOrphans();
    machinery.keepAwake.startUp();
  }];
  _timer = dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, _queue);
  // Ticks that come due while another one runs, or waits for a password, are merged into one.
  dispatch_source_set_timer(_timer, DISPATCH_TIME_NOW, uint64_t(tickSeconds * NSEC_PER_SEC),
                            NSEC_PER_SEC / 10);
  dispatch_source_set_event_handler(_timer, ^{
    [self run:^(Machinery &machinery) {
      [self tick:machinery];
    }];
  });
  dispatch_resume(_timer);
}

/// Schedules `use` on the queue.
- (void)enqueue:(void (^)(Machinery &machinery))use {
  dispatch_async(_queue, ^{
    [self run:use];
  });
}

/// Runs `use`, unless the guard has been stopped; to be called on the queue. Has an autorelease
/// pool of its own, because a queue drains its pool at no certain time. Catches exceptions, because
/// they must not reach dispatch.
- (void)run:(void (^)(Machinery &machinery))use {
  @autoreleasepool {
    if (!_machinery) return;
    try {
      use(*_machinery);
    } catch (const std::exception &failure) {
      NSLog(@"Wakelatch: %@", toNSString(failure.what()));  // the next tick tries again
    }
  }
}

- (void)tick:(Machinery &)machinery {
  const GuardDecision decision = machinery.tick();
  const BOOL keepsAwake = machinery.controller.appliedLetDisplaySleep().has_value();
  WakelatchStatus *status = [[WakelatchStatus alloc] initWithDecision:decision
                                                           keepsAwake:keepsAwake];
  dispatch_async(dispatch_get_main_queue(), ^{
    if (self.onStatus) self.onStatus(status);
  });
}

- (BOOL)setMode:(NSString *)rawValue {
  const char *bytes = rawValue.UTF8String;  // null if it is not valid Unicode
  if (bytes == nullptr) return NO;
  const auto mode = fromRawValue<AppMode>(std::string_view(bytes));
  if (!mode) return NO;
  [self enqueue:^(Machinery &machinery) {
    machinery.mode = *mode;
  }];
  return YES;
}

- (BOOL)setSettings:(NSData *)json error:(NSError **)error {
  try {
    const auto settings =
        decode<GuardSettings>({static_cast<const char *>(json.bytes), json.length});
    [self enqueue:^(Machinery &machinery) {
      machinery.settings = settings;
    }];
    return YES;
  } catch (const std::exception &wrong) {  // must not reach Objective-C or Swift
    if (error != nullptr) {
      *error = [NSError errorWithDomain:@"Wakelatch"
                                   code:1
                               userInfo:@{NSLocalizedDescriptionKey : toNSString(wrong.what())}];
    }
    return NO;
  }
}

- (void)stop:(void (^)(BOOL restored))completion {
  if (_timer != nil) dispatch_source_cancel(_timer);
  dispatch_async(_queue, ^{
    [self run:^(Machinery &machinery) {
      if (machinery.settings.restoreNormalSleepOnQuit) {
        self->_restored = machinery.keepAwake.restore();
      } else {
        machinery.keepAwake.leaveEngaged();
        self->_restored = YES;
      }
    }];
    self->_machinery.reset();  // on the queue, as its destructor waits for the keep-awake process
    const BOOL restored = self->_restored;
    dispatch_async(dispatch_get_main_queue(), ^{
      completion(restored);
    });
  });
}

@end
