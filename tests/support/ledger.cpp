#include "ledger.hpp"

#include <cstdarg>
#include <dlfcn.h>
#include <map>
#undef curl_easy_setopt
#pragma GCC diagnostic ignored "-Wvarargs" // clang: the last named parameter is an enumeration
#define REAL(function) reinterpret_cast<decltype(&function)>(dlsym(RTLD_NEXT, #function))

namespace support {
namespace {

std::string text(const void* value, curl_easytype type)
{
    static const std::map<const void*, std::string> known{{nullptr, "null"},
                                                          {stdin, "stdin"},
                                                          {stdout, "stdout"},
                                                          {reinterpret_cast<void*>(&fread), "fread"},
                                                          {reinterpret_cast<void*>(&fwrite), "fwrite"}};
    if (const auto found = known.find(value); found != known.end())
        return found->second;
    if (type != CURLOT_SLIST)
        return type == CURLOT_STRING ? static_cast<const char*>(value) : type == CURLOT_FUNCTION ? "fn" : "ptr";
    std::string list;
    for (auto item = static_cast<const curl_slist*>(value); item != nullptr; item = item->next)
        list.append(list.empty() ? "" : ", ").append(item->data);
    return list;
}

struct within {
    within() { ++ledger::inside; }
    within(const within&) = delete;
    ~within() { --ledger::inside; }
};

void note(const char* what, CURL* handle)
{
    const within recording;
    ledger::record->push_back({what, handle});
}

CURLcode set(CURL* handle, CURLoption option, auto value)
{
    const within setting;
    if (const auto* known = curl_easy_option_by_id(option); known == nullptr)
        ledger::record->push_back({std::to_string(option), handle, option});
    else if constexpr (std::is_pointer_v<decltype(value)>)
        ledger::record->push_back({known->name + ("=" + text(value, known->type)), handle, option, value});
    else
        ledger::record->push_back({known->name + ("=" + std::to_string(value)), handle, option});
    return REAL(curl_easy_setopt)(handle, option, value);
}

} // namespace

std::vector<std::string> ledger::lines()
{
    std::vector<std::string> texts;
    for (const auto& what : events())
        texts.push_back(what.text);
    return texts;
}

#pragma GCC visibility push(default)
extern "C" CURL* curl_easy_init()
{
    return ledger::init_fails.exchange(false) ? nullptr : REAL(curl_easy_init)();
}
extern "C" char* curl_easy_escape(CURL* handle, const char* text, int length)
{
    return ledger::escape_fails.exchange(false) ? nullptr : REAL(curl_easy_escape)(handle, text, length);
}
extern "C" curl_slist* curl_slist_append(curl_slist* list, const char* text)
{
    const within appending;
    ++ledger::appended;
    return ledger::append_fails-- == 1 ? nullptr : REAL(curl_slist_append)(list, text);
}
extern "C" CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...)
{
    std::va_list values;
    va_start(values, option);
    const auto kind = option / 10000 * 10000;
    const auto code = kind == CURLOPTTYPE_LONG    ? set(handle, option, va_arg(values, long))
                      : kind == CURLOPTTYPE_OFF_T ? set(handle, option, va_arg(values, curl_off_t))
                                                  : set(handle, option, va_arg(values, void*));
    va_end(values);
    return code;
}
extern "C" CURLcode curl_easy_perform(CURL* handle)
{
    note("perform", handle);
    return REAL(curl_easy_perform)(handle);
}
extern "C" void curl_easy_cleanup(CURL* handle)
{
    note("cleanup", handle);
    REAL(curl_easy_cleanup)(handle);
}
#pragma GCC visibility pop

} // namespace support
