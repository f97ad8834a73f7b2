// The parts of the library that send nothing: path and reply rules, errors, the handle, the trace.

#include "ledger.hpp"
#include "operations.hpp"

#include <boost/algorithm/string/replace.hpp>
#include <foundation/log/sink.hpp>
#include <foundation/services/bundle_context.hpp>
#include <fstream>
#include <gmock/gmock.h>
#include <zorbel/io/ftp/core.hpp>

using namespace zorbel::io::ftp::core;
using namespace ZORBEL::io::ftp::ftp;
using namespace ZORBEL::io::ftp::curl;
using foundation::core::except::Exception;
using support::error_of;
using support::ledger;
using testing::ElementsAre;

static support::texts internal(const std::string& where, const std::string& detail)
{
    return {"InternalError", where, detail};
}

TEST(Paths, AreEncodedSegmentBySegmentAndPlacedOnTheServer)
{
    curl_ptr c(false);
    EXPECT_EQ(percent_encode_path(c, "/dir one/file#1.txt~-._/50%20\xc3\xa4/"),
              "/dir%20one/file%231.txt~-._/50%2520%C3%A4/");
    const std::tuple<const char*, const char*, bool, const char*, const char*> all[] = {
        // base, path, whether encoded; absolute, full
        {"ftp://srv/home/u/", "/pub/a b", false, "ftp://srv//pub/a%20b", "ftp://srv//pub/a%20b"},
        {"sftp://srv/home/u", "/pub/a b", false, "sftp://srv/pub/a%20b", "sftp://srv/pub/a%20b"},
        {"sftp://srv/home/u", "f", false, "sftp://srv/", "sftp://srv/home/u/f"},
        {"ftp://srv:2121", "/x%20y", true, "ftp://srv:2121//x%20y", "ftp://srv:2121//x%20y"},
        {"SFTP://srv/a", "/x", false, "SFTP://srv//x", "SFTP://srv//x"},
        {"ftp://srv/home/u/", "sub/", false, "ftp://srv//", "ftp://srv/home/u/sub/"},
        {"ftp://srv/home/u/", "a%20b", true, "ftp://srv//", "ftp://srv/home/u/a%20b"},
        {"ftp://srv/home/u/", "", false, "ftp://srv//", "ftp://srv/home/u/"},
    };
    for (const auto& [base, path, encoded, absolute, full] : all) {
        EXPECT_EQ(make_absolute_url(c, base, path, encoded), absolute);
        set_option(c, CURLOPT_URL, base);
        EXPECT_EQ(fullurl(c, path, encoded), full);
    }
    EXPECT_EQ(error_of([&] { make_absolute_url(c, "srv/home", "/x", false); }),
              internal("URL Generation", "Couldn't find URL scheme"));
    EXPECT_EQ(fullfile(c, "/x"), "/x");
    ledger::escape_fails = true;
    EXPECT_THROW(percent_encode(c, "a"), std::logic_error);
}

