// The test support itself, where it is tricky.
#include "support/scripted_server.h"

#include <gtest/gtest.h>

#include <array>
#include <iostream>
#include <iterator>
#include <list>

#include "base/text.h"
#include "platform/file.h"
#include "platform/process.h"
#include "support/content.h"
#include "support/fault_hook.h"
#include "support/file_server.h"
#include "support/nginx.h"
#include "support/process_run.h"
#include "support/temp_folder.h"

namespace vantlow::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class Client {
  public:
    explicit Client(const ScriptedServer& server) {
        auto socket = TcpSocket::begin_connect(*SocketAddress::from_literal("127.0.0.1", server.port()));
        if (!socket) return;
        socket_ = *std::move(socket);
        connected_ = wait_socket(socket_, Interest::write, seconds(5), never_) == Ready::yes &&
                     socket_.connect_error() == 0;
    }
    [[nodiscard]] bool is_connected() const { return connected_; }
    void send(std::string_view text) {
        ASSERT_EQ(socket_.write(std::as_bytes(std::span(text))).bytes, text.size());
    }
    /// Everything up to the end of the connection, or up to `enough` bytes; `end` tells how it ended.
    std::string receive(IoStep::State& end, std::size_t enough = std::string::npos) {
        std::string text;
        std::array<std::byte, 65536> buffer;
        end = IoStep::State::would_block;
        while (text.size() < enough &&
               wait_socket(socket_, Interest::read, seconds(5), never_) == Ready::yes) {
            const IoStep step = socket_.read(buffer);
            end = step.state;
            if (end == IoStep::State::closed || end == IoStep::State::failed) break;
            text.append(reinterpret_cast<const char*>(buffer.data()), step.bytes);
        }
        return text;
    }

  private:
    StopSource never_;
    TcpSocket socket_;
    bool connected_ = false;
};

std::string body_of(const std::string& answer) {
    return answer.substr(answer.find("\r\n\r\n") + 4);
}

TEST(TimedScriptedServer, EndsAtOnceWhateverItsConnectionsDo) {
    const std::string much(64U << 20U, 'x');
    ScriptedServer server([&](Exchange& exchange) {
        if (exchange.request().target == "/much") exchange.send(much);
        if (exchange.request().target == "/stall") exchange.stall();
        if (exchange.request().target == "/slow") exchange.send_slowly(much, 1, milliseconds(1000));
        if (exchange.request().target == "/paced") exchange.send_paced(much, 10000);
    });
    Client idle(server);
    Client half(server);
    half.send("GET / HT");
    std::list<Client> busy;
    for (const char* target : {"/much", "/stall", "/slow", "/paced"}) {
        busy.emplace_back(server).send("GET " + std::string(target) + " HTTP/1.1\r\n\r\n");
    }
    ASSERT_TRUE(server.wait_for_requests(4));
    ASSERT_TRUE(server.wait_for_open(6));
    const auto begin = Clock::now();
    server.stop();
    EXPECT_LT(Clock::now() - begin, milliseconds(200));
    EXPECT_EQ(server.open_connections(), 0);
    EXPECT_FALSE(Client(server).is_connected());
    server.start();
    EXPECT_TRUE(Client(server).is_connected());
}

