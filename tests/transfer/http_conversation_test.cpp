#include "transfer/http/conversation.h"

#include <gtest/gtest.h>

#include <sstream>

#include "platform/file.h"
#include "platform/process.h"
#include "runtime/tables.h"
#include "support/content.h"
#include "support/recording_log.h"
#include "support/scripted_server.h"

namespace vantlow {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test::Exchange;
using test::ScriptedServer;

/// One conversation with a scripted server and all that it needs.
class HttpConversationTest : public testing::Test {
  protected:
    void serve(ScriptedServer::Handler handler) {
        server_ = std::make_unique<ScriptedServer>(std::move(handler));
    }
    /// Each answer is these bytes, in pieces so small; then the connection ends unless it is kept.
    void serve_bytes(std::string bytes, std::size_t piece = std::string::npos, bool keep = false) {
        serve([bytes = std::move(bytes), piece, keep](Exchange& exchange) {
            if (piece == std::string::npos) {
                exchange.send_raw(bytes);
            } else {
                for (std::size_t at = 0; at < bytes.size(); at += piece)
                    exchange.send_raw(std::string_view(bytes).substr(at, piece));
            }
            if (!keep) exchange.close();
        });
    }

    Result ask(const std::string& path = "/", milliseconds timeout = seconds(5)) {
        ConnectPlan plan;
        plan.scheme = "http";
        plan.host = "127.0.0.1";
        plan.port = server_->port();
        plan.timeout = timeout;
        HttpRequest request;
        request.host = plan.host;
        request.port = plan.port;
        request.explicit_port = true;
        request.path = path;
        return conversation_.ask(plan, request, head_);
    }

    /// The whole body; `end` is how it ended.
    std::string body(Moved& end, std::size_t room = 65536, const UnpackOperations& operations = {}) {
        end = Moved::failed(Code::unsupported);
        if (Result begun = conversation_.begin_body(head_.coding, operations, 16384); !begun.ok()) {
            end = Moved::failed(begun.code);
            return {};
        }
        std::string bytes;
        std::vector<std::byte> buffer(room);
        for (;;) {
            end = conversation_.read(buffer, from_now(seconds(5)));
            if (end.state != Moved::State::data) return bytes;
            bytes.append(reinterpret_cast<const char*>(buffer.data()), end.bytes);
        }
    }

