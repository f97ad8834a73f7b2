#pragma once

#include <qrftp/checksum.hpp>
#include <zorbel/io/common/file/Folder.hpp>

#include <memory>
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

/// The checksum of an open file. Throws what reading it does.
[[nodiscard]] checksum checksum_of(zorbel::io::common::file::LocalFile& file, hash_algorithm algorithm);

} // namespace qrftp
