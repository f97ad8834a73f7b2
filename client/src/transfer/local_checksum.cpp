#include "local_checksum.hpp"

#include "../hasher.hpp"
#include "local_error.hpp"
#include "local_target.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qrftp {

namespace files = zorbel::io::common::file;

checksum checksum_of(files::LocalFile& file, hash_algorithm algorithm)
{
    constexpr std::size_t piece = std::size_t{256} * 1024;
    hasher result(algorithm);
    std::vector<char> buffer(piece);
    for (std::uint64_t position = 0;;) {
        const std::size_t got = file.read(position, buffer);
        if (got == 0) {
            return result.finish();
        }
        result.add({buffer.data(), got});
        position += got;
    }
}

checksum checksum_of(const std::filesystem::path& file, hash_algorithm algorithm)
{
    const local_place place = find_local_place(file);
    return with_local_errors(file, [&] {
        return checksum_of(*place.folder->open_file(place.name, files::Folder::Open::read, place.links()),
                           algorithm);
    });
}

} // namespace qrftp
