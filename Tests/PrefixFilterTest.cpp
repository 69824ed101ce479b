#include "Platform/PrefixFilter.h"

#include <gmock/gmock.h>

#include <random>

namespace wakelatch::platform {
namespace {

TEST(PrefixFilter, VectorInstructionsPassWhatPlainOnesPass) {
  std::mt19937 random(1);
  const auto text = [&random](std::size_t longest) {  // bytes of all upper and lower halves
    std::string bytes(random() % (longest + 1), ' ');
    for (char& byte : bytes) byte = static_cast<char>(random() % 3 == 0 ? random() : random() % 4);
    return bytes;
  };
  const auto candidates = [](const PrefixFilter& filter, std::string_view in) {
    std::vector<PrefixFilter::Candidate> found;
    filter.search(in, found);
    std::map<std::size_t, std::uint64_t> groups;
    for (const auto& [position, ofPosition] : found) groups[position] = ofPosition;
    EXPECT_EQ(groups.size(), found.size());
    return groups;
  };
  for (int round = 0; round < 2000; ++round) {
    PrefixFilter filter;
    std::vector<std::string> prefixes(random() % 12);
    for (std::size_t i = 0; i < prefixes.size(); ++i)
      filter.add(prefixes[i] = 'a' + text(5), i % PrefixFilter::groups);
    std::string whole = text(100);
    for (const auto& prefix : prefixes) whole.insert(random() % (whole.size() + 1), prefix);
    std::map<std::size_t, std::uint64_t> plainly;  // too short for a vector
    for (std::size_t at = 0; at < whole.size(); ++at) {
      const auto here = candidates(filter, std::string_view(whole).substr(at, 4));
      if (here.contains(0)) plainly[at] = here.at(0);
      for (std::size_t i = 0; i < prefixes.size(); ++i)
        EXPECT_TRUE(whole.compare(at, prefixes[i].size(), prefixes[i]) != 0 ||
                    plainly[at] >> i % PrefixFilter::groups & 1);
    }
    EXPECT_EQ(candidates(filter, whole), plainly);
  }
}

}  // namespace
}  // namespace wakelatch::platform
