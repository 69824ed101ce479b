// The library behind a plain Objective-C interface, for an application.
#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

/// The result of a tick, for a menu.
@interface WakelatchStatus : NSObject
@property(nonatomic, readonly) NSString *title;   ///< "Keeping Awake"
@property(nonatomic, readonly) NSString *reason;  ///< one sentence
@property(nonatomic, readonly) BOOL keepsAwake;   ///< in effect, not only wanted
@property(nonatomic, readonly) BOOL isBatteryWarning;
@end

/// Watches the agents and keeps the machine awake. One instance per application, to be used from
/// the main thread. Every call returns at once: ticks, and the prompts that block them, run on a
/// queue of their own.
@interface WakelatchGuard : NSObject
/// Called on the main queue after each tick.
@property(nonatomic, copy, nullable) void (^onStatus)(WakelatchStatus *status);
/// Called on the main queue with a sentence that the user should read.
@property(nonatomic, copy, nullable) void (^onNotice)(NSString *text);

/// Undoes what a crash left behind, then ticks every two seconds. To be called once.
- (void)start;
/// Sets the mode by its raw value, such as "watchAgentUI"; returns NO if there is none of that
/// name.
- (BOOL)setMode:(NSString *)rawValue;
/// Sets the settings from JSON. If that fails, the error names the wrong key, and the settings
/// stay.
- (BOOL)setSettings:(NSData *)json error:(NSError **)error;
/// Stops ticking and restores normal sleep, which may prompt; then calls `completion` on the main
/// queue. `restored` is NO if the lid-closed setting may still be engaged. Later calls have no
/// effect; another stop: gives the result of the first one.
- (void)stop:(void (^)(BOOL restored))completion;
@end

NS_ASSUME_NONNULL_END
