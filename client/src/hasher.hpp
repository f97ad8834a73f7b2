#pragma once

#include <qrftp/checksum.hpp>

#include <memory>
#include <string>
#include <string_view>

namespace qrftp {

/// Computes a checksum from bytes that come piece by piece.
class hasher {
public:
    explicit hasher(hash_algorithm algorithm);
    hasher(hasher&& other) noexcept;
    hasher& operator=(hasher&& other) noexcept;
    ~hasher();

    void add(std::string_view bytes);
    /// To be called once.
    [[nodiscard]] checksum finish();

private:
    class state;
    std::unique_ptr<state> state_;
};

/// Each byte as two digits.
[[nodiscard]] std::string hex_of(std::string_view bytes);

} // namespace qrftp