TEST(ScriptedServer, RecordsRequestsConnectionsAndBodyBytes) {
    ScriptedServer server([](Exchange& exchange) {
        exchange.answer(200, "OK", exchange.request().target);
        if (exchange.request().field("connection") == "close") exchange.close();
    });
    IoStep::State end{};
    {
        Client first(server);
        const std::string one = "GET /a HTTP/1.1\r\nRange: bytes=5-\r\n\r\n";
        const std::string two = "GET /bcd HTTP/1.1\r\nRANGE:bytes=7-9\r\nConnection: close\r\n\r\n";
        first.send(one + two);  // both at once
        const std::string answer = first.receive(end);
        EXPECT_EQ(end, IoStep::State::closed);
        EXPECT_TRUE(answer.ends_with("\r\n\r\n/bcd")) << answer;
    }
    Client second(server);
    second.send("GET /e HTTP/1.0\r\n\r\n");
    ASSERT_TRUE(server.wait_for_body_sent(8));
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 3U);
    EXPECT_EQ(requests[1].connection, 1);
    EXPECT_EQ(requests[1].number, 2);
    EXPECT_EQ(requests[1].body_sent, 4);
    EXPECT_EQ(requests[0].head.range_first, 5);
    EXPECT_EQ(requests[0].head.range_last, std::nullopt);
    EXPECT_EQ(requests[1].head.range_first, 7);
    EXPECT_EQ(requests[1].head.range_last, 9);
    EXPECT_EQ(requests[2].connection, 2);
    EXPECT_EQ(requests[2].head.raw, "GET /e HTTP/1.0\r\n\r\n");
    EXPECT_EQ(server.connections()[0].requests, 2);
    EXPECT_TRUE(server.wait_for_open(1));
}

TEST(ScriptedServer, AResetAndACloseLookDifferent) {
    ScriptedServer server([](Exchange& exchange) {
        exchange.send("half");
        if (exchange.request().target == "/reset") {
            exchange.stall(milliseconds(50));  // a reset takes what is still on its way
            exchange.reset();
        } else {
            exchange.close();
        }
    });
    for (const bool reset : {true, false}) {
        Client client(server);
        client.send(reset ? "GET /reset HTTP/1.1\r\n\r\n" : "GET /close HTTP/1.1\r\n\r\n");
        IoStep::State end{};
        EXPECT_EQ(client.receive(end), "half");
        EXPECT_EQ(end, reset ? IoStep::State::failed : IoStep::State::closed);
    }
}

TEST(TimedScriptedServer, KeepsItsPace) {
    ScriptedServer server([](Exchange& exchange) {
        exchange.send_paced(std::string(200000, 'x'), 500000);
        exchange.close();
    });
    Client client(server);
    const auto begin = Clock::now();
    client.send("GET / HTTP/1.1\r\n\r\n");
    IoStep::State end{};
    EXPECT_EQ(client.receive(end).size(), 200000U);
    const auto time = Clock::now() - begin;
    EXPECT_GT(time, milliseconds(370));
    EXPECT_LT(time, milliseconds(800));
}

TEST(FileServer, ServesRangesRefusesAndBreaks) {
    FileServer files(FileResource{.content = make_content(1, 1000)});
    ScriptedServer& server = files.server();
    const auto ask = [&](const std::string& fields) {
        Client client(server);
        client.send("GET /file.bin HTTP/1.1\r\n" + fields + "\r\n");
        IoStep::State end{};
        std::string head;
        // The head tells how much is to come.
        while (head.find("\r\n\r\n") == std::string::npos) head += client.receive(end, 1);
        const auto at = head.find("Content-Length: ");
        const auto length = static_cast<std::size_t>(std::stoll(head.substr(at + 16)));
        while (body_of(head).size() < length && end == IoStep::State::moved) head += client.receive(end, 1);
        return head;
    };
    EXPECT_EQ(body_of(ask("")), make_content(1, 1000));
    const std::string part = ask("Range: bytes=990-\r\n");
    EXPECT_TRUE(part.starts_with("HTTP/1.1 206 ")) << part;
    EXPECT_NE(part.find("Content-Range: bytes 990-999/1000\r\n"), std::string::npos) << part;
    EXPECT_EQ(body_of(part), make_content(1, 1000).substr(990));
    EXPECT_TRUE(ask("Range: bytes=1000-\r\n").starts_with("HTTP/1.1 416 "));
    files.change("/file.bin", [](FileResource& resource) { resource.close_after = 10; });
    EXPECT_EQ(body_of(ask("")).size(), 10U);

    files.change("/file.bin", [](FileResource& resource) {
        resource.close_after = -1;
        resource.hold_after = 1;
    });
    files.set_most_connections(1);
    ASSERT_TRUE(server.wait_for_open(0)) << "else the next one is one too many";
    const std::int64_t before = server.body_sent();
    Client held(server);
    held.send("GET /file.bin HTTP/1.1\r\n\r\n");
    ASSERT_TRUE(server.wait_for_body_sent(before + 1));
    EXPECT_TRUE(ask("").starts_with("HTTP/1.1 503 "));
    EXPECT_EQ(files.refused(), 1);
    files.release();
    IoStep::State end{};
    EXPECT_TRUE(held.receive(end, 1000).starts_with("HTTP/1.1 200 "));
}

