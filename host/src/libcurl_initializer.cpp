#include "libcurl_initializer.hpp"

#include <curl/curl.h>

namespace foundation::httpclient_core::libcurlinitializer {

namespace {

class GlobalInitializer final : public LibCurlInitializer {
public:
    GlobalInitializer() : result_(curl_global_init(CURL_GLOBAL_DEFAULT)) {}
    GlobalInitializer(const GlobalInitializer&) = delete;
    GlobalInitializer& operator=(const GlobalInitializer&) = delete;
    ~GlobalInitializer() override
    {
        if (succeeded()) {
            curl_global_cleanup();
        }
    }

    bool succeeded() const { return result_ == CURLE_OK; }

private:
    CURLcode result_;
};

} // namespace

LibCurlInitializer::~LibCurlInitializer() = default;

std::shared_ptr<LibCurlInitializer> make_libcurl_initializer()
{
    auto initializer = std::make_shared<GlobalInitializer>();
    return initializer->succeeded() ? initializer : nullptr;
}

} // namespace foundation::httpclient_core::libcurlinitializer
