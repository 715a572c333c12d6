#include "Suggestion.h"

#include <algorithm>
#include <numeric>

namespace {

/// More slips than this make another word.
constexpr std::size_t kMostSlips = 2;

/// How many letters have to be put in, left out or exchanged to turn one word into the other.
std::size_t Slips(const std::string& from, const std::string& to) {
    std::vector<std::size_t> row(to.size() +
                                 1);  // the slips from what was read of `from` to each start of `to`
    std::iota(row.begin(), row.end(), 0);
    for (const char letter : from) {
        std::size_t diagonal = row[0]++;
        for (std::size_t at = 1; at <= to.size(); ++at) {
            const std::size_t exchanged = diagonal + (letter == to[at - 1] ? 0 : 1);
            diagonal = row[at];
            row[at] = std::min({exchanged, row[at - 1] + 1, row[at] + 1});
        }
    }
    return row.back();
}

}  // namespace

std::string Suggestion(const std::string& word, const std::vector<std::string>& known) {
    const auto closest = std::min_element(
        known.begin(), known.end(),
        [&](const auto& left, const auto& right) { return Slips(word, left) < Slips(word, right); });
    const bool isClose = closest != known.end() && *closest != word && Slips(word, *closest) <= kMostSlips;
    return isClose ? "; did you mean '" + *closest + "'?" : "";
}