TEST(TestContent, AComparisonTellsTheFirstDifference) {
    const TempFolder folder(TempFolder::Name::foreign);
    std::string bytes = make_content(7, 600001);
    std::string piece(11, '\0');
    fill_content(7, 300003, std::as_writable_bytes(std::span(piece)));
    EXPECT_EQ(piece, bytes.substr(300003, 11));
    const std::u16string path = folder.write(u"\u00e4.bin", bytes);
    EXPECT_TRUE(file_has(path, bytes));
    EXPECT_TRUE(file_has_content(path, 7, 600001));
    EXPECT_FALSE(file_has_content(path, 8, 600001));
    EXPECT_FALSE(file_has_content(path, 7, 600002));
    EXPECT_FALSE(file_has_content(path, 7, 600000));
    bytes[500000] = static_cast<char>(bytes[500000] ^ 1);
    folder.write(u"\u00e4.bin", bytes);
    const auto result = file_has_content(path, 7, 600001);
    EXPECT_FALSE(result);
    EXPECT_NE(std::string(result.message()).find("offset 500000"), std::string::npos) << result.message();
    // The check value of CRC-32, and the length.
    EXPECT_TRUE(gzip_stored("123456789").ends_with(std::string("123456789\x26\x39\xF4\xCB\x09\0\0\0", 17)));
}

TEST(FaultHook, FailsWhatItWasToldTo) {
    const TempFolder folder;
    const std::vector<std::byte> bytes(100, std::byte{1});
    File file;
    ASSERT_TRUE(file.open(folder.path(u"f"), OpenMode::create_new).ok());
    {
        FailNth second(Operation::write, 2, FileFault::access);
        const HookInPlace in_place(second);
        EXPECT_TRUE(file.write_at(0, bytes).ok());
        EXPECT_EQ(file.write_at(100, bytes).fault, FileFault::access);
        EXPECT_TRUE(file.write_at(100, bytes).ok());
        EXPECT_EQ(second.failed(), 1);
    }
    {
        FullDisk disk(150);
        const HookInPlace in_place(disk);
        EXPECT_EQ(file.allocate(1000).fault, FileFault::no_space);
        EXPECT_TRUE(file.write_at(200, bytes).ok());
        EXPECT_EQ(file.write_at(300, bytes).fault, FileFault::no_space);
        disk.free(50);
        EXPECT_TRUE(file.write_at(300, bytes).ok());
    }
    RecordingHook record;
    {
        const HookInPlace in_place(record);
        EXPECT_TRUE(file.write_at(0, bytes).ok());
        EXPECT_TRUE(file.flush().ok());
        EXPECT_TRUE(file.write_at(50, bytes).ok());
    }
    const auto lost = record.unflushed(folder.path(u"f"));
    ASSERT_EQ(lost.size(), 1U);
    file.close();
    ASSERT_TRUE(lose_ranges(folder.path(u"f"), lost).ok());
    EXPECT_TRUE(
        file_has(folder.path(u"f"), std::string(50, '\1') + std::string(100, '\0') + std::string(250, '\1')));
}

// Not tests: what the test below runs.
TEST(ProcessRunChild, DISABLED_TellsWhatItGot) {
    const std::string input((std::istreambuf_iterator<char>(std::cin)), {});
    std::cout << "variable=" << to_utf8(environment("VANTLOW_TEST_WORD").value_or(u"none")) << "\n";
    std::cerr << "input=" << input.size() << "\n";
    File here;
    EXPECT_TRUE(here.open(u"here", OpenMode::create_new).ok());
}
TEST(ProcessRunChild, DISABLED_Waits) {
    std::cout << "waiting" << std::endl;
    std::this_thread::sleep_for(seconds(60));
}

