#include "progress_display.hpp"

#include "format.hpp"
#include "json.hpp"
#include "table.hpp"

#include <qrftp/trace.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

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
    const double seconds = static_cast<double>(now.total - now.bytes) / now.rate;
    return clock_time(std::chrono::seconds(std::llround(std::min(seconds, 1e9))));
}

std::string figures(const progress& now)
{
    std::string amounts =
        fmt::format("{:>11}{:>13}", human_size(static_cast<double>(now.bytes)), human_size(now.rate) + "/s");
    if (now.total == 0) {
        return amounts;
    }
    const double share = std::min(static_cast<double>(now.bytes) / static_cast<double>(now.total), 1.0);
    return amounts + fmt::format("{:>4}%{:>9} left", static_cast<int>(100 * share), time_left(now));
}

std::string line_of(const std::string& name, const progress& now, std::size_t width)
{
    std::string numbers = figures(now);
    const std::size_t room = std::max(std::min(width, shortest_name), width - std::min(width, numbers.size()));
    std::string text = shorten(name, room);
    numbers.resize(std::min(numbers.size(), width - room));
    return text.append(room - text_width(text), ' ') + numbers;
}

} // namespace

progress_display::progress_display(progress_style style) : style_(style)
{
}

progress_display::~progress_display()
{
    erase();
}

void progress_display::show(const tree_progress& now)
{
    if (style_ == progress_style::json) {
        print(now.path, now.file, now.files_done != files_done_);
        files_done_ = now.files_done;
    }
    if (style_ != progress_style::lines) {
        return;
    }
    files_[now.job] = {escape(now.path), now.file};
    if (is_due()) {
        const row total{fmt::format("{}/{} files", now.files_done, now.files), now.all};
        draw(rows(now.files > 1 ? &total : nullptr));
    }
    if (now.files_done != files_done_) {
        files_done_ = now.files_done;
        files_.erase(now.job);
    }
}

void progress_display::show(const std::string& name, const progress& now)
{
    if (style_ == progress_style::json) {
        print(name, now, now.bytes == now.total);
    }
    if (style_ != progress_style::lines) {
        return;
    }
    files_ = {{0, {escape(name), now}}};
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

void progress_display::print(const std::string& name, const progress& now, bool is_done)
{
    const auto time = clock::now();
    const auto [last, is_first] = printed_at_.try_emplace(name, time);
    if (!is_first && !is_done && time - last->second < between_draws) {
        return;
    }
    last->second = time;
    json object = json::object();
    add_bytes(object, "file", name);
    object["bytes"] = now.bytes;
    if (now.total > 0) {
        object["total"] = now.total;
    }
    object["rate"] = std::llround(now.rate);
    print_error_json(object);
    if (is_done) {
        printed_at_.erase(last);
    }
}

/// The cursor is left behind the last line, so that a terminal that is full need not scroll.
void progress_display::draw(const std::vector<row>& all)
{
    const std::size_t width = terminal_size::of(STDERR_FILENO).columns - 1;
    std::string text = "\r";
    if (drawn_ > 1) {
        text += fmt::format("\x1b[{}A", drawn_ - 1);
    }
    for (const row& one : all) {
        text += (&one == &all.front() ? "" : "\r\n") + line_of(one.name, one.amount, width) + "\x1b[K";
    }
    text += "\x1b[J";
    (void)std::fputs(text.c_str(), stderr);
    drawn_ = all.size();
}

} // namespace qrftp::cli
