#include "terminal.hpp"

#include "interrupt.hpp"
#include "unique_fd.hpp"

#include <qrftp/error.hpp>

#include <string_view>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace qrftp::cli {

namespace {

/// The terminal of the process, or standard input where that is one.
class terminal {
public:
    terminal() : own_(::open("/dev/tty", O_RDWR | O_CLOEXEC))
    {
        descriptor_ = own_ ? own_.get() : isatty(STDIN_FILENO) != 0 ? STDIN_FILENO : -1;
    }

    explicit operator bool() const { return descriptor_ >= 0; }
    int descriptor() const { return descriptor_; }

    void print(std::string_view text) const
    {
        [[maybe_unused]] const ssize_t written =
            write(own_ ? own_.get() : STDERR_FILENO, text.data(), text.size());
    }

private:
    unique_fd own_;
    int descriptor_ = -1;
};

/// Turns the terminal's echo off while it lives.
class echo_off {
public:
    explicit echo_off(int terminal) : terminal_(terminal), valid_(tcgetattr(terminal, &saved_) == 0)
    {
        termios quiet = saved_;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        if (valid_) {
            tcsetattr(terminal_, TCSAFLUSH, &quiet);
        }
    }
    ~echo_off()
    {
        if (valid_) {
            tcsetattr(terminal_, TCSAFLUSH, &saved_);
        }
    }
    echo_off(const echo_off&) = delete;
    echo_off& operator=(const echo_off&) = delete;

private:
    int terminal_;
    termios saved_{};
    bool valid_;
};

std::string read_answer(const terminal& there, const std::string& question)
{
    there.print(question);
    const std::optional<std::string> answer = read_line(there.descriptor());
    if (interrupted()) {
        there.print("\n");
        throw Cancelled(question);
    }
    return answer.value_or("");
}

} // namespace

std::optional<std::string> read_line(int descriptor)
{
    std::string line;
    char byte = 0;
    while (wait_readable(descriptor)) {
        if (read(descriptor, &byte, 1) != 1) {
            return line.empty() ? std::optional<std::string>() : line;
        }
        if (byte == '\n') {
            return line;
        }
        line += byte;
    }
    return std::nullopt;
}

bool has_terminal()
{
    return static_cast<bool>(terminal());
}

void show_at_terminal(const std::string& text)
{
    if (const terminal there; there) {
        there.print(text);
    }
}

std::optional<std::string> ask(const std::string& question, bool echo)
{
    const terminal there;
    if (!there) {
        return std::nullopt;
    }
    if (echo) {
        return read_answer(there, question);
    }
    std::string answer;
    {
        const echo_off scope(there.descriptor());
        answer = read_answer(there, question);
    }
    there.print("\n");
    return answer;
}

std::optional<std::string> ask_secret(const std::string& question)
{
    const std::optional<std::string> answer = ask(question, false);
    return answer && answer->empty() ? std::nullopt : answer;
}

std::optional<bool> ask_yes_or_no(const std::string& question)
{
    const std::optional<std::string> answer = ask(question, true);
    if (!answer) {
        return std::nullopt;
    }
    return answer->starts_with('y') || answer->starts_with('Y');
}

} // namespace qrftp::cli
