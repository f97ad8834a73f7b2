// What a traced function costs: parse_nlst_listing is split_string with a tracer around it, so the difference
// between the two is the tracer's. The name of a benchmark is PIECE or PIECE/floor, as in micro_bench.cpp.

#include <foundation/log/sink.hpp>
#include <zorbel/io/ftp/core.hpp>

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace core = zorbel::io::ftp::core;

namespace {
std::atomic<std::int64_t> allocations{0};
}

// Not inlined: the compiler would take the pair for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size)
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept
{
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}

namespace {

const std::string listing = "name";

/// Runs `call` and counts its allocations; the list that it returns is one.
template <class Call>
void measure(benchmark::State& state, Call call)
{
    const auto before = allocations.load();
    for (auto _ : state) {
        benchmark::DoNotOptimize(call());
    }
    if (state.threads() > 1) {
        return; // each would count those of the other
    }
    state.counters["allocations"] =
        static_cast<double>(allocations.load() - before) / static_cast<double>(state.iterations());
}

void untraced(benchmark::State& state)
{
    measure(state, [] { return core::split_string(listing, "\n"); });
}

void traced_off(benchmark::State& state)
{
    measure(state, [] { return core::parse_nlst_listing(listing); });
}

void traced_other_levels_on(benchmark::State& state)
{
    core::getLogger().enable_levels(core::level::message);
    measure(state, [] { return core::parse_nlst_listing(listing); });
    core::getLogger().enable_levels(0);
}

void traced_on(benchmark::State& state)
{
    foundation::log::set_entry_handler([](const foundation::log::entry& entry) {
        auto text = entry.text;
        benchmark::DoNotOptimize(text);
    });
    core::getLogger().enable_levels(core::level::entry);
    measure(state, [] { return core::parse_nlst_listing(listing); });
    core::getLogger().enable_levels(0);
    foundation::log::set_entry_handler({});
}

BENCHMARK(traced_off);
BENCHMARK(untraced)->Name("traced_off/floor");
BENCHMARK(traced_other_levels_on);
BENCHMARK(untraced)->Name("traced_other_levels_on/floor");
BENCHMARK(traced_on);
BENCHMARK(untraced)->Name("traced_on/floor");
BENCHMARK(traced_off)->Name("traced_off_on_2_threads")->Threads(2);
BENCHMARK(untraced)->Name("traced_off_on_2_threads/floor")->Threads(2);

} // namespace
