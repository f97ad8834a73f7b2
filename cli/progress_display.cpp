#include "progress_display.hpp"

#include "columns.hpp"
#include "output.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <sstream>

#include <unistd.h>

namespace qrftp::cli {

using std::chrono::milliseconds;

namespace {

constexpr milliseconds first_draw(500);
constexpr milliseconds between_draws(100);

/// The least that is left of a name before the figures are cut.
constexpr std::size_t shortest_name = 8;

std::string time_left(const progress& now)
{
    if (now.total < now.bytes || now.rate < 1) {
        return "-:--";
    }
    const auto seconds = std::llround(static_cast<double>(now.total - now.bytes) / now.rate);
    std::ostringstream text;
    text << std::setfill('0');
    if (seconds >= 3600) {
        text << seconds / 3600 << ':' << std::setw(2);
    }
    text << seconds / 60 % 60 << ':' << std::setw(2) << seconds % 60;
    return text.str();
}

std::string figures(const progress& now)
{
    std::ostringstream text;
    text << std::setw(11) << readable(static_cast<double>(now.bytes)) << std::setw(13)
         << readable(now.rate) + "/s";
    if (now.total > 0) {
        const double share = static_cast<double>(now.bytes) / static_cast<double>(now.total);
        text << std::setw(4) << std::lround(std::floor(100 * std::min(share, 1.0))) << '%' << std::setw(9)
             << time_left(now) << " left";
    }
    return text.str();
}

std::string line_of(const std::string& name, const progress& now, std::size_t width)
{
    std::string numbers = figures(now);
    const std::size_t room = std::max(std::min(width, shortest_name), width - std::min(width, numbers.size()));
    std::string text = shorten(name, room);
    numbers.resize(std::min(numbers.size(), width - room));
    return text.append(room - columns(text), ' ') + numbers;
}

} // namespace

std::string readable(double bytes)
{
    static constexpr std::array units{"B", "KiB", "MiB", "GiB", "TiB", "PiB"};
    std::size_t unit = 0;
    while (bytes >= 1024 && unit + 1 < units.size()) {
        bytes /= 1024;
        ++unit;
    }
    std::ostringstream text;
    text << std::fixed << std::setprecision(unit == 0 ? 0 : 1) << bytes << ' ' << units.at(unit);
    return text.str();
}

progress_display::progress_display(bool visible) : visible_(visible)
{
}

progress_display::~progress_display()
{
    erase();
}

void progress_display::show(const tree_progress& now)
{
    if (!visible_) {
        return;
    }
    files_[now.job] = {printable(now.path), now.file};
    if (is_due()) {
        const row total{std::to_string(now.files_done) + '/' + std::to_string(now.files) + " files", now.all};
        draw(rows(now.files > 1 ? &total : nullptr));
    }
    if (now.files_done != files_done_) {
        files_done_ = now.files_done;
        files_.erase(now.job);
    }
}

void progress_display::show(const std::string& name, const progress& now)
{
    if (!visible_) {
        return;
    }
    files_ = {{0, {printable(name), now}}};
    if (is_due()) {
        draw(rows(nullptr));
    }
}

void progress_display::erase()
{
    if (drawn_ > 0) {
        draw({});
    }
}

bool progress_display::is_due()
{
    const auto now = clock::now();
    if (start_ == clock::time_point{}) {
        start_ = now;
    }
    if (now - start_ < first_draw || now - drawn_at_ < between_draws) {
        return false;
    }
    drawn_at_ = now;
    return true;
}

std::vector<progress_display::row> progress_display::rows(const row* total) const
{
    std::vector<row> all;
    all.reserve(files_.size() + 1);
    for (const auto& [job, file] : files_) {
        all.push_back(file);
    }
    // The last row of the terminal stays free; what does not fit above it are jobs, not the total.
    const std::size_t limit = std::max<std::size_t>(terminal_size::of(STDERR_FILENO).rows, 2) - 1;
    all.resize(std::min(all.size(), limit - (total == nullptr ? 0 : 1)));
    if (total != nullptr) {
        all.push_back(*total);
    }
    return all;
}

/// The cursor is left behind the last line, so that a terminal that is full need not scroll.
void progress_display::draw(const std::vector<row>& all)
{
    const std::size_t width = terminal_size::of(STDERR_FILENO).columns - 1;
    std::string text = "\r";
    if (drawn_ > 1) {
        text += "\x1b[" + std::to_string(drawn_ - 1) + 'A';
    }
    for (const row& one : all) {
        text += (&one == &all.front() ? "" : "\r\n") + line_of(one.name, one.amount, width) + "\x1b[K";
    }
    text += "\x1b[J";
    std::cerr << text << std::flush;
    drawn_ = all.size();
}

} // namespace qrftp::cli
