// Runs every file of the folder that is given through the fuzzer it is linked with.
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <vector>
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
int main(int, char** arguments)
{
    int files = 0;
    for (const auto& file : std::filesystem::directory_iterator(arguments[1])) {
        std::ifstream in(file.path(), std::ios::binary);
        const std::vector<char> all(std::istreambuf_iterator<char>(in), {});
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(all.data()), all.size()), ++files;
    }
    return files == 0;
}
