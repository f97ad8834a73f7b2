#include "local_files.hpp"

#include <fstream>
#include <iterator>

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

std::string content(const fs::path& file)
{
    return {std::istreambuf_iterator<char>(std::ifstream(file, std::ios::binary).rdbuf()), {}};
}

void write_file(const fs::path& file, const std::string& content)
{
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
}

} // namespace support
