#include "Results.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iomanip>
#include <sstream>

namespace {

template <class Items, class Matches, class Item>
auto& FindOrAdd(Items& items, Matches matches, Item fresh) {
    const auto found = std::find_if(items.begin(), items.end(), matches);
    return found != items.end() ? *found : items.emplace_back(std::move(fresh));
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

/// Four significant digits or nearly, and no exponent for a person to work out.
std::string Text(double value) {
    if (std::isinf(value)) {
        return "never";
    }
    std::ostringstream text;
    const double size = value < 0 ? -value : value;
    const int decimals = size >= 1000 ? 0 : (size >= 100 ? 1 : (size >= 10 ? 2 : (size >= 0.1 ? 3 : 5)));
    text << std::fixed << std::setprecision(decimals) << value;
    return text.str();
}

}  // namespace

void Results::Add(const std::string& figure, const std::string& unit, const std::string& contender,
                  double value) {
    Figure& known = FindOrAdd(
        m_figures, [&](const Figure& one) { return one.name == figure; }, Figure{figure, unit, {}});
    Row& row = FindOrAdd(
        known.rows, [&](const Row& one) { return one.contender == contender; }, Row{contender, {}});
    row.values.push_back(value);
}

double Results::Ratio(const Figure& figure, const Row& row) {
    const std::vector<double>& first = figure.rows.front().values;
    std::vector<double> ratios;
    for (std::size_t round = 0; round < std::min(first.size(), row.values.size()); ++round) {
        ratios.push_back(first[round] / row.values[round]);
    }
    return Median(ratios);
}

void Results::PrintTable(std::ostream& out) const {
    for (const Figure& figure : m_figures) {
        out << '\n' << figure.name << " (" << figure.unit << ")\n";
        for (const Row& row : figure.rows) {
            const auto [least, most] = std::minmax_element(row.values.begin(), row.values.end());
            out << "  " << std::left << std::setw(24) << row.contender << std::right << std::setw(12)
                << Text(Median(row.values)) << "   from " << std::setw(10) << Text(*least) << " to "
                << std::setw(10) << Text(*most);
            const double ratio = Ratio(figure, row);
            if (&row != &figure.rows.front() && std::isfinite(ratio)) {
                out << "   ratio " << Text(ratio);
            }
            out << '\n';
        }
    }
}

void Results::WriteJson(std::ostream& out) const {
    const char* betweenFigures = "";
    out << "[";
    for (const Figure& figure : m_figures) {
        out << betweenFigures << "\n  {\"figure\": \"" << figure.name << "\", \"unit\": \"" << figure.unit
            << "\", \"rows\": [";
        const char* betweenRows = "";
        for (const Row& row : figure.rows) {
            out << betweenRows << "\n    {\"contender\": \"" << row.contender
                << "\", \"median\": " << Median(row.values) << ", \"ratio\": " << Ratio(figure, row)
                << ", \"rounds\": [";
            const char* betweenValues = "";
            for (const double value : row.values) {
                out << betweenValues << value;
                betweenValues = ", ";
            }
            out << "]}";
            betweenRows = ",";
        }
        out << "]}";
        betweenFigures = ",";
    }
    out << "\n]\n";
}
