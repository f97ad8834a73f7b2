#include "local_files.hpp"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <system_error>

namespace support {

namespace fs = std::filesystem;

files files_in(const fs::path& root)
{
    files all;
    for (const auto& each : fs::recursive_directory_iterator(root)) {
        auto& held = all[each.path().lexically_relative(root)];
        if (each.is_symlink())
            held = "-> " + fs::read_symlink(each).string();
        else
            held = each.is_directory() ? "/" : content(each);
    }
    return all;
}

files leftovers_in(const fs::path& root)
{
    files all = files_in(root);
    std::erase_if(all, [](const auto& each) { return each.first.find(".qrftp-") == std::string::npos; });
    return all;
}

std::string bytes(std::size_t size)
{
    std::string all(size, '\0');
    std::uint32_t state = 1;
    for (char& byte : all)
        byte = static_cast<char>((state = state * 1664525 + 1013904223) >> 24U);
    return all;
}

std::string content(const fs::path& file)
{
    return {std::istreambuf_iterator<char>(std::ifstream(file, std::ios::binary).rdbuf()), {}};
}

void write_file(const fs::path& file, const std::string& content)
{
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
}

void make_old(const fs::path& file)
{
    fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::years(20));
}

temporary_folder::temporary_folder()
{
    std::string name = fs::temp_directory_path() / "qrftp-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr)
        throw fs::filesystem_error("mkdtemp", name, std::error_code(errno, std::generic_category()));
    assign(name);
}

temporary_folder::~temporary_folder()
{
    std::error_code gone; // Programs that are about to end may still remove something in it.
    fs::remove_all(*this, gone);
}

} // namespace support
