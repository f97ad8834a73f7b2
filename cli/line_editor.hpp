#pragma once

#include "complete.hpp"

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <histedit.h>

namespace qrftp::cli {

struct shell_state;

/// Reads lines at a terminal, with editing, a history that is kept from one shell to the next, and completion
/// by Tab. One at a time.
class line_editor {
public:
    explicit line_editor(shell_state& state);
    ~line_editor();
    line_editor(const line_editor&) = delete;
    line_editor& operator=(const line_editor&) = delete;

    /// The next line, without its end; nothing at the end of input and when a signal has come.
    std::optional<std::string> read(const std::string& prompt);

private:
    static line_editor& of(EditLine* editor);
    static char* show_prompt(EditLine* editor);
    static int read_character(EditLine* editor, wchar_t* into);
    static unsigned char complete_word(EditLine* editor, int key);
    void list(const std::vector<candidate>& all);
    completion find_completion(const std::string& line);
    void open_history();

    shell_state& state_;
    std::string prompt_;
    std::string history_file_;
    std::unique_ptr<History, void (*)(History*)> history_;
    std::unique_ptr<EditLine, void (*)(EditLine*)> editor_;
};

} // namespace qrftp::cli
