// Applications and their accessibility trees as a test describes them, with every read counted.
#pragma once

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Platform/Accessibility.h"

namespace wakelatch {

struct ScriptedAccessibility : platform::Accessibility {
  using Attributes = std::map<std::string, Value, std::less<>>;

  static Element element(Attributes attributes) {
    return std::make_shared<const Attributes>(std::move(attributes));
  }
  /// Starts an application with these attributes and returns its process identifier.
  std::int32_t start(const std::string& bundleID, const std::string& name, Attributes attributes) {
    trees.push_back(element(std::move(attributes)));
    running.push_back({bundleID, name, static_cast<std::int32_t>(trees.size())});
    return running.back().processID;
  }
  /// The same with a focused window that shows `text`.
  std::int32_t show(const std::string& bundleID, const std::string& name, const std::string& text) {
    return start(bundleID, name, {{"AXFocusedWindow", element({{"AXValue", text}})}});
  }

  std::vector<platform::RunningApplication> runningApplications() override { return running; }
  bool isTrusted() override { return trusted; }
  void requestPermissionPrompt() override {}
  Element application(std::int32_t processID) override {
    return trees.at(static_cast<std::size_t>(processID) - 1);
  }
  Value attribute(const Element& of, std::string_view name, const Limits& limits) override {
    ++reads[std::string(name)];
    std::this_thread::sleep_for(std::chrono::duration<double>(std::min(limits.seconds, delay)));
    if (delay > limits.seconds) return NoAnswer();
    if (!of) return {};
    const auto& attributes = *static_cast<const Attributes*>(of.get());
    const auto found = attributes.find(name);
    return found == attributes.end() ? Value() : found->second;
  }

  bool trusted = true;
  std::vector<platform::RunningApplication> running;
  std::map<std::string, int> reads;  ///< of each attribute
  double delay = 0;                  ///< seconds until an answer

 private:
  std::vector<Element> trees;
};

}  // namespace wakelatch