std::vector<std::u16string> child(const std::u16string& name) {
    return {u"--gtest_also_run_disabled_tests", u"--gtest_filter=ProcessRunChild.DISABLED_" + name};
}

TEST(ProcessRun, HandsWordsInAndOutputOut) {
    const TempFolder folder(TempFolder::Name::foreign);
    RunOptions options;
    options.environment = {{"VANTLOW_TEST_WORD", u"Gr\u00fc\u00dfe \U0001F4C1"}};
    options.input.assign(300000, 'i');
    options.folder = folder.path();
    auto words = child(u"TellsWhatItGot");
    // By its full path: GoogleTest knows folders in the ANSI code page only.
    const TempFolder plain;
    words.push_back(u"--gtest_output=xml:" + plain.path(u"a b.xml"));
    const RunResult result = run_program(program_path(), words, options);
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.out.find("variable=Gr\xC3\xBC\xC3\x9F"
                              "e \xF0\x9F\x93\x81"),
              std::string::npos)
        << result.out;
    EXPECT_NE(result.err.find("input=300000"), std::string::npos) << result.err;
    EXPECT_TRUE(folder.has(u"here")) << "the working folder was lost";
    EXPECT_TRUE(plain.has(u"a b.xml")) << "a word with a blank was lost";
    EXPECT_THROW(run_program(folder.path(u"none.exe"), {}), std::runtime_error);
}

TEST(ProcessRun, KillsInterruptsAndTimesOut) {
    {
        RunningProgram program(program_path(), child(u"Waits"));
        ASSERT_TRUE(program.wait_for_output("waiting"));
        EXPECT_TRUE(program.is_running());
        program.kill();
        EXPECT_EQ(program.wait(seconds(10)).status, 137);
    }
    {
        RunningProgram program(program_path(), child(u"Waits"));
        ASSERT_TRUE(program.wait_for_output("waiting"));
        const bool sent = program.interrupt();
        EXPECT_TRUE(sent || path_separator() == u'\\');
        if (sent) {
            const RunResult result = program.wait(seconds(10));
            EXPECT_FALSE(result.timed_out);
            EXPECT_NE(result.status, 0);
        }
    }
    RunningProgram program(program_path(), child(u"Waits"));
    EXPECT_TRUE(program.wait(milliseconds(300)).timed_out);
}

TEST(Nginx, ServesAndEnds) {
    if (!Nginx::available()) GTEST_SKIP() << Nginx::missing;
    std::uint16_t port = 0;
    {
        Nginx nginx("location /moved { return 302 /a.txt; }");
        port = nginx.port();
        nginx.put(u"a.txt", "hello");
        auto socket = TcpSocket::begin_connect(*SocketAddress::from_literal("127.0.0.1", port));
        ASSERT_TRUE(socket.ok());
        const StopSource never;
        ASSERT_EQ(wait_socket(*socket, Interest::write, seconds(5), never), Ready::yes);
        constexpr std::string_view request = "GET /a.txt HTTP/1.0\r\n\r\n";
        socket->write(std::as_bytes(std::span(request)));
        std::string answer;
        std::array<std::byte, 4096> buffer;
        while (wait_socket(*socket, Interest::read, seconds(5), never) == Ready::yes) {
            const IoStep step = socket->read(buffer);
            if (step.state != IoStep::State::moved) break;
            answer.append(reinterpret_cast<const char*>(buffer.data()), step.bytes);
        }
        EXPECT_TRUE(answer.ends_with("\r\n\r\nhello")) << answer << nginx.error_log();
    }
    auto socket = TcpSocket::begin_connect(*SocketAddress::from_literal("127.0.0.1", port));
    const StopSource never;
    EXPECT_FALSE(socket.ok() && wait_socket(*socket, Interest::write, seconds(5), never) == Ready::yes &&
                 socket->connect_error() == 0);
}

}  // namespace
}  // namespace vantlow::test