    test::RecordingLog log_;
    StopSource stop_;
    std::unique_ptr<ScriptedServer> server_;
    ConnectionServices services_;
    CBaseSocket socket_{services_, log_, stop_};
    HttpConversation conversation_{socket_, log_};
    HttpHead head_;
};

TEST_F(HttpConversationTest, ReadsEachKindOfBodyHoweverItIsDivided) {
    const std::string content = test::make_content(3, 300);
    struct Case {
        const char* name;
        std::string answer;
    };
    const std::string coded = "64\r\n" + content.substr(0, 100) + "\r\nc8;x=y\r\n" + content.substr(100) +
                              "\r\n0\r\nTrailer: t\r\n\r\n";
    const Case cases[] = {
        {"length", "HTTP/1.1 200 OK\r\nContent-Length: 300\r\n\r\n" + content},
        {"to the end of the connection", "HTTP/1.0 200 OK\r\n\r\n" + content},
        {"chunked", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + coded},
        {"chunked with a length",
         "HTTP/1.1 200 OK\r\nContent-Length: 7\r\nTransfer-Encoding: chunked\r\n\r\n" + coded},
        {"behind interim answers",
         "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early\r\nLink: x\r\n\r\nHTTP/1.1 200 "
         "OK\r\nContent-Length: "
         "300\r\n\r\n" +
             content},
        {"bare line feeds", "HTTP/1.1 200 OK\nContent-Length: 300\n\n" + content},
        {"behind an interim answer whose fields contradict each other",
         "HTTP/1.1 100 Continue\r\nContent-Length: 1\r\nContent-Length: 2\r\nTransfer-Encoding: "
         "x\r\n\r\nhttp/1.1 200 OK\r\nContent-Length: 300\r\n\r\n" +
             content},
        {"behind an interim answer with a body",
         "HTTP/1.1 100 Continue\r\nContent-Length: 18\r\n\r\nGo on, HTTP/1.1 HTHTTP/1.1 200 "
         "OK\r\nContent-Length: 300\r\n\r\n" +
             content},
    };
    for (const Case& c : cases) {
        for (const std::size_t piece : {std::size_t{1}, std::size_t{5}, std::string::npos}) {
            serve_bytes(c.answer, piece);
            ASSERT_TRUE(ask().ok()) << c.name << "\n" << log_.all();
            EXPECT_EQ(head_.status, 200) << c.name;
            Moved end;
            EXPECT_EQ(body(end, piece == 1 ? 1 : 65536), content) << c.name;
            EXPECT_EQ(end.state, Moved::State::closed) << c.name;
            conversation_.finish();
        }
    }
    EXPECT_TRUE(log_.has("Content-Length: 300")) << log_.all();
}

TEST_F(HttpConversationTest, TellsABodyThatWasCutShortFromAWholeOne) {
    const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n";
    const std::string chunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    for (const std::string& answer : {head + "12345", head, chunked + "5\r\nhello",
                                      chunked + "5\r\nhello\r\n", chunked, chunked + "5\r\nhello\r\n0"}) {
        serve_bytes(answer);
        ASSERT_TRUE(ask().ok()) << answer;
        Moved end;
        (void)body(end);
        EXPECT_EQ(end.state, Moved::State::failed) << answer;
        EXPECT_EQ(end.code, Code::transient) << answer;
    }
    // What is no chunk will be none the next time.
    serve_bytes(chunked + "5\r\nhello\r\nzz\r\n");
    ASSERT_TRUE(ask().ok());
    Moved end;
    (void)body(end);
    EXPECT_EQ(end.code, Code::server_error);
    // What comes beyond the length is not the body's, and the connection is of no more use.
    serve_bytes(head + "1234567890surplus", std::string::npos, true);
    ASSERT_TRUE(ask().ok());
    EXPECT_EQ(body(end), "1234567890");
    EXPECT_EQ(end.state, Moved::State::closed);
    conversation_.finish();
    ASSERT_TRUE(ask().ok());
    EXPECT_EQ(server_->connection_count(), 2U);
}

TEST_F(HttpConversationTest, KeepsAConnectionOnlyWhereTheWholeAnswerWasRead) {
    serve([](Exchange& exchange) {
        const std::string& path = exchange.request().target;
        if (path == "/chunked") {
            exchange.send_raw("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n");
        } else if (path == "/close") {
            exchange.answer(200, "OK", "hello", {{"Connection", "close"}});
        } else if (path == "/none") {
            exchange.send_raw("HTTP/1.1 204 No Content\r\n\r\n");
        } else if (path == "/line-behind") {
            exchange.send_raw("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello\r\n");
        } else if (path == "/line-before") {
            exchange.send_raw("\r\n\r\n");
            exchange.answer(200, "OK", "hello");
        } else {
            exchange.answer(200, "OK", std::string(path == "/much" ? 1000000 : 5, 'x'));
        }
    });
    Moved end;
    for (const char* path :
         {"/five", "/chunked", "/line-behind", "/none", "/line-before", "/five", "/much"}) {
        ASSERT_TRUE(ask(path).ok()) << path;
        if (head_.status == 200) body(end);
        conversation_.finish();
    }
    EXPECT_EQ(server_->connection_count(), 1U);
    ASSERT_TRUE(ask("/much").ok());
    conversation_.finish();  // nothing of it was read
    ASSERT_TRUE(ask("/close").ok());
    EXPECT_EQ(server_->connection_count(), 2U);
    body(end);
    conversation_.finish();
    ASSERT_TRUE(ask("/five").ok());
    EXPECT_EQ(server_->connection_count(), 3U);
    conversation_.skip_body();  // a short one is read away
    conversation_.finish();
    ASSERT_TRUE(ask("/five").ok());
    EXPECT_EQ(server_->connection_count(), 3U);
    EXPECT_EQ(server_->requests().back().number, 2);
}

TEST_F(HttpConversationTest, ReplacesAKeptConnectionThatDied) {
    serve([](Exchange& exchange) {
        if (exchange.connection() == 1 && exchange.number() == 2) return exchange.reset();
        exchange.answer(200, "OK", "hello");
    });
    Moved end;
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(ask().ok()) << log_.all();
        EXPECT_EQ(body(end), "hello");
        conversation_.finish();
    }
    EXPECT_EQ(server_->connection_count(), 2U);
    EXPECT_EQ(server_->request_count(), 3U);
    // A new connection that is reset is no such case.
    server_->set_handler([](Exchange& exchange) { exchange.reset(); });
    EXPECT_EQ(ask().code, Code::transient);
    EXPECT_EQ(server_->request_count(), 5U) << "the kept one and one new one";
}

