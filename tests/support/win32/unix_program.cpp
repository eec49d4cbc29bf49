// Programs of the system below Wine: tests/support/unix_helper.py, which tools/test starts, starts and ends
// them and says what the letters of the frames mean.
#include "support/unix_program.h"

#include <winsock2.h>
// after it
#include <windows.h>

#include <array>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>

#include "base/text.h"
#include "platform/file.h"
#include "platform/process.h"
#include "support/process_run.h"

namespace vantlow::test {
namespace {

using std::chrono::milliseconds;

constexpr int unix_sigint = 2;
constexpr int unix_sigkill = 9;
constexpr int unix_sigterm = 15;
constexpr std::size_t head_size = 5;
constexpr const char* port_variable = "VANTLOW_UNIX_PORT";

/// The helper's connection for one program. A thread takes what comes from it.
class UnixProgram : public ProcessBackend {
  public:
    UnixProgram(const std::u16string& program, const std::vector<std::u16string>& arguments,
                const RunOptions& options) {
        connect();
        send('t', to_utf8(environment("VANTLOW_UNIX_TOKEN").value_or(u"")));
        send('p', to_utf8(program));
        for (const std::u16string& argument : arguments) send('a', translated(argument));
        if (!options.folder.empty()) send('f', translated(options.folder));
        for (const auto& [name, value] : options.environment) send('v', name + "=" + translated(value));
        send('x', {});
        reader_ = std::thread([this] { read_frames(); });
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return id_ != 0 || ended_; });
        if (id_ != 0) return;
        lock.unlock();
        close();
        throw std::runtime_error(to_utf8(program) + ": " + failure_);
    }
    ~UnixProgram() override { close(); }

    std::string read(int stream) override {
        Stream& from = streams_[static_cast<std::size_t>(stream)];
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return !from.text.empty() || from.ended || ended_; });
        return std::exchange(from.text, {});
    }
    void write_input(std::string_view input) override {
        if (!input.empty()) send('i', input);
        send('c', {});
    }
    std::optional<int> wait(milliseconds at_most) override {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, at_most, [this] { return status_.has_value() || ended_; });
        return status_;
    }
    void kill() override { signal(unix_sigkill); }
    void terminate() override { signal(unix_sigterm); }
    bool interrupt() override {
        signal(unix_sigint);
        return true;
    }
    [[nodiscard]] std::int64_t id() const override { return id_; }

  private:
    struct Stream {
        std::string text;
        bool ended = false;
    };

    void connect() {
        WSADATA data{};
        WSAStartup(MAKEWORD(2, 2), &data);
        sockaddr_in helper{};
        helper.sin_family = AF_INET;
        helper.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const std::string port = to_utf8(environment(port_variable).value_or(u"0"));
        helper.sin_port = htons(static_cast<u_short>(std::stoi(port)));
        socket_ = ::socket(AF_INET, SOCK_STREAM, 0);
        if (::connect(socket_, reinterpret_cast<const sockaddr*>(&helper), sizeof helper) == 0) return;
        closesocket(socket_);
        throw std::runtime_error("the helper for Unix programs does not answer at port " + port);
    }

    // A path of this system as the other one calls it; everything else as it is.
    static std::string translated(const std::u16string& text) {
        const bool is_path = text.size() > 2 && text[1] == u':' && (text[2] == u'\\' || text[2] == u'/');
        return is_path ? unix_path(text) : to_utf8(text);
    }

    // Where it fails the reader sees the connection's end, too.
    void send(char kind, std::string_view payload) {
        const std::lock_guard guard(sending_);
        const auto size = static_cast<std::uint32_t>(payload.size());
        std::string bytes{kind};
        for (const int shift : {24, 16, 8, 0})
            bytes += static_cast<char>(size >> static_cast<unsigned>(shift));
        bytes += payload;
        for (std::size_t done = 0; done < bytes.size();) {
            const int step = ::send(socket_, bytes.data() + done, static_cast<int>(bytes.size() - done), 0);
            if (step <= 0) return;
            done += static_cast<std::size_t>(step);
        }
    }
    void signal(int number) { send('k', std::to_string(number)); }

    [[nodiscard]] bool receive(std::string& bytes, std::size_t size) const {
        bytes.resize(size);
        for (std::size_t done = 0; done < size;) {
            const int step = ::recv(socket_, bytes.data() + done, static_cast<int>(size - done), 0);
            if (step <= 0) return false;
            done += static_cast<std::size_t>(step);
        }
        return true;
    }
    void read_frames() {
        std::string head;
        std::string payload;
        while (receive(head, head_size)) {
            std::size_t size = 0;
            for (std::size_t i = 1; i < head_size; ++i)
                size = size << 8U | static_cast<unsigned char>(head[i]);
            if (!receive(payload, size)) break;
            const std::lock_guard guard(mutex_);
            take(head[0], payload);
            changed_.notify_all();
        }
        const std::lock_guard guard(mutex_);
        ended_ = true;
        changed_.notify_all();
    }
    // With mutex_.
    void take(char kind, const std::string& payload) {
        if (kind == 's') id_ = std::stoi(payload);
        if (kind == 'n') failure_ = payload;
        if (kind == 'q') status_ = std::stoi(payload);
        if (kind != 'o' && kind != 'e') return;
        Stream& stream = streams_[kind == 'o' ? 0 : 1];
        stream.text += payload;
        stream.ended = stream.ended || payload.empty();
    }
    void close() {
        shutdown(socket_, SD_BOTH);
        reader_.join();
        closesocket(socket_);
    }

    SOCKET socket_ = INVALID_SOCKET;
    std::mutex sending_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::array<Stream, 2> streams_;  ///< this and what follows: guarded by mutex_
    std::optional<int> status_;
    std::string failure_ = "the helper for Unix programs ended the connection";
    std::int64_t id_ = 0;
    bool ended_ = false;  ///< the connection
    std::thread reader_;
};

}  // namespace

bool can_start_unix_programs() {
    return environment(port_variable).has_value();
}

std::unique_ptr<ProcessBackend> start_unix_program(const std::u16string& program,
                                                   const std::vector<std::u16string>& arguments,
                                                   const RunOptions& options) {
    return std::make_unique<UnixProgram>(program, arguments, options);
}

std::string unix_path(const std::u16string& path) {
    // Wine's own; no other system has it.
    using Translate = char*(CDECL*)(const wchar_t*);
    const HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
    const auto translate = reinterpret_cast<Translate>(
        reinterpret_cast<void*>(GetProcAddress(kernel, "wine_get_unix_file_name")));
    const std::u16string whole = absolute_path(path);
    char* const found =
        translate == nullptr ? nullptr : translate(reinterpret_cast<const wchar_t*>(whole.c_str()));
    if (found == nullptr) throw std::runtime_error(to_utf8(path) + " has no Unix name");
    std::string text = found;
    HeapFree(GetProcessHeap(), 0, found);
    // By the folder and not by the drive's link, whose name has a colon: some servers' lists are divided by
    // it.
    constexpr std::string_view link = "/dosdevices/c:/";
    if (const auto at = text.find(link); at != std::string::npos) text.replace(at, link.size(), "/drive_c/");
    return text;
}

std::u16string own_path(const std::u16string& unix_file) {
    std::u16string path = u"Z:" + unix_file;
    for (char16_t& c : path) {
        if (c == u'/') c = u'\\';
    }
    return path;
}

}  // namespace vantlow::test
