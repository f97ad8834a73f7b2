#include "local_file.hpp"

#include <string>
#include <system_error>
#include <utility>

#include <unistd.h>

namespace qrftp::cli {

namespace fs = std::filesystem;

local_file::local_file(fs::path target) : target_(std::move(target)), temporary_(target_)
{
    if (!fs::exists(target_) || fs::is_regular_file(target_)) {
        temporary_ += ".part-" + std::to_string(getpid());
    }
}

local_file::~local_file()
{
    if (temporary_ != target_) {
        std::error_code ignored; // Nothing is left to remove, or nothing can be done about it.
        fs::remove(temporary_, ignored);
    }
}

void local_file::commit()
{
    if (temporary_ != target_) {
        fs::rename(temporary_, target_);
        temporary_ = target_;
    }
}

} // namespace qrftp::cli
