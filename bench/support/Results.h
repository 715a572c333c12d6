#ifndef ZYL_BENCH_RESULTS_H
#define ZYL_BENCH_RESULTS_H

#include <ostream>
#include <string>
#include <vector>

/// What the rounds have measured. A figure has rows, one for each contender; the first row that is added is
/// the one the others are compared with. The ratio of a row is the first row's value divided by its own: the
/// median over the rounds, so that what disturbs a whole round cancels out.
class Results {
  public:
    void Add(const std::string& figure, const std::string& unit, const std::string& contender, double value);

    void PrintTable(std::ostream& out) const;
    void WriteJson(std::ostream& out) const;

  private:
    struct Row {
        std::string contender;
        std::vector<double> values;  // one a round
    };
    struct Figure {
        std::string name;
        std::string unit;
        std::vector<Row> rows;
    };

    static double Ratio(const Figure& figure, const Row& row);

    std::vector<Figure> m_figures;
};

#endif
