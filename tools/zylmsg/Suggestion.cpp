#include "Suggestion.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>

namespace {

/// Words at a greater distance are not taken for typing errors.
constexpr std::size_t kLargestDistance = 2;

/// The Levenshtein distance: the number of letters to insert, delete or replace to turn one word into the
/// other.
std::size_t Distance(const std::string& from, const std::string& to) {
    // Between the letters of `from` read so far and each prefix of `to`.
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (const char letter : from) {
        std::size_t diagonal = row[0]++;
        for (std::size_t at = 1; at <= to.size(); ++at) {
            const std::size_t replaced = diagonal + (letter == to[at - 1] ? 0 : 1);
            diagonal = row[at];
            row[at] = std::min({replaced, row[at - 1] + 1, row[at] + 1});
        }
    }
    return row.back();
}

}  // namespace

std::string Suggestion(const std::string& word, const std::vector<std::string>& known) {
    const auto closest = std::min_element(
        known.begin(), known.end(),
        [&](const auto& left, const auto& right) { return Distance(word, left) < Distance(word, right); });
    const bool isClose =
        closest != known.end() && *closest != word && Distance(word, *closest) <= kLargestDistance;
    return isClose ? fmt::format("; did you mean '{}'?", *closest) : "";
}
