#pragma once

/// The client: safe FTP, FTPS and SFTP for programs. Open a `qrftp::session`; the rest are its members and the
/// functions on whole trees.

#include <qrftp/checksum.hpp>
#include <qrftp/copy.hpp>
#include <qrftp/disk_space.hpp>
#include <qrftp/entry.hpp>
#include <qrftp/error.hpp>
#include <qrftp/file.hpp>
#include <qrftp/glob.hpp>
#include <qrftp/known_hosts.hpp>
#include <qrftp/listing.hpp>
#include <qrftp/options.hpp>
#include <qrftp/server_info.hpp>
#include <qrftp/session.hpp>
#include <qrftp/trace.hpp>
#include <qrftp/transfer.hpp>
#include <qrftp/tree.hpp>
#include <qrftp/url.hpp>
#include <qrftp/walk.hpp>