TEST_F(HttpConversationTest, GivesUpOnHeadersThatAreNoneOrHaveNoEnd) {
    struct Case {
        const char* name;
        ScriptedServer::Handler handler;
        Code code;
    };
    const auto says = [](const char* bytes) {
        return [bytes](Exchange& e) {
            e.send_raw(bytes);
            e.stall();
        };
    };
    const auto goes_on = [](const char* begin, const std::string& piece) {
        return [begin, piece](Exchange& e) {
            e.send_raw(begin);
            while (e.send_raw(piece)) {
            }
        };
    };
    const Case cases[] = {
        {"another protocol", says("SSH-2.0-OpenSSH_9\r\n"), Code::server_error},
        {"three bytes of another protocol", says("220"), Code::server_error},
        {"rubbish behind an interim answer", says("HTTP/1.1 100 Continue\r\n\r\nrubbish"),
         Code::server_error},
        {"closed at once", [](Exchange& e) { e.close(); }, Code::transient},
        {"closed in the middle",
         [](Exchange& e) {
             e.send_raw("HTTP/1.1 200 OK\r\nContent-Le");
             e.close();
         },
         Code::transient},
        {"megabytes", goes_on("HTTP/1.1 200 OK\r\n", "X: " + std::string(1000, 'x') + "\r\n"),
         Code::server_error},
        {"one line of megabytes", goes_on("HTTP/1.1 200 OK\r\nX: ", std::string(1000, 'x')),
         Code::server_error},
        {"rubbish without end behind an interim answer",
         goes_on("HTTP/1.1 100 Continue\r\n\r\n", std::string(1000, 'r')), Code::server_error},
        {"interim answers without end", goes_on("", "HTTP/1.1 100 Continue\r\n\r\n"), Code::server_error},
        {"two lengths", says("HTTP/1.1 200 OK\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\n"),
         Code::server_error},
    };
    for (const Case& c : cases) {
        serve(c.handler);
        const auto begin = Clock::now();
        const Result result = ask();
        EXPECT_EQ(result.code, c.code) << c.name << ": " << result.message();
        EXPECT_LT(Clock::now() - begin, seconds(2)) << c.name;
        EXPECT_FALSE(socket_.is_open()) << c.name;
    }
}

class TimedHttpConversation : public HttpConversationTest {};

TEST_F(TimedHttpConversation, BoundsTheTimeOfAHeaderThatDribbles) {
    for (const bool silent : {false, true}) {
        serve([silent](Exchange& exchange) {
            if (silent) {
                exchange.stall();
            } else {
                exchange.send_slowly("HTTP/1.1 200 OK\r\nX: " + std::string(10000, 'x'), 1, milliseconds(10));
            }
        });
        const auto begin = Clock::now();
        EXPECT_EQ(ask("/", milliseconds(300)).code, Code::transient);
        EXPECT_GT(Clock::now() - begin, milliseconds(250));
        EXPECT_LT(Clock::now() - begin, milliseconds(1500));
    }
}

TEST_F(HttpConversationTest, KeepsTheBytesOfACodingThatItDoesNotUndo) {
    for (const char* coding : {"br", "gzip, br", "utf-8"}) {
        serve_bytes("HTTP/1.1 200 OK\r\nContent-Length: 2\r\nContent-Encoding: " + std::string(coding) +
                    "\r\n\r\nxx");
        ASSERT_TRUE(ask().ok());
        Moved end;
        EXPECT_EQ(body(end), "xx") << coding;
        EXPECT_EQ(end.state, Moved::State::closed) << coding;
    }
    for (const char* coding : {"gzip", "deflate"}) {
        serve_bytes("HTTP/1.1 200 OK\r\nContent-Encoding: " + std::string(coding) + "\r\n\r\nxx");
        ASSERT_TRUE(ask().ok());
        Moved end;
        body(end);
        EXPECT_EQ(end.code, Code::unsupported) << "without the library";
    }
}

