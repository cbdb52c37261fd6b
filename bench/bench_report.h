#pragma once

#include <string>
#include <vector>

namespace bench {

// One figure: what was measured, what it is compared with in the same run, and the goal for the
// ratio of the two.
struct Row
{
    enum class Goal
    {
        None,
        AtLeast, // the ratio
        AtMost,
    };

    std::string figure;
    double value = 0;
    std::string unit;
    std::string against = {}; // empty: compared with nothing
    double reference = 0;
    Goal goal = Goal::None;
    double limit = 0;

    double Ratio() const { return reference != 0 ? value / reference : 0; }
    // A row without a goal is never missed.
    bool Kept() const;
};

class Report
{
public:
    void Add(Row row);
    // Rows that another run has written with WriteJson.
    void ReadJson(const std::string& path);
    void WriteJson(const std::string& path) const;
    std::string Table() const;

private:
    std::vector<Row> m_rows;
};

} // namespace bench
