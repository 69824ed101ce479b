// What the program's help names stands in its manual page and in every completion.
#include <regex>

#include "Tests/HostProgram.h"
#include "WakelatchCore/Models.h"

namespace wakelatch::host {
namespace {

std::vector<std::string> all(const std::string& text, const char* pattern) {
  const std::regex regex(pattern);
  return {std::sregex_token_iterator(text.begin(), text.end(), regex, 1), {}};
}

TEST(Packaging, ManualAndCompletionsNameEveryCommandOptionAndMode) {
  // What each text says of a command, up to one of its options.
  const char* cases = R"(\bCOMMAND( \|[a-z| ]*)?\)[^;]*(--|\$)OPTION\b)";
  const std::pair<std::string, std::string> texts[] = {
      {"wakelatch.1", R"(\n\.Cm COMMAND\n(\.Op .*\n)*\.Op Fl -OPTION\b)"},
      {"completions/wakelatch.bash", cases},
      {"completions/_wakelatch", cases},
      {"completions/wakelatch.fish", R"(_from [a-z ]*\bCOMMAND\b.* -l OPTION\b)"}};
  for (const auto& [file, form] : texts) {
    const std::string text = contentOf(std::string(WAKELATCH_SOURCE_DIR "/packaging/") + file);
    std::vector<std::string> patterns = {R"((Fl -|--|-l )tools\b)", R"((Fl -|--|-l )version\b)"};
    for (const AppMode mode : allCases<AppMode>()) patterns.emplace_back(rawValue(mode));
    for (const std::string& command : all(runHost({"--help"}).out, "\n  ([a-z]+) ")) {
      const std::string place = std::regex_replace(form, std::regex("COMMAND"), command);
      for (const std::string& option : all(runHost({command, "--help"}).out, "--([a-z-]+)")) {
        if (option == "help") continue;
        patterns.push_back(std::regex_replace(place, std::regex("OPTION"), option));
      }
    }
    EXPECT_GT(patterns.size(), 20U);
    for (const std::string& pattern : patterns)
      EXPECT_TRUE(std::regex_search(text, std::regex(pattern))) << file << ": " << pattern;
  }
}

}  // namespace
}  // namespace wakelatch::host
