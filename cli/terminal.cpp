#include "terminal.hpp"

#include "interrupt.hpp"

#include <qrftp/errors.hpp>

#include <string_view>

#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace qrftp::cli {

namespace {

/// The terminal of the process, or standard input where that is one.
class terminal {
public:
    terminal() : own_(::open("/dev/tty", O_RDWR | O_CLOEXEC))
    {
        descriptor_ = own_ >= 0 ? own_ : isatty(STDIN_FILENO) != 0 ? STDIN_FILENO : -1;
    }
    ~terminal()
    {
        if (own_ >= 0) {
            close(own_);
        }
    }
    terminal(const terminal&) = delete;
    terminal& operator=(const terminal&) = delete;

    explicit operator bool() const { return descriptor_ >= 0; }
    int descriptor() const { return descriptor_; }

    void print(std::string_view text) const
    {
        [[maybe_unused]] const ssize_t written =
            write(own_ >= 0 ? own_ : STDERR_FILENO, text.data(), text.size());
    }

    /// Byte by byte: what follows the line belongs to somebody else. A stream would not notice an interrupt.
    std::string read_line() const
    {
        sigset_t held;
        sigset_t usual;
        sigemptyset(&held);
        sigaddset(&held, SIGINT);
        sigaddset(&held, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &held, &usual); // A signal just before the reading would be lost.
        pollfd there{descriptor_, POLLIN, 0};
        std::string line;
        char byte = 0;
        while (!interrupted() && ppoll(&there, 1, nullptr, &usual) == 1 && read(descriptor_, &byte, 1) == 1 &&
               byte != '\n') {
            line += byte;
        }
        pthread_sigmask(SIG_SETMASK, &usual, nullptr);
        return line;
    }

private:
    int own_;
    int descriptor_ = -1;
};

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

std::string answer_to(const terminal& there, const std::string& question)
{
    there.print(question);
    std::string answer = there.read_line();
    if (interrupted()) {
        there.print("\n");
        foundation::core::except::raise<error::Cancelled>(question);
    }
    return answer;
}

} // namespace

std::optional<std::string> ask_secret(const std::string& question)
{
    const terminal there;
    if (!there) {
        return {};
    }
    std::string answer;
    {
        const silence quiet(there.descriptor());
        answer = answer_to(there, question);
    }
    there.print("\n");
    return answer.empty() ? std::optional<std::string>() : answer;
}

std::optional<bool> ask_yes_or_no(const std::string& question)
{
    const terminal there;
    if (!there) {
        return {};
    }
    const std::string answer = answer_to(there, question);
    return answer.starts_with('y') || answer.starts_with('Y');
}

} // namespace qrftp::cli
