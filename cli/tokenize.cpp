#include "tokenize.hpp"

#include <qrftp/glob.hpp>

#include <utility>

namespace qrftp::cli {

namespace {

bool is_blank(char byte)
{
    return word_blanks.find(byte) != std::string_view::npos;
}

/// Reads one line from its beginning to its end.
class tokenizer {
public:
    tokenizer(std::string_view line, std::size_t start) : line_(line), place_(start) {}

    token_list run()
    {
        take_prefix();
        if (found_.local != std::string::npos) {
            return std::move(found_);
        }
        for (skip_blanks(); place_ < line_.size() && line_[place_] != '#'; skip_blanks()) {
            if (line_[place_] == command_end) {
                found_.next = place_ + 1;
                break;
            }
            found_.tokens.push_back({{}, {}, place_});
            found_.at_new_word = false;
            take_word();
        }
        return std::move(found_);
    }

private:
    void take_prefix()
    {
        skip_blanks();
        if (place_ < line_.size() && line_[place_] == '-') {
            found_.ignores_failure = true;
            ++place_;
            skip_blanks();
        }
        if (place_ < line_.size() && line_[place_] == '!') {
            found_.local = place_ + 1;
        }
    }

    void skip_blanks()
    {
        while (place_ < line_.size() && is_blank(line_[place_])) {
            ++place_;
            found_.at_new_word = true;
        }
    }

    void take_word()
    {
        while (place_ < line_.size() && !is_blank(line_[place_]) && line_[place_] != command_end) {
            const char byte = line_[place_++];
            if (byte == '\'' || byte == '"') {
                take_quoted(byte);
            } else if (byte == '\\') {
                take_escaped();
            } else {
                found_.tokens.back().text += byte;
                found_.tokens.back().pattern += byte;
            }
        }
    }

    void take_escaped()
    {
        if (place_ < line_.size()) {
            add_literal(line_[place_++]);
        } else {
            found_.end = line_end::in_backslash;
        }
    }

    void take_quoted(char quote)
    {
        for (; place_ < line_.size() && line_[place_] != quote; ++place_) {
            const char next = place_ + 1 < line_.size() ? line_[place_ + 1] : '\0';
            place_ += quote == '"' && line_[place_] == '\\' && (next == '"' || next == '\\') ? 1 : 0;
            add_literal(line_[place_]);
        }
        found_.end = place_ < line_.size() ? found_.end : line_end::in_quotes;
        ++place_;
    }

    void add_literal(char byte)
    {
        const bool is_marker = found_.tokens.back().text.empty() && (byte == '~' || byte == ':');
        found_.tokens.back().text += byte;
        found_.tokens.back().pattern += is_marker ? std::string{'\\', byte} : glob_escape({&byte, 1});
    }

    std::string_view line_;
    std::size_t place_;
    token_list found_;
};

} // namespace

token_list tokenize(std::string_view line, std::size_t start)
{
    return tokenizer(line, start).run();
}

std::string quote(std::string_view word)
{
    constexpr std::string_view special = "'\"\\*?[;";
    constexpr std::string_view special_at_start = "#!-~:";
    std::string text;
    for (const char byte : word) {
        const bool is_special = is_blank(byte) || special.find(byte) != std::string_view::npos ||
                                (text.empty() && special_at_start.find(byte) != std::string_view::npos);
        text.append(is_special ? 1 : 0, '\\').push_back(byte);
    }
    return text;
}

} // namespace qrftp::cli
