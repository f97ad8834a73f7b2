#include "error_json.hpp"

#include "exit_status.hpp"
#include "interrupt.hpp"
#include "output.hpp"

#include <qrftp/error.hpp>
#include <qrftp/trace.hpp>

#include <filesystem>

namespace qrftp::cli {

namespace {

std::string_view class_of(const std::exception& error)
{
    if (interrupted()) {
        return name_of(error_cause::cancelled);
    }
    return is<usage_error>(error)                         ? "UsageError"
           : is<no_secret>(error)                         ? "NoPassword"
           : is<output_failed>(error)                     ? "OutputFailed"
           : is<needs_recursion>(error)                   ? name_of(error_cause::is_folder)
           : is<std::filesystem::filesystem_error>(error) ? name_of(error_cause::local_file)
                                                          : "Failed";
}

} // namespace

json to_json(const std::exception& error)
{
    json object = json::object();
    if (const auto* const known = dynamic_cast<const qrftp::error*>(&error)) {
        object["error"] = known->name();
        add_bytes(object, "path", known->path());
        if (known->reply_code() != 0) {
            object["reply"] = known->reply_code();
        }
        add_bytes(object, "server", masked(known->server_message())); // A server may repeat what it was sent.
    } else {
        object["error"] = class_of(error);
        if (const auto* const local = dynamic_cast<const std::filesystem::filesystem_error*>(&error)) {
            add_bytes(object, "path", local->path1().string());
        }
    }
    object["message"] = sentence_of(error);
    object["status"] = status_of(error);
    return object;
}

} // namespace qrftp::cli
