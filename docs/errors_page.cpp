// Prints docs/errors.md with the sentences that the libraries have for their errors and the status with which
// the command ends: `errors_page docs/errors.md`. Each error is a row of a table, under a heading that ends
// with the prefix of its identifier. An error without a row, and a row without an error, are a failure.

#include "exit_status.hpp"

#include <foundation/core/except/Catalogue.hpp>
#include <qrftp/error.hpp>

#include <csignal>
#include <fstream>
#include <iostream>
#include <map>
#include <regex>
#include <string>

namespace {

/// The second cell of each error's row, of the client's also the third one.
std::map<std::string, std::string> cells()
{
    auto all = foundation::core::except::Catalogue::instance().entries();
    for (int cause = 0; cause <= static_cast<int>(qrftp::error_cause::closed); ++cause) {
        const auto why = static_cast<qrftp::error_cause>(cause);
        const int status = why == qrftp::error_cause::cancelled ? 128 + SIGINT : qrftp::cli::status_of(why);
        all["qrftp::" + std::string(qrftp::name_of(why))] =
            std::string(qrftp::sentence_of(why)) + " | " + std::to_string(status);
    }
    return all;
}

} // namespace

int main(int count, char** arguments)
{
    if (count != 2) {
        std::cerr << "errors_page PAGE\n";
        return 2;
    }
    const std::regex heading("##+ .*`(.*:)`");
    const std::regex row(R"(\| `(\w+)` \|[^|]*\|(.*))");
    const std::regex row_with_status(R"(\| `(\w+)` \|[^|]*\|[^|]*\|(.*))");
    auto missing = cells();
    int unknown = 0;
    std::ifstream page(arguments[1]);
    std::string prefix;
    for (std::string line; std::getline(page, line);) {
        std::smatch found;
        if (std::regex_match(line, found, heading)) {
            prefix = found[1];
        } else if (std::regex_match(line, found, prefix == "qrftp::" ? row_with_status : row)) {
            const auto known = missing.extract(prefix + found[1].str());
            if (known) {
                line = "| `" + found[1].str() + "` | " + known.mapped() + " |" + found[2].str();
            } else {
                std::cerr << "no such error: " << prefix << found[1] << '\n';
                ++unknown;
            }
        }
        std::cout << line << '\n';
    }
    for (const auto& [identifier, cell] : missing) {
        std::cerr << "not on the page: " << identifier << '\n';
    }
    return unknown != 0 || !missing.empty() ? 1 : 0;
}
