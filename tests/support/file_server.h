// Files served over HTTP, with every fault that servers have.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "support/scripted_server.h"

namespace vantlow::test {

/// One resource and how it is served. Plain values serve it right: with its length, validators and ranges.
struct FileResource {
    std::string content{};
    std::string etag = "\"v1\"";                                  ///< with its quotes; empty: no field
    std::string last_modified = "Sun, 06 Nov 1994 08:49:37 GMT";  ///< empty: no field
    Headers more{};                                               ///< further fields

    // Shape of the answer.
    bool accept_ranges = true;  ///< "Accept-Ranges: bytes", and ranges are answered with 206
    bool ignore_range = false;  ///< promises ranges all the same and answers 200
    bool with_length = true;    ///< else the end of the connection ends the body
    bool chunked = false;
    std::size_t chunk_size = 10000;
    bool gzip = false;        ///< "Content-Encoding: gzip" over the whole content, ranges ignored
    bool http10 = false;      ///< HTTP/1.0: the connection ends with the answer
    bool always_206 = false;  ///< 206 with the whole, asked for a range or not
    int status = 0;           ///< this one with an empty body instead of the content; 0: none
    std::string reason{};

    // Faults.
    std::int64_t range_shift = 0;  ///< added to the first and last byte that Content-Range names
    std::int64_t total_shift = 0;  ///< added to the total that Content-Range names
    std::int64_t length_shift =
        0;  ///< added to the Content-Length: positive makes short bodies, negative long ones
    std::int64_t reset_after =
        -1;  ///< body bytes of an answer after which the connection is reset; -1: never
    std::int64_t close_after = -1;  ///< the same, closed in an orderly way
    int break_times = -1;           ///< how many answers break like that; -1: all

    // Pace.
    std::chrono::milliseconds delay{0};  ///< before each answer
    std::int64_t rate = 0;               ///< bytes a second for each connection; 0: no limit
    std::size_t hold_after =
        std::string::npos;  ///< body bytes of an answer after which it stands still until released
};

/// A server of resources by their paths. Any thread may change a resource: answers that begin later see the
/// new one.
class FileServer {
  public:
    struct Options {
        ScriptedServer::Options server;
        int most_connections = 0;  ///< answers at once; further requests are refused; 0: no bound
        int refuse_status = 503;   ///< 0: they are reset instead
    };
    /// Sees each request first; true when it has answered.
    using Interceptor = std::function<bool(Exchange&)>;

    FileServer() : FileServer(Options{}) {}
    explicit FileServer(Options options);
    /// One resource at "/file.bin".
    explicit FileServer(FileResource resource);

    void set(const std::string& path, FileResource resource);
    /// Changes a resource in its place.
    void change(const std::string& path, const std::function<void(FileResource&)>& how);
    void set_interceptor(Interceptor interceptor);
    /// Lets the answers go on that are held, now and later.
    void release() { released_.request(); }

    [[nodiscard]] ScriptedServer& server() noexcept { return *server_; }
    [[nodiscard]] std::string url(std::string_view path = "/file.bin") const { return server_->url(path); }
    [[nodiscard]] std::u16string url16(std::string_view path = "/file.bin") const {
        return server_->url16(path);
    }
    /// Requests refused because of the bound.
    [[nodiscard]] int refused() const noexcept { return refused_; }

  private:
    void handle(Exchange& exchange);
    void refuse(Exchange& exchange);
    void serve(Exchange& exchange, const FileResource& resource);
    bool may_break(const std::string& path, const FileResource& resource);
    void send_body(Exchange& exchange, const FileResource& resource, std::string_view body);
    bool send_piece(Exchange& exchange, const FileResource& resource, std::string_view bytes);
    std::shared_ptr<const FileResource> find(const std::string& target) const;

    mutable std::mutex mutex_;
    const Options options_;
    std::map<std::string, std::shared_ptr<const FileResource>>
        resources_;                      ///< these three: guarded by mutex_
    std::map<std::string, int> broken_;  ///< answers broken so far, by path
    Interceptor interceptor_;
    std::atomic<int> refused_{0};
    std::atomic<int> answering_{0};
    StopSource released_;
    std::unique_ptr<ScriptedServer> server_;  // last: its threads use the rest
};

}  // namespace vantlow::test
