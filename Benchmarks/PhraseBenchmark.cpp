// Searching for agents' phrases in the text of a terminal that shows none of them, compared with
// ripgrep and with ICU's own folding and searching.
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "Benchmarks/SideBySide.h"
#include "Platform/TextSystem.h"
#include "WakelatchCore/AgentCatalog.h"
#include "WakelatchCore/PhraseMatcher.h"

namespace {

namespace fs = std::filesystem;
using namespace wakelatch;

/// Text like that of an agent's session: prose, code, bullets and boxes. A fifth of the bytes are
/// not ASCII, and phrases seem to begin at many places.
std::string terminalText(std::size_t size, unsigned seed = 1) {
  const std::array words = {
      "the",    "function", "returns",        "std::string", "if",   "(error)",
      "const",  "test",     "build",          "Read",        "src/", "main.cpp",
      "+",      "-",        "commit",         "branch",      "42",   "to",
      "ctrl+c", "edit",     "d\u00E9j\u00E0", "\u2192",      "{",    "}"};
  std::mt19937 random(seed);
  std::string text;
  while (text.size() <= size) {
    const auto kind = random() % 20;
    if (kind == 0) {
      for (int i = 0; i < 80; ++i) text += "\u2500";
    } else {
      const bool isBoxed = kind < 5, isBullet = kind < 7;
      text += isBoxed ? "\u2502 " : isBullet ? "\u23FA " : "  ";
      for (std::size_t left = 3 + random() % 12; left > 0; --left)
        text.append(words[random() % words.size()]).append(" ");
      text += isBoxed ? "\u2502" : isBullet ? "\u2026" : "";
    }
    text += "\n";
  }
  while ((text[size] & 0xC0) == 0x80) --size;
  text.resize(size);
  return text;
}

/// CPU time of this process and of the children that it has waited for; unlike wall time it hardly
/// depends on what else the machine does.
template <class Work>
double secondsOf(Work work) {
  const auto used = [] {
    double seconds = 0;
    for (const auto who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
      rusage usage{};
      getrusage(who, &usage);
      for (const timeval& time : {usage.ru_utime, usage.ru_stime})
        seconds += double(time.tv_sec) + double(time.tv_usec) / 1e6;
    }
    return seconds;
  };
  const double before = used();
  work();
  return used() - before;
}

/// Seconds for all texts, none of which may contain a phrase.
double secondsToMatch(const PhraseIndex& index, const std::vector<std::string>& texts) {
  return secondsOf([&] {
    for (const std::string& text : texts) {
      for (const PhraseMatchKind& match : index.match(text)) {
        if (match != PhraseMatchKind::none()) std::abort();
      }
    }
  });
}

/// Ripgrep over a file, given several times, so that searching takes longer than starting ripgrep.
class Ripgrep {
 public:
  Ripgrep(const fs::path& phrases, const fs::path& text, int times)
      : command_("rg --no-config -j1 -i -F -c -f " + phrases.string()) {
    for (int i = 0; i < times; ++i) command_.append(" ").append(text);
  }
  double seconds() const {
    return secondsOf([&] {
      const int status = std::system(command_.c_str());
      if (!WIFEXITED(status) || WEXITSTATUS(status) != 1) std::abort();  // 1: nothing found
    });
  }

 private:
  std::string command_;
};

/// ICU's folding of the whole text, character by character, and a search for each phrase.
double secondsOfSystem(const std::set<std::string>& phrases, const std::string& text) {
  const auto folded = [](const std::string& unfolded) {
    return platform::system::folded(unfolded, platform::system::Accents::drop);
  };
  return secondsOf([&] {
    const std::string haystack = folded(text);
    for (const std::string& phrase : phrases) {
      if (haystack.find(folded(phrase)) != std::string::npos) std::abort();
    }
  });
}

void compareAt(std::size_t size, const PhraseIndex& index, const std::set<std::string>& phrases,
               const fs::path& directory) {
  const std::string text = terminalText(size);
  const int times = int((40 << 20) / size);
  std::ofstream(directory / "text") << text;
  std::ofstream(directory / "nothing");
  for (std::ofstream list(directory / "phrases"); const std::string& phrase : phrases)
    list << phrase << "\n";

  const std::string name = std::to_string(size >> 20) + " MB, nine profiles, against ";
  const Ripgrep search(directory / "phrases", directory / "text", times);
  const Ripgrep start(directory / "phrases", directory / "nothing", times);
  const double megabytes = double(size) / 1e6;
  const std::vector<std::string> texts(std::size_t(times), text);
  const auto ours = [&] { return megabytes * times / secondsToMatch(index, texts); };
  bench::compare((name + "rg").c_str(), "MB/s", ours,
                 [&] { return megabytes * times / (search.seconds() - start.seconds()); }, 1, 15,
                 true);
  bench::compare((name + "folding by the system").c_str(), "MB/s", ours,
                 [&] { return megabytes / secondsOfSystem(phrases, text); }, 20, 7, true);
}

}  // namespace

int main() {
  const std::vector<AgentProfile> catalog = AgentCatalog::builtin();
  std::vector<PhraseIndex::Lists> profiles;
  std::set<std::string> phrases;
  for (const AgentProfile& profile : catalog) {
    if (!profile.scanTerminalText) continue;
    profiles.push_back({profile.activePhrases, profile.idlePhrases});
    phrases.insert(profile.activePhrases.begin(), profile.activePhrases.end());
    phrases.insert(profile.idlePhrases.begin(), profile.idlePhrases.end());
  }
  const PhraseIndex nine(profiles), one(std::span<const PhraseIndex::Lists>(profiles).first(1));

  std::string directory = (fs::temp_directory_path() / "wakelatch-phrases.XXXXXX").string();
  if (mkdtemp(directory.data()) == nullptr) return 1;
  compareAt(1 << 20, nine, phrases, directory);
  compareAt(10 << 20, nine, phrases, directory);
  fs::remove_all(directory);

  // Many different small texts: with a single one, branch prediction would be unrealistically good.
  const std::vector<std::string> large = {terminalText(10 << 20)};
  std::vector<std::string> small;
  for (unsigned seed = 0; seed < 160; ++seed) small.push_back(terminalText(64 << 10, seed));
  const auto matching = [](const PhraseIndex& index, const std::vector<std::string>& texts) {
    return [&] { return secondsToMatch(index, texts); };
  };
  bench::compare("nine profiles against one", "s", matching(nine, large), matching(one, large),
                 1.5);
  bench::compare("10 MB against 160 times 64 KB", "s", matching(nine, large), matching(nine, small),
                 1.5);
}
