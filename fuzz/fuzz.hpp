#pragma once
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <source_location>
#include <string>
/// What each fuzzer is: it breaks off where something does not hold that the library promises for every input.
static void fuzz(std::string_view input);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* in, std::size_t size)
{
    return fuzz({reinterpret_cast<const char*>(in), size}), 0;
}
inline constexpr auto none = std::string::npos;
inline void require(bool holds, std::source_location at = std::source_location::current())
{
    if (!holds)
        std::fprintf(stderr, "%s:%u does not hold\n", at.file_name(), at.line()), std::abort();
}
/// Takes the first line off `rest`, without its line feed.
inline std::string take_line(std::string_view& rest)
{
    const std::string line(rest.substr(0, rest.find('\n')));
    return rest.remove_prefix(std::min(line.size() + 1, rest.size())), line;
}
