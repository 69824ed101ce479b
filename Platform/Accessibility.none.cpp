// Systems whose user interfaces are not read.
#include "Platform/Accessibility.h"

namespace wakelatch::platform {
namespace {

class NoAccessibility final : public Accessibility {
 public:
  bool isSupported() const override { return false; }
  std::vector<RunningApplication> runningApplications() override { return {}; }
  bool isTrusted() override { return false; }
  void requestPermissionPrompt() override {}
  Element application(std::int32_t /*processID*/) override { return nullptr; }
  Value attribute(const Element& /*element*/, std::string_view /*name*/,
                  const Limits& /*limits*/) override {
    return {};
  }
};

}  // namespace

Accessibility& systemAccessibility() {
  static auto& accessibility = *new NoAccessibility;  // a thread may use it during exit
  return accessibility;
}

}  // namespace wakelatch::platform
