#include "service.hpp"
#include "trace.hpp"

#include <zcos/registry.hpp>
#include <zorbel/io/ftp/core/connection.hpp>
#include <zorbel/io/ftp/core/errors.hpp>
#include <zorbel/io/ftp/core/module.hpp>
#include <zorbel/io/ftp/core/request.hpp>
#include <zx/array.hpp>

#include <array>
#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <utility>

namespace zorbel::io::ftp::core {

using foundation::core::except::raise;
using foundation::httpclient_core::libcurlinitializer::LibCurlInitializer;
using foundation::log::basic_diagnostic_logger;
using foundation::log::record;

basic_diagnostic_logger& getLogger()
{
    static basic_diagnostic_logger logger("zorbel::io::ftp::core");
    return logger;
}

void scope_trace::enter() noexcept
try {
    auto& logger = getLogger();
    if (!logger.is_enabled(level::entry)) {
        return;
    }
    exceptions_at_entry_ = std::uncaught_exceptions();
    logger.raise_nesting_depth();
    entered_ = true;
    record(logger, level::entry, where_.file_name(), line_).stream() << where_.function_name();
} catch (...) {
    return; // The record is lost; the traced function must not fail for it.
}

void scope_trace::leave() noexcept
try {
    auto& logger = getLogger();
    logger.lower_nesting_depth();
    if (!basic_diagnostic_logger::core_enabled()) {
        return;
    }
    if (name_ != nullptr) {
        record value(logger, level::value, where_.file_name(), line_);
        value.stream() << name_ << '=';
        print_(value.stream(), value_);
    }
    const bool thrown = std::uncaught_exceptions() > exceptions_at_entry_;
    record(logger, level::exit, where_.file_name(), line_).stream()
        << where_.function_name() << (thrown ? " [throw]" : "");
} catch (...) {
    return; // As above.
}

namespace {

struct trace_kind {
    const char* prefix;
    foundation::log::level_mask level;
};

trace_kind kind_of(curl_infotype type)
{
    static constexpr std::array<trace_kind, 7> kinds{{
        {"[INFO] ", level::info},
        {"[HEADER IN] ", level::message},
        {"[HEADER OUT] ", level::message},
        {"[DATA IN] ", level::data},
        {"[DATA OUT] ", level::data},
        {"[SSL DATA IN] ", level::data},
        {"[SSL DATA OUT] ", level::data},
    }};
    const auto index = static_cast<std::size_t>(type);
    return index < kinds.size() ? kinds.at(index) : trace_kind{"[UNKNOWN] ", level::unknown};
}

/// libcurl's debug callback; `user` is the logger.
int trace_callback(CURL* /*handle*/, curl_infotype type, char* data, std::size_t size, void* user) noexcept
try {
    auto& logger = *static_cast<basic_diagnostic_logger*>(user);
    const trace_kind kind = kind_of(type);
    if (!logger.is_enabled(kind.level)) {
        return 0;
    }
    record entry(logger, kind.level);
    std::string text(data, size);
    if (text.size() >= 2) {
        if (text.back() == '\n') {
            text.pop_back();
        }
        if (text.back() == '\r') {
            text.pop_back();
        }
    }
    entry.stream() << kind.prefix << text;
    return 0;
} catch (...) {
    return 0; // No exception may reach libcurl, and a lost record is no reason to stop a transfer.
}

void configure_debug_mode(curl_ptr& connection)
{
    const scope_trace trace;
    set_option(connection, CURLOPT_VERBOSE, 1L);
    set_option(connection, CURLOPT_DEBUGDATA, &getLogger());
    set_option(connection, CURLOPT_DEBUGFUNCTION, &trace_callback);
}

/// libcurl's write callback for captured text; `target` is the string.
std::size_t append_callback(char* data, std::size_t size, std::size_t count, void* target) noexcept
try {
    static_cast<std::string*>(target)->append(data, size * count);
    return size * count;
} catch (const std::exception&) {
    return 0; // libcurl ends the transfer with CURLE_WRITE_ERROR.
}

std::shared_ptr<LibCurlInitializer> find_initializer()
{
    auto initializer = find_service<LibCurlInitializer>();
    if (initializer == nullptr) {
        raise<ZORBEL::io::ftp::curl::LibraryInitializationFailure>();
    }
    return initializer;
}

CURL* make_handle()
{
    CURL* const handle = curl_easy_init();
    if (handle == nullptr) {
        raise<ZORBEL::io::ftp::curl::CurlHandleInitializationFailure>();
    }
    return handle;
}

void require(bool holds)
{
    if (!holds) {
        raise<ZORBEL::io::ftp::curl::CurlHandleUnwrapFailed>();
    }
}

} // namespace

curl_ptr::curl_ptr() : curl_ptr(true)
{
    const scope_trace trace;
}

curl_ptr::curl_ptr(bool initialize_library)
    : initializer_(initialize_library ? find_initializer() : nullptr), handle_(make_handle())
{
    const scope_trace trace;
    configure_debug_mode(*this);
}

curl_ptr::curl_ptr(curl_ptr&& other) noexcept
    // The initialiser is shared, not taken: other lets go of it when it is destroyed.
    : initializer_(other.initializer_), // NOLINT(performance-move-constructor-init,cert-oop11-cpp)
      handle_(std::move(other.handle_))
{
    const scope_trace trace;
}

curl_ptr& curl_ptr::operator=(curl_ptr&& other) noexcept
{
    handle_.reset(); // Into itself, a connection closes.
    handle_ = std::move(other.handle_);
    initializer_ = other.initializer_;
    return *this;
}

curl_ptr::~curl_ptr()
{
    const scope_trace trace;
    handle_.reset();
    initializer_.reset();
}

void curl_ptr::throw_if_null() const
{
    if (handle_ == nullptr) {
        raise<ZORBEL::io::ftp::curl::InvalidCurlHandle>();
    }
}

CURLcode curl_ptr::perform()
{
    CURLcode res = CURLE_OK;
    scope_trace trace(2);
    trace.add_value("res", res);
    throw_if_null();
    res = curl_easy_perform(handle_.get());
    return res;
}

curl_ptr& get_curl_ptr(const zxArray* array)
{
    const scope_trace trace;
    require(array != nullptr);
    array->completeDimensions();
    require(array->getNumberOfElements() != 0);
    const zcos::COSObject* const object = omGetArrayElement(array, 0);
    require(object != nullptr);
    const auto connection_class = omFindClass(makeInterned("zorbel.io.internal.Connection"));
    require(connection_class != nullptr);
    require(omIsSameClass(object->getClass(), connection_class.get()));
    void* const data = object->getInstanceData(connection_class.get());
    require(data != nullptr);
    return *static_cast<curl_ptr*>(data);
}

slist::slist(const std::string& command) : list_(curl_slist_append(nullptr, command.c_str()))
{
}

slist& slist::append(const std::string& command)
{
    if (list_ == nullptr || curl_slist_append(list_.get(), command.c_str()) == nullptr) {
        throw std::bad_alloc();
    }
    return *this;
}

scoped_request::scoped_request(curl_ptr& connection) : connection_(connection)
{
}

scoped_request::~scoped_request()
{
    while (!restores_.empty()) {
        restores_.back()();
        restores_.pop_back();
    }
}

scoped_request&& scoped_request::seturl(const std::string& url)
{
    std::string saved_url = current_remote_url(connection_);
    restores_.emplace_front([&connection = connection_, saved = std::move(saved_url)] {
        unsafe_cd(connection, saved); // If the old folder is gone, the next operation will say so.
    });
    set_option(connection_, CURLOPT_URL, url.c_str());
    return std::move(*this);
}

std::pair<CURLcode, long> scoped_request::perform() const
{
    const CURLcode code = connection_.perform();
    return {code, last_response_code(connection_)};
}

std::pair<CURLcode, std::string> scoped_request::request_body() const
{
    std::string body;
    CURLcode code = CURLE_OK;
    {
        scoped_request inner(connection_);
        inner.setopt(CURLOPT_WRITEDATA, &body, stdout).setopt(CURLOPT_WRITEFUNCTION, &append_callback, nullptr);
        code = inner.perform().first;
    }
    return {code, std::move(body)};
}

std::pair<CURLcode, std::string> scoped_request::request_header() const
{
    std::string header;
    CURLcode code = CURLE_OK;
    {
        scoped_request inner(connection_);
        inner.setopt(CURLOPT_HEADERDATA, &header, nullptr)
            .setopt(CURLOPT_HEADERFUNCTION, &append_callback, nullptr);
        code = inner.perform().first;
    }
    return {code, std::move(header)};
}

void scoped_request::set_quoted(const std::string& url, const slist& commands)
{
    seturl(url)
        .setopt(CURLOPT_FTP_FILEMETHOD, CURLFTPMETHOD_NOCWD, CURLFTPMETHOD_MULTICWD)
        .setopt(CURLOPT_NOBODY, 1L, 0)
        .setopt(CURLOPT_QUOTE, commands.get(), nullptr);
}

std::pair<CURLcode, long> scoped_request::request_quoted(const std::string& url, slist commands) const
{
    scoped_request inner(connection_);
    inner.set_quoted(url, commands);
    return inner.perform();
}

std::pair<CURLcode, std::string> scoped_request::request_quoted_body(const std::string& url,
                                                                     slist commands) const
{
    scoped_request inner(connection_);
    inner.set_quoted(url, commands);
    return inner.request_body();
}

std::pair<CURLcode, long> scoped_request::request_post_quoted(slist commands) const
{
    scoped_request inner(connection_);
    inner.setopt(CURLOPT_NOBODY, 1L, 0).setopt(CURLOPT_POSTQUOTE, commands.get(), nullptr);
    return inner.perform();
}

} // namespace zorbel::io::ftp::core
