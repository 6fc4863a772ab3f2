#include "progress.h"

#include <unistd.h>

#include <cstdio>
#include <ostream>
#include <string>

namespace cli {

Progress::Progress(size_t total, bool enabled, std::ostream& to)
    : total_(total), enabled_(enabled), to_(to), start_(std::chrono::steady_clock::now()) {}

void Progress::update(size_t done) {
    if (!enabled_ || total_ == 0) return;
    const auto now = std::chrono::steady_clock::now();
    if (shown_ && done < total_ && now - last_ < std::chrono::milliseconds(100)) return;
    last_ = now;
    const int width = 30;
    const int filled = static_cast<int>(width * done / total_);
    const double seconds = std::chrono::duration<double>(now - start_).count();
    char rate[48];
    std::snprintf(rate, sizeof rate, " %zu/%zu  %.1f/s", done, total_,
                  seconds > 0 ? done / seconds : 0.0);
    to_ << "\r[" << std::string(filled, '#') << std::string(width - filled, '.') << "]" << rate
        << std::flush;
    shown_ = true;
}

void Progress::clear() {
    if (!shown_) return;
    to_ << "\r\033[K" << std::flush;
    shown_ = false;
}

bool stderrIsTerminal() {
    return ::isatty(STDERR_FILENO) == 1;
}

}  // namespace cli
