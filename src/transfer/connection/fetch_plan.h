// What every protocol is told of a file that is to be fetched, and what its side of a connection is made
// with.
#pragma once

#include <string>

#include "runtime/tables.h"
#include "transfer/connection/base_socket.h"

namespace vantlow {

/// The part of a plan that is the same for all protocols.
struct FetchPlan {
    std::u16string address;  ///< where to go
    std::u16string origin;   ///< whose server the credentials below are for; empty: that of `address`
    std::u16string user;
    std::u16string password;
    bool utf8 = true;  ///< how a path's letters beyond ASCII are written: UTF-8, or the ANSI code page
    ProxyPlan proxy;   ///< for `address`
    TlsPlan trust;     ///< for addresses that are secured
    std::chrono::milliseconds timeout{60000};
    ServerLimits limits;
    std::size_t receive_buffer = 64 * 1024;  ///< bytes, where a decoder stands between connection and file
};

/// All of it outlives what is made with it.
struct ConnectionContext {
    ConnectionServices& services;
    const LibraryTables& libraries;
    LogSink& log;
    const StopSource& stop;
    SpeedShare* share = nullptr;
};

}  // namespace vantlow
