#include "formats/text/NearestNames.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <numeric>
#include <utility>

namespace gk::formats {

namespace {

constexpr std::size_t kMost = 3;

std::string lower(std::string_view text) {
  std::string result(text);
  std::ranges::transform(result, result.begin(),
                         [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return result;
}

/// Levenshtein's distance: letters to insert, delete or replace.
std::size_t distance(std::string_view left, std::string_view right) {
  std::vector<std::size_t> row(right.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < left.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < right.size(); ++j) {
      const std::size_t replaced = diagonal + (left[i] == right[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

} // namespace

std::vector<std::string> nearestNames(std::string_view wanted,
                                      const std::vector<std::string>& names) {
  const std::string text = lower(wanted);
  std::vector<std::pair<std::size_t, std::string>> ranked;
  for (const std::string& name : names) {
    const std::string candidate = lower(name);
    // A name that is far longer or shorter can only be near as a part.
    const std::size_t limit = std::max<std::size_t>(2, text.size() / 3);
    const std::size_t gap = candidate.size() > text.size() ? candidate.size() - text.size()
                                                           : text.size() - candidate.size();
    const bool isPart = text.size() > 2 && candidate.find(text) != std::string::npos;
    const std::size_t edits = gap <= limit ? distance(text, candidate) : limit + 1;
    if (edits <= limit) {
      ranked.emplace_back(edits, name);
    } else if (isPart) {
      ranked.emplace_back(limit + gap, name);
    }
  }
  std::ranges::sort(ranked);
  std::vector<std::string> nearest;
  for (std::size_t i = 0; i < std::min(kMost, ranked.size()); ++i) {
    nearest.push_back(std::move(ranked[i].second));
  }
  return nearest;
}

std::string didYouMean(const std::vector<std::string>& nearest) {
  std::string text;
  for (std::size_t i = 0; i < nearest.size(); ++i) {
    text += i == 0 ? "; did you mean " : i + 1 == nearest.size() ? " or " : ", ";
    text += nearest[i];
  }
  return text.empty() ? text : text + "?";
}

} // namespace gk::formats
