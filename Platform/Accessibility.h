// The few operations on running applications and their accessibility trees that the library needs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#pragma GCC visibility push(default)
namespace wakelatch::platform {

/// An application as the workspace lists it.
struct RunningApplication {
  std::optional<std::string> bundleID = {};       ///< absent for a bare program
  std::optional<std::string> localizedName = {};  ///< as the user sees it
  std::int32_t processID = 0;                     ///< what application() takes
};

/// A user interface that can be read. Nothing here throws or logs: what cannot be read is absent.
/// Calls wait for the application that is asked.
class Accessibility {
 public:
  /// An application, a window or a part of one; only the system that made it knows more. Null
  /// stands for one that has no attributes.
  using Element = std::shared_ptr<const void>;
  /// A number, a truth value, a range: whatever is neither text nor elements.
  struct OtherValue {};
  /// The application did not answer, or not in time: there may be a value.
  struct NoAnswer {};
  /// The value of an attribute; std::monostate when there is none.
  using Value = std::variant<std::monostate, std::string, Element, std::vector<Element>, OtherValue,
                             NoAnswer>;

  /// How much the caller wants.
  struct Limits {
    /// Of a list, that many elements from its start. Limited only where a list is expected.
    std::size_t elements = std::numeric_limits<std::size_t>::max();
    /// How long to wait for the answer; infinite: as long as the system does.
    double seconds = std::numeric_limits<double>::infinity();
  };

  virtual ~Accessibility() = default;

  /// Whether this system has such an interface at all; where it has none, nobody is ever trusted.
  virtual bool isSupported() const { return true; }
  /// The running applications but this process's own, in the system's order.
  virtual std::vector<RunningApplication> runningApplications() = 0;
  /// Whether this process may read other applications' elements.
  virtual bool isTrusted() = 0;
  /// Has the system ask the user for that permission; returns without an answer.
  virtual void requestPermissionPrompt() = 0;
  /// The element of the application with this process identifier.
  virtual Element application(std::int32_t processID) = 0;
  /// One attribute of `element`; none when that is null.
  /// @param name  as the system names it, such as "AXTitle"
  /// @param limits  more may come all the same
  virtual Value attribute(const Element& element, std::string_view name, const Limits& limits) = 0;
};

/// The interface of the system that this runs on. It has no state; any thread may use it.
Accessibility& systemAccessibility();

}  // namespace wakelatch::platform
#pragma GCC visibility pop
