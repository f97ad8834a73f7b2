#include "prompt.hpp"

#include <foundation/log/sink.hpp>

#include <cstdlib>
#include <iostream>

#include <termios.h>
#include <unistd.h>

namespace qrftp::cli {

namespace {

/// Turns the terminal's echo off while it lives.
class silence {
public:
    explicit silence(int terminal) : terminal_(terminal), valid_(tcgetattr(terminal, &saved_) == 0)
    {
        termios quiet = saved_;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        if (valid_) {
            tcsetattr(terminal_, TCSAFLUSH, &quiet);
        }
    }
    ~silence()
    {
        if (valid_) {
            tcsetattr(terminal_, TCSAFLUSH, &saved_);
        }
    }
    silence(const silence&) = delete;
    silence& operator=(const silence&) = delete;

private:
    int terminal_;
    termios saved_{};
    bool valid_;
};

std::string ask(const std::string& what)
{
    if (isatty(STDIN_FILENO) == 0) {
        return {};
    }
    std::cerr << what << ": " << std::flush;
    std::string answer;
    {
        const silence quiet(STDIN_FILENO);
        std::getline(std::cin, answer);
    }
    std::cerr << '\n';
    return answer;
}

} // namespace

std::string secret(const char* variable, const std::string& what)
{
    const char* from_environment = std::getenv(variable); // NOLINT(concurrency-mt-unsafe): one thread
    std::string text = from_environment != nullptr ? std::string(from_environment) : ask(what);
    foundation::log::mask_secret(text);
    return text;
}

} // namespace qrftp::cli
