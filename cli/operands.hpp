#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qrftp::cli {

/// The operands of a subcommand in the words of its help: "LOCAL... URL", "URL... [LOCAL]", "SOURCE DEST". A
/// "|" stands between two ways to call it; options among them do not count.
class operands {
public:
    explicit operands(std::string_view shown);

    /// What the word at `place` of `count` may be, by name; several where the last one may be missing.
    [[nodiscard]] std::vector<std::string> at(std::size_t place, std::size_t count) const;

    /// The same for the last word of a line that goes on.
    [[nodiscard]] std::vector<std::string> next(std::size_t place) const;

private:
    struct operand {
        std::vector<std::string> names; ///< one of each way
        bool optional = false;
    };

    std::vector<operand> all_;
    std::size_t repeated_; ///< the one that may stand several times; none: behind the last
};

/// Whether an operand of that name may be something remote, or something local.
bool may_be_remote(std::string_view operand);
bool may_be_local(std::string_view operand);

} // namespace qrftp::cli
