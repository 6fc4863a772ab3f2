// A progress bar on standard error, for a terminal only.
#pragma once

#include <chrono>
#include <cstddef>
#include <iosfwd>

namespace cli {

class Progress {
public:
    // Drawn only when `enabled`; callers pass whether standard error is a terminal.
    Progress(size_t total, bool enabled, std::ostream& to);
    ~Progress() { clear(); }
    // `done` of the total are finished; redrawn at most ten times a second, and at the end.
    void update(size_t done);
    // Takes the bar off the line, before other output is written to the terminal.
    void clear();

private:
    size_t total_;
    bool enabled_, shown_ = false;
    std::ostream& to_;
    std::chrono::steady_clock::time_point start_, last_;
};

// Whether standard error is a terminal.
bool stderrIsTerminal();

}  // namespace cli
