#pragma once

#include <chrono>
#include <cstdint>
#include <string>

// A bar on standard error that follows a run of images; silent unless that is a terminal. Drawn
// at most ten times a second and wiped away at the end.
class Progress
{
public:
    Progress(uint64_t total, bool wanted);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Show(uint64_t done, double rate);

private:
    uint64_t m_total;
    bool m_isWanted;
    bool m_isDrawn = false;
    std::chrono::steady_clock::time_point m_last;
};

// "[#########      ]  12/20  29.9 images/s", at most `columns` wide.
std::string ProgressLine(uint64_t done, uint64_t total, double rate, unsigned columns);
