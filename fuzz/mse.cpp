// Message stream encryption, in both roles, over any division of the bytes. The key agreement gives one fixed
// secret here and RC4 changes next to nothing, so that the input can get through.
#include <algorithm>
#include <cstring>

#include "bt/mse.h"
#include "fuzz.h"

/// A stream cipher that changes the first eight bytes, so that the verification constant is a mark, and no
/// other.
struct VantlowRc4 {
    unsigned char position = 0;
};

namespace vantlow::fuzz {
namespace {

VantlowDh* const some_keys = reinterpret_cast<VantlowDh*>(std::uintptr_t{16});

SecurTable fixed_operations() {
    SecurTable table;
    const auto write = [](VantlowDh* /*keys*/, void* into, std::size_t size) {
        std::fill_n(static_cast<char*>(into), size, 'k');
        return static_cast<int>(size);
    };
    table.DH_Create = [](const void*, std::size_t, const void*, std::size_t) { return some_keys; };
    table.DH_Delete = [](VantlowDh*) {};
    table.DH_GetPublicKey = write;
    table.DH_GetSecret = write;
    table.DH_ComputeSecret = [](VantlowDh*, const void*, std::size_t size) { return static_cast<int>(size); };
    table.RC4_Create = [](const void*, std::size_t, std::size_t) { return new VantlowRc4; };
    table.RC4_Delete = [](VantlowRc4* stream) { delete stream; };
    table.RC4_3 = [](VantlowRc4* stream, void* buffer, std::size_t size) {
        auto* const bytes = static_cast<unsigned char*>(buffer);
        for (std::size_t i = 0; i < size && stream->position < 8; ++i) bytes[i] ^= ++stream->position;
    };
    table.RC4_4 = [](VantlowRc4* stream, void* to, const void* from, std::size_t size) {
        CHECK(stream->position == 8);
        std::memcpy(to, from, size);
    };
    return table;
}

// Moves at most so many bytes from one side's output to the other's input.
bool deliver(std::string& from, std::size_t most, PeerBuffer& buffer, MseExchange& to, std::string& out) {
    const std::string part = from.substr(0, most);
    from.erase(0, part.size());
    buffer.append(part);
    return to.advance(out) != MseStep::failed;
}

// Both roles with one another: whatever the settings and the division, they come to terms.
void meet(std::string_view input, const SecurTable& table, const InfoHash& torrent) {
    const std::uint32_t caller_setting = take_byte(input) % 3;
    const std::uint32_t called_setting = caller_setting == 0 ? 0U : caller_setting;
    const std::size_t step = 1U + take_byte(input);
    const std::string payload(input.substr(0, 4096));
    PeerBuffer caller_buffer;
    PeerBuffer called_buffer;
    MseExchange caller(table, caller_buffer, torrent, caller_setting, payload);
    MseExchange called(table, called_buffer, {InfoHash{}, torrent}, called_setting);
    std::string out;
    std::string back;
    CHECK(caller.advance(out) == MseStep::more && called.advance(back) == MseStep::more);
    while (!out.empty() || !back.empty()) {
        CHECK(deliver(out, step, called_buffer, called, back));
        CHECK(deliver(back, step, caller_buffer, caller, out));
    }
    CHECK(caller.advance(out) == MseStep::done && called.advance(back) == MseStep::done);
    CHECK(called.payload() == payload && called.streams().torrent() == torrent);
    CHECK(caller.streams().method() == called.streams().method());
}

}  // namespace

void run(std::string_view input) {
    static const SecurTable table = fixed_operations();
    InfoHash torrent{};
    torrent.fill(std::byte{'t'});
    const std::uint8_t role = take_byte(input);
    if (role % 3 == 2) return meet(input, table, torrent);
    const std::size_t step = 1U + take_byte(input);
    PeerBuffer buffer;
    MseExchange exchange = role % 3 == 0 ? MseExchange(table, buffer, torrent, role / 3 % 4, "payload")
                                         : MseExchange(table, buffer, {InfoHash{}, torrent}, role / 3 % 4);
    std::string out;
    MseStep state = exchange.advance(out);
    while (!input.empty() && state == MseStep::more) {
        const std::string_view part = input.substr(0, step);
        input.remove_prefix(part.size());
        buffer.append(part);
        state = exchange.advance(out);
    }
    CHECK(out.size() < 8192);
    CHECK(exchange.payload().size() <= 0xFFFF);
    if (state == MseStep::done) CHECK(exchange.streams().method() - 1 < 3);
}

}  // namespace vantlow::fuzz
