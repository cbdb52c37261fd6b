#include "bench_report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <stdexcept>

#include <nlohmann/json.hpp>

namespace bench {

namespace {

constexpr const char* kGoals[] = {"", ">=", "<="};

// Three significant digits, and no exponent where people read.
std::string Number(double value)
{
    char text[64];
    const double size = std::fabs(value);
    const int decimals = size == 0 || size >= 100 ? 0 : size >= 10 ? 1 : size >= 1 ? 2 : 3;
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

std::string WithUnit(double value, const std::string& unit)
{
    return Number(value) + (unit.empty() ? "" : " " + unit);
}

using Cells = std::vector<std::string>;

Cells CellsOf(const Row& row)
{
    const bool compared = !row.against.empty();
    const bool hasRatio = compared && row.reference != 0;
    std::string goal;
    if (row.goal != Row::Goal::None) {
        goal = std::string(kGoals[static_cast<int>(row.goal)]) + " " + Number(row.limit) +
               (row.Kept() ? "" : "  MISSED");
    }
    return {row.figure,
            WithUnit(row.value, row.unit),
            row.against,
            compared ? WithUnit(row.reference, row.unit) : "",
            hasRatio ? Number(row.Ratio()) : "",
            goal};
}

} // namespace

bool Row::Kept() const
{
    switch (goal) {
    case Goal::AtLeast: return Ratio() >= limit;
    // Nothing at all is at most anything, also where there is nothing to divide by.
    case Goal::AtMost: return value == 0 || (reference != 0 && Ratio() <= limit);
    case Goal::None: return true;
    }
    return true;
}

void Report::Add(Row row)
{
    const Cells cells = CellsOf(row);
    std::fprintf(stderr, "%s: %s", cells[0].c_str(), cells[1].c_str());
    if (!row.against.empty()) {
        std::fprintf(stderr, "; %s: %s", row.against.c_str(), cells[3].c_str());
    }
    std::fprintf(stderr, "\n");
    m_rows.push_back(std::move(row));
}

void Report::ReadJson(const std::string& path)
{
    std::ifstream file(path);
    const auto document = nlohmann::json::parse(file);
    for (const auto& entry : document.at("rows")) {
        Row row;
        row.figure = entry.at("figure");
        row.value = entry.at("value");
        row.unit = entry.at("unit");
        row.against = entry.at("against");
        row.reference = entry.at("reference");
        const std::string goal = entry.at("goal");
        row.goal = static_cast<Row::Goal>(std::find(std::begin(kGoals), std::end(kGoals), goal) -
                                          std::begin(kGoals));
        row.limit = entry.at("limit");
        m_rows.push_back(std::move(row));
    }
}

void Report::WriteJson(const std::string& path) const
{
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    for (const Row& row : m_rows) {
        rows.push_back({{"figure", row.figure},
                        {"value", row.value},
                        {"unit", row.unit},
                        {"against", row.against},
                        {"reference", row.reference},
                        {"ratio", row.Ratio()},
                        {"goal", kGoals[static_cast<int>(row.goal)]},
                        {"limit", row.limit},
                        {"kept", row.Kept()}});
    }
    std::ofstream file(path);
    file << nlohmann::ordered_json{{"rows", rows}}.dump(2) << "\n";
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

std::string Report::Table() const
{
    std::vector<Cells> lines{{"figure", "measured", "compared with", "that is", "ratio", "goal"}};
    for (const Row& row : m_rows) {
        lines.push_back(CellsOf(row));
    }
    std::vector<size_t> widths(lines.front().size(), 0);
    for (const Cells& line : lines) {
        for (size_t i = 0; i < line.size(); ++i) {
            widths[i] = std::max(widths[i], line[i].size());
        }
    }
    std::string text;
    for (const Cells& line : lines) {
        std::string row;
        for (size_t i = 0; i < line.size(); ++i) {
            row += line[i] + std::string(widths[i] - line[i].size() + 2, ' ');
        }
        text += row.erase(row.find_last_not_of(' ') + 1) + "\n";
    }
    return text;
}

} // namespace bench
