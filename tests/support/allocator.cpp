#include "allocator.hpp"

#include "ledger.hpp"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

using a = support::allocator;
using support::ledger;
using align = std::align_val_t;
using quiet = const std::nothrow_t&;
constexpr align usual{alignof(std::max_align_t)};

bool fails(bool of_libcurl)
{
    if (a::armed == a::off || of_libcurl != (a::armed == a::libcurl))
        return false;
    // The ledger's own memory is the test's, not the program's.
    if (a::spared > 0 || (ledger::inside > 0 && !(of_libcurl && a::fails_settings)))
        return false;
    if (a::left > 1)
        return --a::left, false;
    if (a::armed != a::onwards)
        a::armed = a::off;
    return a::met = true;
}

void* take(std::size_t size, align to = usual)
{
    const auto step = static_cast<std::size_t>(to);
    return fails(false)  ? nullptr
           : to <= usual ? std::malloc(size)
                         : std::aligned_alloc(step, (size + step - 1) / step * step);
}

void* take_or_throw(std::size_t size, align to = usual)
{
    if (void* const memory = take(size, to))
        return memory;
    throw std::bad_alloc();
}

// The first initialisation of libcurl counts, and lasts. Version 7.88 does not notice a path that it could not
// copy: it lists the folder.
const auto initialised = curl_global_init_mem(
    CURL_GLOBAL_DEFAULT, [](std::size_t size) { return fails(true) ? nullptr : std::malloc(size); }, &std::free,
    [](void* memory, std::size_t size) { return fails(true) ? nullptr : std::realloc(memory, size); },
    [](const char* text) { return *text != '/' && fails(true) ? nullptr : strdup(text); },
    [](std::size_t count, std::size_t size) { return fails(true) ? nullptr : std::calloc(count, size); });

} // namespace

#pragma GCC visibility push(default)
#define BOTH(type, name, parameters, ...)                                                                      \
    type operator name parameters                                                                              \
    {                                                                                                          \
        __VA_ARGS__;                                                                                           \
    }                                                                                                          \
    type operator name[] parameters                                                                            \
    {                                                                                                          \
        __VA_ARGS__;                                                                                           \
    }
BOTH(void*, new, (std::size_t size), return take_or_throw(size))
BOTH(void*, new, (std::size_t size, align to), return take_or_throw(size, to))
BOTH(void*, new, (std::size_t size, quiet) noexcept, return take(size))
BOTH(void*, new, (std::size_t size, align to, quiet) noexcept, return take(size, to))
BOTH(void, delete, (void* memory) noexcept, std::free(memory))
BOTH(void, delete, (void* memory, std::size_t) noexcept, std::free(memory))
BOTH(void, delete, (void* memory, align) noexcept, std::free(memory))
BOTH(void, delete, (void* memory, std::size_t, align) noexcept, std::free(memory))
BOTH(void, delete, (void* memory, quiet) noexcept, std::free(memory))
BOTH(void, delete, (void* memory, align, quiet) noexcept, std::free(memory))
#pragma GCC visibility pop
