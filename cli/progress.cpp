#include "progress.hpp"

#include <zorbel/io/ftp/core/set_option.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <utility>

#include <sys/ioctl.h>
#include <unistd.h>

namespace qrftp::cli {

using std::chrono::milliseconds;
using zorbel::io::ftp::core::set_option;

namespace {

constexpr int bar_width = 24;

std::size_t terminal_width()
{
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

} // namespace

std::string readable(double bytes)
{
    static constexpr std::array units{"B", "KiB", "MiB", "GiB", "TiB"};
    std::size_t unit = 0;
    while (bytes >= 1024 && unit + 1 < units.size()) {
        bytes /= 1024;
        ++unit;
    }
    std::ostringstream text;
    text << std::fixed << std::setprecision(unit == 0 ? 0 : 1) << bytes << ' ' << units.at(unit);
    return text.str();
}

progress_bar::progress_bar(zorbel::io::ftp::core::curl_ptr& connection, std::string title,
                           const volatile std::sig_atomic_t* interrupted)
    : connection_(connection), title_(std::move(title)), interrupted_(interrupted),
      terminal_(isatty(STDERR_FILENO) != 0)
{
    set_option(connection_, CURLOPT_XFERINFOFUNCTION, &progress_bar::callback);
    set_option(connection_, CURLOPT_XFERINFODATA, this);
    set_option(connection_, CURLOPT_NOPROGRESS, 0L);
}

progress_bar::~progress_bar()
{
    if (connection_) {
        set_option(connection_, CURLOPT_NOPROGRESS, 1L);
        set_option(connection_, CURLOPT_XFERINFODATA, nullptr);
        set_option(connection_, CURLOPT_XFERINFOFUNCTION, nullptr);
    }
    if (drawn_) {
        std::cerr << std::endl;
    }
}

int progress_bar::callback(void* self, curl_off_t download_total, curl_off_t downloaded,
                           curl_off_t upload_total, curl_off_t uploaded) noexcept
try {
    auto& bar = *static_cast<progress_bar*>(self);
    if (bar.interrupted_ != nullptr && *bar.interrupted_ != 0) {
        return 1; // libcurl ends the transfer.
    }
    const auto now = clock::now();
    const auto total = std::max(download_total, upload_total);
    if (total > 0 && bar.start_ == clock::time_point{}) {
        bar.start_ = now;
    }
    if (bar.terminal_ && total > 0 && now - bar.start_ >= milliseconds(1000) &&
        now - bar.last_drawn_ >= milliseconds(100)) {
        bar.last_drawn_ = now;
        bar.draw(std::max(downloaded, uploaded), total);
    }
    return 0;
} catch (const std::exception&) {
    return 0; // A bar that cannot be drawn is no reason to stop the transfer.
}

void progress_bar::draw(curl_off_t done, curl_off_t total)
{
    const double seconds = std::chrono::duration<double>(clock::now() - start_).count();
    const double rate = static_cast<double>(done) / seconds;
    const double share = static_cast<double>(done) / static_cast<double>(total);
    const auto left = rate > 0 ? static_cast<long>(static_cast<double>(total - done) / rate) : 0;
    const auto filled = static_cast<std::size_t>(share * bar_width);
    std::ostringstream text;
    text << title_ << " [" << std::string(filled, '#') << std::string(bar_width - filled, '.') << "] "
         << readable(static_cast<double>(done)) << ", " << readable(rate) << "/s " << std::lround(share * 100)
         << "% " << left / 60 << ':' << std::setfill('0') << std::setw(2) << left % 60 << " left";
    const std::string line = text.str().substr(0, terminal_width() - 1);
    std::cerr << '\r' << line << "\x1b[K" << std::flush;
    drawn_ = true;
}

} // namespace qrftp::cli
