#pragma once

/// The one header that users of the library include.

#include <zorbel/io/ftp/core/connect.hpp>
#include <zorbel/io/ftp/core/connection.hpp>
#include <zorbel/io/ftp/core/errors.hpp>
#include <zorbel/io/ftp/core/files.hpp>
#include <zorbel/io/ftp/core/folders.hpp>
#include <zorbel/io/ftp/core/logger.hpp>
#include <zorbel/io/ftp/core/module.hpp>
#include <zorbel/io/ftp/core/navigation.hpp>
#include <zorbel/io/ftp/core/paths.hpp>
#include <zorbel/io/ftp/core/request.hpp>
