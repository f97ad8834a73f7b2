// Prints docs/errors.md with the sentences that the libraries have for their errors: `errors_page
// docs/errors.md`. The page is where everything else is written, below a heading "### IDENTIFIER" for each
// error. An error without a heading, and a heading without an error, are a failure.

#include <foundation/core/except/Catalogue.hpp>
#include <qrftp/error.hpp>

#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>

namespace {

constexpr std::size_t columns = 118;

std::map<std::string, std::string> sentences()
{
    auto all = foundation::core::except::Catalogue::instance().entries();
    for (int cause = 0; cause <= static_cast<int>(qrftp::error_cause::closed); ++cause) {
        const auto why = static_cast<qrftp::error_cause>(cause);
        all["qrftp::" + std::string(qrftp::name_of(why))] = qrftp::sentence_of(why);
    }
    return all;
}

/// The sentence as a quotation, in lines of the page's width.
std::string quoted(const std::string& sentence)
{
    std::istringstream words(sentence);
    std::string all;
    std::string line = ">";
    for (std::string word; words >> word;) {
        if (line.size() + 1 + word.size() > columns) {
            all += line + '\n';
            line = ">";
        }
        line += ' ' + word;
    }
    return all + line + "\n\n";
}

} // namespace

int main(int count, char** arguments)
{
    if (count != 2) {
        std::cerr << "errors_page PAGE\n";
        return 2;
    }
    auto missing = sentences();
    int unknown = 0;
    std::ifstream page(arguments[1]);
    for (std::string line; std::getline(page, line);) {
        if (line.starts_with("> ")) {
            while (line.starts_with("> ") && std::getline(page, line)) {
            }
            continue; // and without the blank line
        }
        std::cout << line << '\n';
        if (!line.starts_with("### ")) {
            continue;
        }
        const auto sentence = missing.extract(line.substr(4));
        if (sentence) {
            std::getline(page, line);
            std::cout << '\n' << quoted(sentence.mapped());
        } else {
            std::cerr << "no such error: " << line << '\n';
            ++unknown;
        }
    }
    for (const auto& [identifier, sentence] : missing) {
        std::cerr << "not on the page: " << identifier << '\n';
    }
    return unknown != 0 || !missing.empty() ? 1 : 0;
}
