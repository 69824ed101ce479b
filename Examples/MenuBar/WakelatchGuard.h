// The library for an application, behind an interface of plain Objective-C.
#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

/// What a menu shows of a tick.
@interface WakelatchStatus : NSObject
@property(nonatomic, readonly) NSString *title;   ///< "Keeping Awake"
@property(nonatomic, readonly) NSString *reason;  ///< one sentence
@property(nonatomic, readonly) BOOL keepsAwake;   ///< in effect, not only wanted
@property(nonatomic, readonly) BOOL isBatteryWarning;
@end

/// Watches the agents and keeps the machine awake. One an application, used from the main thread.
/// Every call returns at once: ticks, and the prompts that block them, have a queue of their own.
@interface WakelatchGuard : NSObject
/// Called on the main queue after each tick.
@property(nonatomic, copy, nullable) void (^onStatus)(WakelatchStatus *status);
/// Called on the main queue with a sentence that the user should read.
@property(nonatomic, copy, nullable) void (^onNotice)(NSString *text);

/// Undoes what a crash left behind, then ticks every two seconds. Call it once.
- (void)start;
/// A mode by its raw value, such as "watchAgentUI"; NO when there is none of that name.
- (BOOL)setMode:(NSString *)rawValue;
/// The settings as JSON; an error names the key that is wrong, and the settings stay.
- (BOOL)setSettings:(NSData *)json error:(NSError **)error;
/// Ticks no more and restores normal sleep, which may prompt; then calls `completion` on the main
/// queue. `restored` is NO when the lid-closed setting may still be engaged. What is called later
/// has no effect; another stop: has the answer of the first.
- (void)stop:(void (^)(BOOL restored))completion;
@end

NS_ASSUME_NONNULL_END
