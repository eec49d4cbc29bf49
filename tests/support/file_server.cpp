#include "support/file_server.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "support/content.h"

namespace vantlow::test {
namespace {

using std::chrono::milliseconds;

/// What of the content an answer gives.
struct Part {
    std::int64_t first = 0;
    std::int64_t end = 0;
    bool partial = false;
    bool unsatisfiable = false;
};

Part part_of(const RequestHead& request, const FileResource& resource, std::int64_t size) {
    const bool may = resource.accept_ranges && !resource.ignore_range && !resource.gzip;
    Part part{0, size, resource.always_206, false};
    if (!may || !request.range_first) return part;
    part.partial = true;
    part.first = *request.range_first;
    part.unsatisfiable = part.first >= size;
    if (request.range_last) part.end = std::min(size, *request.range_last + 1);
    return part;
}

std::string hexadecimal(std::size_t number) {
    std::array<char, 24> text{};
    const int length = std::snprintf(text.data(), text.size(), "%zx", number);
    return {text.data(), static_cast<std::size_t>(length)};
}

std::string in_chunks(std::string_view bytes, std::size_t chunk_size) {
    std::string out;
    while (!bytes.empty()) {
        const std::string_view piece = bytes.substr(0, chunk_size);
        bytes.remove_prefix(piece.size());
        out += hexadecimal(piece.size()) + "\r\n";
        out += piece;
        out += "\r\n";
    }
    return out + "0\r\n\r\n";
}

Headers head_fields(const FileResource& resource, const Part& part, std::int64_t size) {
    Headers headers{{"Server", "scripted"}};
    if (!resource.etag.empty()) headers.emplace_back("ETag", resource.etag);
    if (!resource.last_modified.empty()) headers.emplace_back("Last-Modified", resource.last_modified);
    if (resource.accept_ranges) headers.emplace_back("Accept-Ranges", "bytes");
    if (resource.gzip) headers.emplace_back("Content-Encoding", "gzip");
    if (resource.chunked) {
        headers.emplace_back("Transfer-Encoding", "chunked");
    } else if (resource.with_length) {
        headers.emplace_back("Content-Length", std::to_string(part.end - part.first + resource.length_shift));
    }
    if (part.partial) {
        headers.emplace_back("Content-Range", "bytes " + std::to_string(part.first + resource.range_shift) +
                                                  "-" + std::to_string(part.end - 1 + resource.range_shift) +
                                                  "/" + std::to_string(size + resource.total_shift));
    }
    headers.insert(headers.end(), resource.more.begin(), resource.more.end());
    return headers;
}

bool ends_connection(const FileResource& resource) {
    return resource.http10 || resource.length_shift != 0 || (!resource.chunked && !resource.with_length);
}

}  // namespace

FileServer::FileServer(Options options) : options_(std::move(options)) {
    server_ =
        std::make_unique<ScriptedServer>([this](Exchange& exchange) { handle(exchange); }, options_.server);
}

FileServer::FileServer(FileResource resource) : FileServer(Options{}) {
    set("/file.bin", std::move(resource));
}

void FileServer::set(const std::string& path, FileResource resource) {
    auto shared = std::make_shared<const FileResource>(std::move(resource));
    const std::lock_guard guard(mutex_);
    resources_[path] = std::move(shared);
}

void FileServer::change(const std::string& path, const std::function<void(FileResource&)>& how) {
    const std::lock_guard guard(mutex_);
    FileResource changed = *resources_.at(path);
    how(changed);
    resources_[path] = std::make_shared<const FileResource>(std::move(changed));
}

void FileServer::set_interceptor(Interceptor interceptor) {
    const std::lock_guard guard(mutex_);
    interceptor_ = std::move(interceptor);
}

std::shared_ptr<const FileResource> FileServer::find(const std::string& target) const {
    const std::lock_guard guard(mutex_);
    const auto found = resources_.find(target.substr(0, target.find('?')));
    return found == resources_.end() ? nullptr : found->second;
}

void FileServer::handle(Exchange& exchange) {
    Interceptor interceptor;
    {
        const std::lock_guard guard(mutex_);
        interceptor = interceptor_;
    }
    if (interceptor && interceptor(exchange)) return;
    const int now = ++answering_;
    const auto resource = find(exchange.request().target);
    if (options_.most_connections > 0 && now > options_.most_connections) {
        refuse(exchange);
    } else if (!resource) {
        exchange.answer(404, "Not Found", "nothing here\n");
    } else {
        serve(exchange, *resource);
    }
    --answering_;
}

void FileServer::refuse(Exchange& exchange) {
    ++refused_;
    if (options_.refuse_status == 0) return exchange.reset();
    exchange.answer(options_.refuse_status, "Busy", "too many\n", {{"Connection", "close"}});
    exchange.close();
}

void FileServer::serve(Exchange& exchange, const FileResource& resource) {
    if (resource.delay.count() > 0 && !exchange.stall(resource.delay)) return;
    if (resource.status != 0) {
        exchange.answer(resource.status, resource.reason, {}, resource.more);
        return;
    }
    const std::string zipped = resource.gzip ? gzip_stored(resource.content) : std::string();
    const std::string_view all =
        resource.gzip ? std::string_view(zipped) : std::string_view(resource.content);
    const auto size = static_cast<std::int64_t>(all.size());
    const Part part = part_of(exchange.request(), resource, size);
    if (part.unsatisfiable) {
        exchange.answer(416, "Range Not Satisfiable", {},
                        {{"Content-Range", "bytes */" + std::to_string(size)}});
        return;
    }
    const std::string_view version = resource.http10 ? "HTTP/1.0" : "HTTP/1.1";
    const bool sent = exchange.send_head(part.partial ? 206 : 200, part.partial ? "Partial Content" : "OK",
                                         head_fields(resource, part, size), version);
    if (!sent || exchange.request().method == "HEAD") return;
    const auto first = static_cast<std::size_t>(part.first);
    const std::string_view body = all.substr(first, static_cast<std::size_t>(part.end - part.first));
    if (resource.chunked) {
        send_body(exchange, resource, in_chunks(body, resource.chunk_size));
    } else {
        send_body(exchange, resource, body);
    }
    if (ends_connection(resource)) exchange.close();
}

bool FileServer::may_break(const std::string& path, const FileResource& resource) {
    if (resource.reset_after < 0 && resource.close_after < 0) return false;
    const std::lock_guard guard(mutex_);
    return resource.break_times < 0 || broken_[path]++ < resource.break_times;
}

void FileServer::send_body(Exchange& exchange, const FileResource& resource, std::string_view body) {
    if (!may_break(exchange.request().target, resource)) {
        send_piece(exchange, resource, body);
        return;
    }
    const bool resets = resource.reset_after >= 0;
    const auto most = static_cast<std::size_t>(resets ? resource.reset_after : resource.close_after);
    if (!send_piece(exchange, resource, body.substr(0, most)) || body.size() < most) return;
    if (resets) {
        exchange.reset();
    } else {
        exchange.close();
    }
}

bool FileServer::send_piece(Exchange& exchange, const FileResource& resource, std::string_view bytes) {
    if (bytes.size() > resource.hold_after) {
        if (!exchange.send(bytes.substr(0, resource.hold_after))) return false;
        while (!released_.requested()) {
            if (!exchange.stall(milliseconds(10)) || exchange.peer_closed()) return false;
        }
        bytes.remove_prefix(resource.hold_after);
    }
    return resource.rate > 0 ? exchange.send_paced(bytes, resource.rate) : exchange.send(bytes);
}

}  // namespace vantlow::test
