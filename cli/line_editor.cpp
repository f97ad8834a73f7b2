#include "line_editor.hpp"

#include "environment.hpp"
#include "interrupt.hpp"
#include "shell_state.hpp"
#include "table.hpp"
#include "tokenize.hpp"

#include <qrftp/trace.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <stdexcept>
#include <string_view>

#include <termios.h>
#include <unistd.h>

namespace qrftp::cli {

// libedit's interface is made of variable arguments.
// NOLINTBEGIN(cppcoreguidelines-pro-type-vararg)

namespace {

constexpr int history_size = 1000;

/// The terminal's keys interrupt while this lives. It stays in libedit's mode else: what is typed ahead is for
/// libedit.
class interruptible_terminal {
public:
    interruptible_terminal()
    {
        if (tcgetattr(STDIN_FILENO, &saved_) == 0) {
            termios with_signals = saved_;
            with_signals.c_lflag |= ISIG;
            is_changed_ = tcsetattr(STDIN_FILENO, TCSADRAIN, &with_signals) == 0;
        }
    }
    ~interruptible_terminal()
    {
        if (is_changed_) {
            tcsetattr(STDIN_FILENO, TCSADRAIN, &saved_);
        }
    }
    interruptible_terminal(const interruptible_terminal&) = delete;
    interruptible_terminal& operator=(const interruptible_terminal&) = delete;

private:
    termios saved_{};
    bool is_changed_ = false;
};

/// Of a URL, as "open" takes it.
bool holds_password(const std::string& line)
{
    for (std::size_t start = 0; start != std::string::npos;) {
        const token_list command = tokenize(line, start);
        for (const token& word : command.tokens) {
            if (is_url(word.text) && !password_in(word.text).empty()) {
                return true;
            }
        }
        start = command.next;
    }
    return false;
}

std::string in_columns(const std::vector<candidate>& all, std::size_t width)
{
    std::vector<cell> names;
    names.reserve(all.size());
    for (const candidate& one : all) {
        names.push_back({escape(one.name) + (one.kind == entry_kind::folder ? "/" : "")});
    }
    return in_columns(names, width);
}

/// With commas between thousands.
std::string grouped(std::size_t number)
{
    std::string text = fmt::to_string(number);
    for (std::size_t place = text.size(); place > 3;) {
        place -= 3;
        text.insert(place, ",");
    }
    return text;
}

} // namespace

line_editor::line_editor(shell_state& state)
    : state_(state), history_(history_init(), &history_end),
      editor_(el_init("qrftp", stdin, stdout, stderr), &el_end)
{
    if (!history_ || !editor_) {
        throw std::runtime_error("The terminal cannot be used to edit lines.");
    }
    EditLine* const editor = editor_.get();
    el_set(editor, EL_CLIENTDATA, this);
    el_set(editor, EL_PROMPT, &show_prompt);
    el_set(editor, EL_GETCFN, &read_character);
    el_set(editor, EL_EDITOR, "emacs");
    el_set(editor, EL_SETTY, "-d", "-isig", nullptr);
    el_set(editor, EL_ADDFN, "qrftp-complete", "Completes the word at the cursor", &complete_word);
    el_set(editor, EL_BIND, "^I", "qrftp-complete", nullptr);
    el_set(editor, EL_BIND, "^C", "em-kill-line", nullptr);
    el_set(editor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    el_set(editor, EL_BIND, "\\e[3~", "ed-delete-next-char", nullptr);
    open_history();
    el_source(editor, nullptr);
}

line_editor::~line_editor()
{
    HistEvent event{};
    if (!history_file_.empty()) {
        history(history_.get(), &event, H_SAVE, history_file_.c_str());
    }
}

void line_editor::open_history()
{
    HistEvent event{};
    history(history_.get(), &event, H_SETSIZE, history_size);
    history(history_.get(), &event, H_SETUNIQUE, 1);
    el_set(editor_.get(), EL_HIST, &history, history_.get());
    const std::filesystem::path folder = user_folder("XDG_STATE_HOME", "~/.local/state");
    if (!folder.is_absolute()) { // The user has no home.
        return;
    }
    make_private_folder(folder);
    history_file_ = folder / "history";
    history(history_.get(), &event, H_LOAD, history_file_.c_str());
}

std::optional<std::string> line_editor::read(const std::string& prompt)
{
    prompt_ = prompt;
    int length = 0;
    el_set(editor_.get(), EL_PREP_TERM, 1); // Before the prompt, which libedit prints first.
    const char* const text = el_gets(editor_.get(), &length);
    if (text == nullptr || length <= 0) {
        (void)std::fputs("\n", stdout);
        return std::nullopt;
    }
    std::string line(text, static_cast<std::size_t>(length));
    if (line.back() == '\n') {
        line.pop_back();
    }
    if (line.find_first_not_of(" \t") != std::string::npos && !holds_password(line)) {
        HistEvent event{};
        history(history_.get(), &event, H_ENTER, line.c_str());
    }
    return line;
}

line_editor& line_editor::of(EditLine* editor)
{
    void* self = nullptr;
    el_get(editor, EL_CLIENTDATA, &self);
    return *static_cast<line_editor*>(self);
}

char* line_editor::show_prompt(EditLine* editor)
{
    return of(editor).prompt_.data();
}

/// libedit's own reader continues after a signal.
int line_editor::read_character(EditLine* editor, wchar_t* into)
{
    std::mbstate_t state{};
    for (;;) {
        char byte = '\0';
        if (!wait_readable(STDIN_FILENO) || ::read(STDIN_FILENO, &byte, 1) != 1) {
            return 0;
        }
        // NOLINTNEXTLINE(concurrency-mt-unsafe): the state is not the shared one
        const std::size_t length = std::mbrtowc(into, &byte, 1, &state);
        if (length <= 1) {
            el_resize(editor); // The window may have changed since the last key.
            return 1;
        }
        if (length == static_cast<std::size_t>(-1)) {
            state = {};
        }
    }
}

completion line_editor::find_completion(const std::string& line)
try {
    const interruptible_terminal scope;
    return complete(state_, line);
} catch (const std::exception&) {
    state_.forget_interrupt();
    return {}; // What cannot be listed is for a command to report.
}

/// Below the line that is being edited; asks before it lists more than the screen has room for.
void line_editor::list(const std::vector<candidate>& all)
{
    const terminal_size size = terminal_size::of(STDOUT_FILENO);
    const std::string text = in_columns(all, size.columns);
    const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    (void)std::fputs("\n", stdout);
    if (lines + 2 > size.rows) {
        (void)std::fputs(fmt::format("Display all {} possibilities? (y or n) ", grouped(all.size())).c_str(),
                         stdout);
        (void)std::fflush(stdout);
        wchar_t answer = L'n';
        (void)read_character(editor_.get(), &answer);
        (void)std::fputs("\n", stdout);
        if (answer != L'y' && answer != L'Y') {
            return;
        }
    }
    (void)std::fputs(text.c_str(), stdout);
}

unsigned char line_editor::complete_word(EditLine* editor, int /*key*/)
try {
    line_editor& self = of(editor);
    const LineInfo* const info = el_line(editor);
    const std::string line(info->buffer, static_cast<std::size_t>(info->cursor - info->buffer));
    const completion found = self.find_completion(line);
    if (found.candidates.empty()) {
        return CC_ERROR;
    }
    const std::string typed = line.substr(found.start);
    if (!found.word.empty() && found.word != typed) {
        const std::size_t characters = std::mbstowcs(nullptr, typed.c_str(), 0);
        el_deletestr(editor, static_cast<int>(characters));
        return el_insertstr(editor, found.word.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
    }
    self.list(found.candidates);
    return CC_REDISPLAY;
} catch (const std::exception&) {
    return CC_ERROR;
}

// NOLINTEND(cppcoreguidelines-pro-type-vararg)

} // namespace qrftp::cli
