// A server that has a torrent's files (a web seed, BEP 19), or a script at it that gives the pieces (BEP 17),
// as a peer of its swarm.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "base/mutex.h"
#include "bt/torrent_content.h"
#include "bt/web/seed_stream.h"
#include "platform/stop.h"
#include "platform/thread.h"
#include "transfer/http/client.h"

namespace vantlow {

/// The address of a file at a web seed: behind an address that ends with "/", and behind that of a torrent
/// whose files stand in a folder, come the torrent's name and the file's path, escaped (RFC 3986).
std::string web_seed_address(std::string_view seed, const TorrentContent& content, std::size_t file);

/// The address under which a script gives the bytes from `begin` to `end` of the torrent, which stand in one
/// piece.
std::string piece_seed_address(std::string_view seed, const TorrentContent& content, std::int64_t begin,
                               std::int64_t end);

/// The two kinds of web seeds.
enum class WebSeedKind : std::uint8_t {
    files,  ///< files at their addresses, in parts (BEP 19)
    pieces  ///< a script that is asked for parts of pieces (BEP 17)
};

/// True for addresses of HTTP. A torrent must not make this side send orders to machines that it alone
/// reaches, so that one with a query is refused where it names this machine or a private network by number
/// (RFC 1918, RFC 4193).
bool is_web_seed(std::string_view address);

/// The services of web seeds, and the errand that all of them go on. Everything outlives the seeds.
struct WebSeedServices {
    net::Network& network;
    ConnectionServices& connections;
    const LibraryTables& libraries;
    ThreadPool& threads;
    LogSink& log;
    StopSource& stop;
    HttpErrand errand;  ///< its address is not used
};

/// One seed with a thread of its own. It is left for the rest of its life where the server does not have the
/// files or gives wrong ones, and for some time where it is busy or does not answer; the log says why. On the
/// network's thread; a stop ends every wait.
class WebSeed final : private SeedStream::Owner {
  public:
    /// `content` outlives the seed. `shown` is how the swarm knows it, different from every peer and other
    /// seed.
    WebSeed(std::string address, WebSeedKind kind, const TorrentContent& content, WebSeedServices services,
            const SocketAddress& shown);
    ~WebSeed() override;

    /// A connection for the swarm when it is time for one; null while there is one, while the seed rests, and
    /// for ever once it was left for good.
    std::unique_ptr<net::Stream> connect();
    /// It gave wrong data.
    void ban();
    [[nodiscard]] const std::string& address() const noexcept { return address_; }
    /// The same without credentials, for people.
    [[nodiscard]] std::string shown_address() const;
    [[nodiscard]] const SocketAddress& shown() const noexcept { return shown_; }

  private:
    /// A failure, and whether asking again later may help.
    struct Refusal {
        Result why;
        bool is_final = false;
        std::chrono::seconds wait{0};  ///< as the server wants it; 0: unsaid
    };
    /// The answer that is being read: bytes of one file.
    struct Answer {
        std::size_t file = 0;
        std::int64_t at = 0;
        std::int64_t end = 0;
    };
    struct Order {
        std::uint32_t turn = 0;  ///< the connection that it came over
        PieceBlock block;
        std::uint32_t row_end = 0;    ///< up to this piece the swarm lacks all behind the block's
        std::int64_t useful_end = 0;  ///< up to this byte of the torrent the next ones follow
    };
    /// The seed as the thread's posts find it on the network's thread: as long as it is there.
    struct Post {
        WebSeed* seed;
    };

    void wanted(const PieceBlock& block) override;
    bool cancelled(const PieceBlock& block) override;
    void has(std::uint32_t piece) override;
    void has_these(std::string_view bitfield) override;
    void left() override;
    void came(const Order& order, const std::string& bytes);
    void refused(const Order& order, const Refusal& refusal);

    // On the seed's thread.
    void work();
    std::optional<Order> next_order();
    std::optional<Refusal> read_block(const Order& order, std::string& bytes);
    [[nodiscard]] std::int64_t begin_of(const PieceBlock& block) const noexcept;
    [[nodiscard]] std::int64_t end_of_piece(std::uint32_t piece) const noexcept;
    std::optional<Refusal> read_part(const FileSpan& part, std::int64_t at, const Order& order,
                                     std::string& bytes);
    std::optional<Refusal> take_part(const FileSpan& part, std::string& bytes);
    [[nodiscard]] std::int64_t row_from(std::int64_t at, const Order& order);
    std::optional<Refusal> ask(const FileSpan& part, std::int64_t useful);
    static Refusal refusal_of(const HttpHead& head);
    static std::optional<Refusal> judge_piece(const HttpHead& head, std::int64_t length);
    [[nodiscard]] std::chrono::seconds wanted_wait();
    std::optional<Refusal> judge(const HttpAnswer& answer, const FileSpan& part, std::int64_t end);
    std::optional<Refusal> read_bytes(std::int64_t count, std::string* bytes);
    void drop_answer();

    const std::string address_;
    const WebSeedKind kind_;
    const TorrentContent& content_;
    const WebSeedServices services_;
    const SocketAddress shown_;
    FileList files_;  ///< one that holds all bytes for the other kind of seeds
    StopSource stop_;

    // The network's thread.
    SeedStream* stream_ = nullptr;
    std::uint32_t turn_ = 0;
    PieceSet swarm_has_;
    PieceSet named_;          ///< those, and what was asked for or suggested
    PieceSet suggested_;      ///< and not asked for yet
    std::uint32_t next_ = 0;  ///< of the suggestions, which go round
    bool is_over_ = false;
    int failures_ = 0;  ///< in a row
    Clock::time_point not_before_{};
    std::shared_ptr<Post> post_ = std::make_shared<Post>(Post{this});

    // The seed's thread.
    std::optional<HttpClient> client_;
    std::optional<Answer> answer_;
    std::int64_t asked_end_ = 0;  ///< of the torrent's bytes that were asked for last
    std::uint32_t ahead_ = 1;     ///< pieces that are asked for at once
    Mutex mutex_;
    Condition changed_;
    std::deque<Order> orders_ VANTLOW_GUARDED_BY(mutex_);
    ThreadPool::Running thread_;  ///< last
};

}  // namespace vantlow
