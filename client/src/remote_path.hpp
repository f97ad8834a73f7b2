#pragma once

#include <string>
#include <string_view>

/// Rules for remote names, which are bytes with "/" between segments. None of them sends anything.
namespace qrftp::remote_path {

/// `path` as seen from the absolute folder `folder`, without empty, "." and ".." segments.
std::string absolute(std::string_view folder, std::string_view path);

/// Of an absolute path: the folder above it, "/" for "/"; its last segment, "/" for "/".
std::string parent(std::string_view path);
std::string filename(std::string_view path);

/// `name` below `folder`; `name` alone where the folder is empty.
std::string join(std::string_view folder, std::string_view name);

/// Whether the absolute `path` is `folder`, or one of the folders that it lies in.
bool is_or_contains(std::string_view path, std::string_view folder);

/// A name that nothing else has, for a file on its way: ".qrftp-", 16 hexadecimal digits, ".part".
std::string temporary_name();
/// The one that follows from `identity`.
std::string temporary_name(std::string_view identity);
/// The same for the old file, while another one takes its name: ".old" in place of ".part".
std::string aside_name();
/// Whether `name` is one of these, which are never part of a tree.
bool is_temporary_name(std::string_view name);
/// Whether it is that of a file on its way: nobody misses it when its transfer is over.
bool is_part_name(std::string_view name);

} // namespace qrftp::remote_path