TEST_F(HttpConversationTest, UnpacksBodiesHoweverTheyAreDivided) {
    static const LibraryTables libraries = load_libraries(folder_of(program_path()));  // outlives the bodies
    const UnpackOperations operations = UnpackOperations::of(libraries.ssh);
    ASSERT_TRUE(operations.can_undo(ContentCoding::deflate))
        << "the library does not stand beside the test program";
    const std::string content = test::make_content(5, 70000);
    const std::string one = test::gzip_stored(content);
    const std::string two =
        test::gzip_stored(content.substr(0, 500)) + test::gzip_stored(content.substr(500, 500));
    std::string damaged = two;
    damaged[damaged.size() - 9] =
        static_cast<char>(damaged[damaged.size() - 9] ^ 1);  // the last byte of the content
    // Behind the ten bytes of its header and before its two sums a gzip member is a bare stream (RFC
    // 1952, 2.2).
    const auto bare_of = [](const std::string& gzip) { return gzip.substr(10, gzip.size() - 18); };
    const std::string bare = bare_of(one);
    // Of "hello", with its sum.
    const std::string wrapped = "\x78\x01" + bare_of(test::gzip_stored("hello")) + "\x06\x2C\x02\x15";
    const std::string page = "<!DOCTYPE html><html>" + std::string(1000, ' ') + "</html>";
    struct Case {
        const char* name;
        const char* coding;
        std::string body;
        std::string content;
        Moved::State end;
        Code code;
    };
    using enum Moved::State;
    const Case cases[] = {
        {"one member", "gzip", one, content, closed, Code::ok},
        {"an empty resource", "gzip", test::gzip_stored(""), "", closed, Code::ok},
        {"nothing at all", "gzip", "", "", closed, Code::ok},
        {"two members are one body", "gzip", two, content.substr(0, 1000), closed, Code::ok},
        {"one byte of padding", "gzip", two + '\0', content.substr(0, 1000), closed, Code::ok},
        {"padding", "gzip", two + std::string(5000, '\0'), content.substr(0, 1000), closed, Code::ok},
        {"cut short", "gzip", two.substr(0, two.size() - 1), content.substr(0, 1000), failed,
         Code::transient},
        {"a member cut short", "gzip", two + '\x1F', content.substr(0, 1000), failed, Code::transient},
        {"damaged", "gzip", damaged, content.substr(0, 999), failed, Code::server_error},
        {"not packed at all", "gzip", content.substr(0, 100), content.substr(0, 100), closed, Code::ok},
        {"not packed and short", "gzip", "\x1F\x8B", "\x1F\x8B", closed, Code::ok},
        {"wrapped", "deflate", wrapped, "hello", closed, Code::ok},
        {"wrapped, with padding", "deflate", wrapped + "\x1F\x8B", "hello", closed, Code::ok},
        {"wrapped, cut short", "deflate", wrapped.substr(0, 8), "h", failed, Code::transient},
        {"bare", "deflate", bare, content, closed, Code::ok},
        {"bare and short", "deflate", bare_of(test::gzip_stored("hello")), "hello", closed, Code::ok},
        {"nothing", "deflate", "", "", closed, Code::ok},
        {"a page", "deflate", page, page, closed, Code::ok},
        {"a word", "deflate", "abc", "abc", closed, Code::ok},
        {"a gzip file", "deflate", test::gzip_stored("hello"), test::gzip_stored("hello"), closed, Code::ok},
    };
    const auto answer_of = [](const Case& c, bool for_transfer) {
        const std::string status = "HTTP/1.1 200 OK\r\n";
        if (!for_transfer)
            return status + "Content-Encoding: " + c.coding +
                   "\r\nContent-Length: " + std::to_string(c.body.size()) + "\r\n\r\n" + c.body;
        std::ostringstream chunk;
        if (!c.body.empty()) chunk << std::hex << c.body.size() << "\r\n" << c.body << "\r\n";
        return status + "Content-Length: 3\r\nTransfer-Encoding: " + c.coding + ", chunked\r\n\r\n" +
               chunk.str() + "0\r\n\r\n";
    };
    for (const Case& c : cases) {
        for (const std::size_t piece : {std::size_t{1}, std::size_t{997}, std::string::npos}) {
            if (piece == 1 && c.body.size() > 10000) continue;
            serve_bytes(answer_of(c, piece == 997), piece);
            ASSERT_TRUE(ask().ok()) << c.name;
            Moved end;
            const std::string got = body(end, piece == 1 ? 1 : 16384, operations);
            EXPECT_EQ(end.state, c.end) << c.name << " in pieces of " << piece;
            EXPECT_EQ(end.code, c.code) << c.name << " in pieces of " << piece;
            // Of a damaged member what came before the damage was seen may be given or not.
            EXPECT_TRUE(c.end == closed ? got == c.content : got.size() <= 1000)
                << c.name << " in pieces of " << piece;
        }
    }
}

TEST(HttpStatusText, CanBeShownOnATerminal) {
    HttpHead head;
    head.status = 404;
    EXPECT_EQ(status_text(head), "404");
    head.reason = "Not \x1b[2JFound\x07";
    EXPECT_EQ(status_text(head), "404 Not ?[2JFound?");
    head.reason =
        "Gr\xC3\xBC\xC3\x9F"
        "e";
    EXPECT_EQ(status_text(head),
              "404 Gr\xC3\xBC\xC3\x9F"
              "e");
    head.reason =
        "Gr\xFC\xDF"
        "e";
    EXPECT_EQ(status_text(head), "404 Gr??e");
}

}  // namespace
}  // namespace vantlow