TEST(Replies, AreSplitMatchedAndParsed)
{
    EXPECT_THAT(split_string("ab", ""), ElementsAre("ab"));
    EXPECT_EQ(match_response_code("220 x\r\n257-\"/a\"\r\n257 \"/b\"\r\n", "257"), "257-\"/a\"");
    EXPECT_EQ(match_response_code("257 x", ""), std::nullopt);
    const std::pair<const char*, const char*> folders[] = {
        {R"(257 "/home/user" is current directory)", "/home/user"},
        {R"(257 "")", ""},
        {R"(257 "//")", "/"},
        {R"(257 "/a//b")", "/a/b"},
        {R"(257 "/a///b")", "/a//b"},
        {R"(257 "/a ""q"" b" "c" d)", R"(/a ""q"" b" "c)"}};
    for (const auto& [line, folder] : folders)
        EXPECT_EQ(parse_pwd_response(line), folder);
    const std::pair<const char*, std::string> bad[] = {
        {"25", "PWD response code is too short"},
        {"550 no", "PWD operation failed or returned unrecognized status code (550) from response: 550 no"},
        {"257 none", "Could not find opening quote in PWD response: 257 none"},
        {"257 \"one", "Could not find closing quote in PWD response: 257 \"one"}};
    for (const auto& [line, why] : bad)
        EXPECT_EQ(error_of([&, text = line] { parse_pwd_response(text); }), internal("PWD", why));
}

TEST(Errors, AreCaughtByEveryBaseAcrossTheLibrary)
{
    curl_ptr empty(false);
    const curl_ptr taken(std::move(empty));
    EXPECT_THROW(current_remote_url(empty), std::exception);
    EXPECT_THROW(last_response_code(empty), Exception<InvalidCurlHandle>);
    EXPECT_THROW(scoped_request(empty).setopt(CURLOPT_NOBODY, 1L, 0), boost::exception);
    EXPECT_EQ(error_of([&] { support::log_in(empty, "ftp://127.0.0.1", 1); }),
              support::texts{"InvalidCurlHandle"});
}

TEST(Requests, MakeTheirCommandsBeforeTheUrl)
{
    const std::pair<const char*, std::function<void(curl_ptr&)>> operations[] = {
        {"MKD", [](auto& c) { create_folder(c, "/d"); }},
        {"RMD", [](auto& c) { delete_folder(c, "/d"); }},
        {"rmdir", [](auto& c) { sftp_delete_folder(c, "/d"); }},
        {"DELE", [](auto& c) { delete_remote_file(c, u"/f"); }},
        {"rm", [](auto& c) { sftp_delete_remote_file(c, u"/f"); }},
    };
    for (const auto& [command, operation] : operations) {
        curl_ptr stands_nowhere(false);
        ledger::start();
        const auto error = error_of([&, &call = operation] { call(stands_nowhere); });
        EXPECT_EQ(error, internal("URL Generation", "Couldn't find URL scheme")) << command;
        EXPECT_EQ(ledger::appended, 1) << command;
        EXPECT_THAT(ledger::lines(), ElementsAre()) << command << " sets an option before it has a URL";
    }
}

TEST(Handle, IsOwnedByOneRestoresInReverseAndNeedsAnInitialiserUnlessTold)
{
    ledger::start();
    {
        curl_ptr a;
        EXPECT_THAT(ledger::lines(), ElementsAre("VERBOSE=1", "DEBUGDATA=ptr", "DEBUGFUNCTION=fn"));
        EXPECT_EQ(current_remote_url(a), "");
        EXPECT_EQ(last_response_code(a), 0);
        curl_ptr b(std::move(a));
        EXPECT_TRUE(b && !a && a.get() == nullptr);
        ledger::start();
        curl_ptr c(false);
        CURL* const old = c.get();
        c = std::move(b);
        EXPECT_EQ(ledger::events().back().handle, old);
        ledger::start();
        scoped_request(c).setopt(CURLOPT_INFILESIZE_LARGE, 5000000000UL, -1).setopt(CURLOPT_NOBODY, 1L, 0);
    }
    EXPECT_THAT(ledger::lines(), ElementsAre("INFILESIZE_LARGE=5000000000", "NOBODY=1", "NOBODY=0",
                                             "INFILESIZE_LARGE=-1", "cleanup"));
    curl_ptr itself(false);
    curl_ptr& same = itself;
    itself = std::move(same);
    EXPECT_FALSE(itself) << "moved into itself it is closed";
    ledger::fail_next_init();
    EXPECT_THROW(curl_ptr(), CurlHandleInitializationFailure);
    cppmicroservices::BundleContext none;
    const auto real = foundation::services::exchange_bundle_context(none);
    EXPECT_THROW(curl_ptr(), std::runtime_error);
    EXPECT_TRUE(curl_ptr(false));
    foundation::services::exchange_bundle_context(real);
}

struct Trace : testing::Test {
    void SetUp() override
    {
        foundation::log::set_entry_handler([this](const foundation::log::entry& e) {
            // clang spells types in its own way
            const auto text = boost::replace_all_copy(boost::replace_all_copy(std::string(e.text), " &", "&"),
                                                      "long int ", "long ");
            records.push_back(std::to_string(e.level) + ":" + std::to_string(e.nesting_depth) + " " + text);
            file = e.file;
            line = e.line;
            if (on_record)
                on_record();
        });
    }
    /// The file that the last record names, and the text of its line there.
    std::string place() const
    {
        std::ifstream source(QRFTP_SOURCE_DIR "/" + file);
        std::string text;
        for (unsigned i = 0; i < line; ++i) {
            std::getline(source, text);
        }
        return file + ": " + text;
    }
    void TearDown() override
    {
        getLogger().enable_levels(0);
        foundation::log::set_entry_handler({});
    }
    std::vector<std::string> records;
    std::string file;
    unsigned line = 0;
    std::function<void()> on_record;
};

TEST_F(Trace, WritesTheSignatureAtEntryAndExitAndTheExceptionThatLeaves)
{
    curl_ptr c(false);
    getLogger().enable_levels(level::entry);
    last_response_code(c);
    const std::string queried = "long zorbel::io::ftp::core::last_response_code(curl_ptr&)";
    EXPECT_THAT(records, ElementsAre("32:1 " + queried, "128:0 response_code=0", "64:0 " + queried));
    EXPECT_EQ(place(), "src/folder.cpp: long last_response_code(curl_ptr& connection)");
    records.clear();
    EXPECT_THROW(parse_pwd_response("x"), InternalError);
    const std::string parser = "std::string zorbel::io::ftp::core::parse_pwd_response(const std::string&)";
    EXPECT_THAT(records, ElementsAre("32:1 " + parser, "64:0 " + parser + " [throw]"));
    EXPECT_EQ(place(), "src/pwd.cpp: std::string parse_pwd_response(const std::string& line)");
    EXPECT_EQ(getLogger().channel(), "zorbel::io::ftp::core");
    records.clear();
    const curl_ptr taken(std::move(c));
    EXPECT_THROW(last_response_code(c), InvalidCurlHandle);
    EXPECT_THAT(records, testing::Not(testing::Contains(testing::HasSubstr("response_code="))));
    EXPECT_THROW(get_curl_ptr(nullptr), CurlHandleUnwrapFailed);
    EXPECT_EQ(place(), "src/types.cpp: curl_ptr& get_curl_ptr(const zxArray* array)");
    getLogger().enable_levels(level::info);
    curl_ptr fresh(false);
    unsafe_cd(fresh, "none://");
    EXPECT_THAT(place(), testing::StartsWith("src/cd.cpp:     log(level::info, \"unsafe_cd on path"));
}

TEST_F(Trace, EntryDecidesExitWhateverTheMaskSaysThen)
{
    curl_ptr c(false);
    const auto records_when = [&](unsigned levels, const std::function<void()>& changed_at_entry) {
        records.clear();
        getLogger().enable_levels(levels);
        on_record = changed_at_entry;
        last_response_code(c);
        on_record = nullptr;
        foundation::log::basic_diagnostic_logger::enable_core(true);
        return records.size();
    };
    EXPECT_EQ(records_when(level::entry, [] { getLogger().enable_levels(0); }), 3U);
    EXPECT_EQ(records_when(level::exit | level::value, {}), 0U);
    const auto disable = [] { foundation::log::basic_diagnostic_logger::enable_core(false); };
    EXPECT_EQ(records_when(level::entry, disable), 1U);
    EXPECT_EQ(getLogger().nesting_depth(), 0U);
}

TEST_F(Trace, OfLibcurlHasItsPrefixLevelAndLineEndsAndIsSilentWhenOff)
{
    ledger::start();
    curl_ptr c(false);
    curl_debug_callback debug = nullptr;
    for (const auto& event : ledger::events())
        if (event.option == CURLOPT_DEBUGFUNCTION)
            debug = reinterpret_cast<curl_debug_callback>(const_cast<void*>(event.pointer));
    ASSERT_NE(debug, nullptr);
    const auto trace = [&](int kind, std::string text) {
        return debug(c.get(), static_cast<curl_infotype>(kind), text.data(), text.size(), &getLogger());
    };
    const char* texts[] = {"i\r\n", "\n", "o\r", "a\0b\n", "\r\n", "", "x\n\n", "?"};
    const char* want[] = {"8:0 [INFO] i",           "4:0 [HEADER IN] \n", "4:0 [HEADER OUT] o",
                          "1:0 [DATA IN] a",        "1:0 [DATA OUT] ",    "1:0 [SSL DATA IN] ",
                          "1:0 [SSL DATA OUT] x\n", "256:0 [UNKNOWN] ?"};
    for (int kind = 0; kind < 8; ++kind) {
        records.clear();
        getLogger().enable_levels(~level::entry);
        EXPECT_EQ(trace(kind, texts[kind]), 0);
        EXPECT_THAT(records, ElementsAre(want[kind]));
        getLogger().enable_levels(kind == 7 ? level::info : level::unknown);
        trace(kind, texts[kind]);
        EXPECT_EQ(records.size(), 1U);
    }
}
