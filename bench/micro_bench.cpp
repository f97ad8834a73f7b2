// What small pieces cost, each beside a floor: the least that its job could take, measured in the same run.
// The name of a benchmark is PIECE or PIECE/floor.

#include <qrftp/listing.hpp>
#include <zorbel/io/ftp/core.hpp>

#include <benchmark/benchmark.h>

#include <cstring>
#include <stdexcept>
#include <string>

namespace core = zorbel::io::ftp::core;

namespace {

/// Setting three options for a request, and setting them back.
void scoped_request(benchmark::State& state)
{
    core::curl_ptr handle;
    for (auto _ : state) {
        core::scoped_request request(handle);
        request.setopt(CURLOPT_NOBODY, 1L, 0L)
            .setopt(CURLOPT_DIRLISTONLY, 1L, 0L)
            .setopt(CURLOPT_CUSTOMREQUEST, "MLSD", nullptr);
    }
}
void bare_options(benchmark::State& state)
{
    core::curl_ptr handle;
    for (auto _ : state) {
        curl_easy_setopt(handle.get(), CURLOPT_NOBODY, 1L);
        curl_easy_setopt(handle.get(), CURLOPT_DIRLISTONLY, 1L);
        curl_easy_setopt(handle.get(), CURLOPT_CUSTOMREQUEST, "MLSD");
        curl_easy_setopt(handle.get(), CURLOPT_CUSTOMREQUEST, nullptr);
        curl_easy_setopt(handle.get(), CURLOPT_DIRLISTONLY, 0L);
        curl_easy_setopt(handle.get(), CURLOPT_NOBODY, 0L);
    }
}

const std::string path = "/srv/ftp/Bücher & Filme/2026, Frühling/a name with blanks, 100 %.txt";

void percent_encode_path(benchmark::State& state)
{
    core::curl_ptr handle;
    for (auto _ : state) {
        benchmark::DoNotOptimize(core::percent_encode_path(handle, path));
    }
}
void bare_escape(benchmark::State& state)
{
    core::curl_ptr handle;
    for (auto _ : state) {
        char* const text = curl_easy_escape(handle.get(), path.data(), static_cast<int>(path.size()));
        benchmark::DoNotOptimize(text);
        curl_free(text);
    }
}

constexpr int lines = 10'000;

std::string listing(const std::string& before, const std::string& after)
{
    std::string text;
    for (int i = 0; i < lines; ++i) {
        text += before + "file " + std::to_string(i) + after + "\r\n";
    }
    return text;
}
const std::string mlsd =
    listing("type=file;size=4096;modify=20260401123456;perm=adfrw;UNIX.mode=0644;UNIX.owner=1000; ", ".txt");
const std::string unix_long = listing("-rw-r--r--   1 someone  users        4096 Apr  1 12:34 ", ".txt");
const std::string windows = listing("04-01-26  12:34PM                 4096 ", ".txt");

void parse(benchmark::State& state, qrftp::listing_format format, const std::string& text)
{
    for (auto _ : state) {
        int found = 0;
        qrftp::listing_parser parser(format, [&](qrftp::entry&& one) {
            benchmark::DoNotOptimize(one);
            ++found;
        });
        parser.feed(text);
        parser.finish();
        if (found != lines) {
            throw std::logic_error("lines were lost");
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
/// Finding the ends of the lines.
void find_lines(benchmark::State& state, const std::string& text)
{
    for (auto _ : state) {
        const char* place = text.data();
        const char* const end = place + text.size();
        while (const void* const found = std::memchr(place, '\n', static_cast<std::size_t>(end - place))) {
            place = static_cast<const char*>(found) + 1;
            benchmark::DoNotOptimize(place);
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

BENCHMARK(scoped_request);
BENCHMARK(bare_options)->Name("scoped_request/floor");
BENCHMARK(percent_encode_path);
BENCHMARK(bare_escape)->Name("percent_encode_path/floor");
BENCHMARK_CAPTURE(parse, mlsd, qrftp::listing_format::mlsd, mlsd)->Name("listing_mlsd");
BENCHMARK_CAPTURE(find_lines, mlsd, mlsd)->Name("listing_mlsd/floor");
BENCHMARK_CAPTURE(parse, unix_long, qrftp::listing_format::list, unix_long)->Name("listing_unix");
BENCHMARK_CAPTURE(find_lines, unix_long, unix_long)->Name("listing_unix/floor");
BENCHMARK_CAPTURE(parse, windows, qrftp::listing_format::list, windows)->Name("listing_windows");
BENCHMARK_CAPTURE(find_lines, windows, windows)->Name("listing_windows/floor");
BENCHMARK_CAPTURE(parse, sftp, qrftp::listing_format::sftp, unix_long)->Name("listing_sftp");
BENCHMARK_CAPTURE(find_lines, sftp, unix_long)->Name("listing_sftp/floor");

} // namespace
