// Applications and their accessibility trees as a test describes them, with every read counted.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Accessibility.h"

namespace wakelatch {

class ScriptedAccessibility : public platform::Accessibility {
 public:
  using Attributes = std::map<std::string, Value, std::less<>>;

  static Element element(Attributes attributes) {
    return std::make_shared<const Attributes>(std::move(attributes));
  }
  static std::vector<Element> copies(std::size_t count, const Element& of) {
    return std::vector<Element>(count, of);
  }

  /// Starts an application with these attributes and returns its process identifier.
  std::int32_t start(const std::string& bundleID, const std::string& name, Attributes attributes) {
    const auto processID = static_cast<std::int32_t>(trees_.size() + 100);
    running.push_back({bundleID, name, processID});
    trees_[processID] = element(std::move(attributes));
    return processID;
  }
  /// The same with a focused window that shows `text`.
  std::int32_t show(const std::string& bundleID, const std::string& name, const std::string& text) {
    return start(bundleID, name, {{"AXFocusedWindow", element({{"AXValue", text}})}});
  }

  std::vector<platform::RunningApplication> runningApplications() override {
    ++listings;
    return running;
  }
  bool isTrusted() override { return trusted; }
  void requestPermissionPrompt() override { ++prompts; }
  Element application(std::int32_t processID) override {
    ++applicationReads;
    return trees_[processID];
  }
  Value attribute(const Element& of, std::string_view name) override {
    ++reads[std::string(name)];
    if (!of) return {};
    const auto& attributes = *static_cast<const Attributes*>(of.get());
    const auto found = attributes.find(name);
    return found == attributes.end() ? Value() : found->second;
  }

  bool trusted = true;
  std::vector<platform::RunningApplication> running;
  int listings = 0, prompts = 0, applicationReads = 0;
  std::map<std::string, int> reads;  ///< of each attribute

 private:
  std::map<std::int32_t, Element> trees_;
};

}  // namespace wakelatch
