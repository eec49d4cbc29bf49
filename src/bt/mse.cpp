#include "bt/mse.h"

#include <algorithm>

#include "base/codes.h"
#include "base/digest.h"
#include "bt/wire.h"
#include "platform/process.h"

namespace vantlow {
namespace {

constexpr std::size_t vc_size = 8;
constexpr std::size_t hash_size = 20;
constexpr std::size_t discarded = 1024;
constexpr std::uint32_t rc4_bit = static_cast<std::uint32_t>(CryptoMethod::rc4);
constexpr std::uint32_t both = 3;

// The 768-bit prime of the published protocol.
constexpr std::string_view prime =
    "FFFFFFFFFFFFFFFFC90FDAA22168C234C4C6628B80DC1CD129024E088A67CC74020BBEA63B139B22514A08798E3404DD"
    "EF9519B3CD3A431B302B0A6DF25F14374FE1356D6D51C245E485B576625E7EC6F44C42E9A63A36210000000000090563";

std::string bytes_of(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::string sha1(const std::string& bytes) {
    const InfoHash hash = hash_of(bytes);
    return bytes_of(hash);
}

}  // namespace

bool CBTMSE::has_libraries() const noexcept {
    const SecurTable& t = libraries_;
    return t.DH_Create != nullptr && t.DH_Delete != nullptr && t.DH_GetPublicKey != nullptr &&
           t.DH_ComputeSecret != nullptr && t.DH_GetSecret != nullptr && t.RC4_Create != nullptr &&
           t.RC4_Delete != nullptr && t.RC4_3 != nullptr && t.RC4_4 != nullptr;
}

MseStep CBTMSE::send_public_key(std::string& out) {
    if (!has_libraries()) return MseStep::failed;
    if (!dh_) {
        const auto group = from_hex(prime);
        const std::byte generator{2};
        dh_ = {libraries_.DH_Create(group->data(), group->size(), &generator, 1),
               CryptoDeleter{libraries_.RC4_Delete, libraries_.DH_Delete}};
    }
    Key key{};
    if (!dh_ || libraries_.DH_GetPublicKey(dh_.get(), key.data(), key.size()) != int{key_size})
        return MseStep::failed;
    unsigned char guid[16];
    random_guid(guid);
    random_.seed(get_number<std::uint32_t>({reinterpret_cast<const char*>(guid), sizeof guid}, 0));
    out += bytes_of(key) + padding();
    return MseStep::done;
}

std::string CBTMSE::padding() {
    std::string bytes(random_() & longest_padding, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random_() & 0xFFU);
    return bytes;
}

MseStep CBTMSE::take_public_key() {
    if (buffer_.size() < key_size) return MseStep::more;
    if (!dh_) return MseStep::failed;
    const int taken = libraries_.DH_ComputeSecret(dh_.get(), buffer_.data(), key_size);
    buffer_.remove(key_size);
    const bool ok = taken == int{key_size} &&
                    libraries_.DH_GetSecret(dh_.get(), secret_.data(), secret_.size()) == int{key_size};
    has_secret_ = ok;
    return ok ? MseStep::done : MseStep::failed;
}

CBTMSE::Rc4 CBTMSE::make_stream(std::string_view label, const InfoHash& skey) const {
    const std::string key = sha1(std::string(label) + bytes_of(secret_) + bytes_of(skey));
    return {libraries_.RC4_Create(key.data(), key.size(), discarded),
            CryptoDeleter{libraries_.RC4_Delete, libraries_.DH_Delete}};
}

std::string CBTMSE::secret_hash(std::string_view label) const {
    return sha1(std::string(label) + bytes_of(secret_));
}

std::string CBTMSE::torrent_hash(const InfoHash& skey) const {
    std::string hash = sha1("req2" + bytes_of(skey));
    const std::string mask = secret_hash("req3");
    for (std::size_t i = 0; i < hash.size(); ++i) hash[i] = static_cast<char>(hash[i] ^ mask[i]);
    return hash;
}

std::string CBTMSE::encrypted(std::string bytes) {
    libraries_.RC4_3(outgoing_.get(), bytes.data(), bytes.size());
    return bytes;
}

MseStep CBTMSE::receive_yb(const InfoHash& skey) {
    if (const MseStep step = take_public_key(); step != MseStep::done) return step;
    incoming_ = make_stream("keyB", skey);
    const Rc4 ahead = make_stream("keyB", skey);
    if (!incoming_ || !ahead) return MseStep::failed;
    encrypted_vc_.assign(vc_size, '\0');
    libraries_.RC4_3(ahead.get(), encrypted_vc_.data(), encrypted_vc_.size());
    return MseStep::done;
}

MseStep CBTMSE::send_request(const InfoHash& skey, std::uint32_t setting, std::string_view payload,
                             std::string& out) {
    outgoing_ = make_stream("keyA", skey);
    if (!outgoing_ || payload.size() > 0xFFFF) return MseStep::failed;
    offered_ = setting != 0 ? setting : both;
    const std::string pad = padding();
    std::string block(vc_size, '\0');
    put_number(block, offered_);
    put_number(block, static_cast<std::uint16_t>(pad.size()));
    block += pad;
    put_number(block, static_cast<std::uint16_t>(payload.size()));
    block += payload;
    out += secret_hash("req1") + torrent_hash(skey) + encrypted(std::move(block));
    return MseStep::done;
}

// Finds where the mark begins among the buffered bytes.
MseStep CBTMSE::find(std::string_view mark, std::size_t farthest, std::size_t& at) const {
    at = buffer_.view().substr(0, farthest + mark.size()).find(mark);
    if (at != std::string_view::npos) return MseStep::done;
    return buffer_.size() >= farthest + mark.size() ? MseStep::failed : MseStep::more;
}

MseStep CBTMSE::find_vc(std::size_t farthest) {
    std::size_t at = 0;
    if (const MseStep step = find(encrypted_vc_, farthest, at); step != MseStep::done) return step;
    buffer_.remove(at);
    libraries_.RC4_3(incoming_.get(), buffer_.data(), vc_size);  // keeps the key stream in step
    buffer_.remove(vc_size);
    return MseStep::done;
}

MseStep CBTMSE::read_select(std::uint16_t& pad_length) {
    std::string head;
    if (const MseStep step = take_handshake(6, head); step != MseStep::done) return step;
    method_ = get_number<std::uint32_t>(head, 0);
    pad_length = get_number<std::uint16_t>(head, 4);
    // A side that is offered both may answer with both; then neither side encrypts.
    const bool known = method_ != 0 && method_ <= both && (method_ & offered_) == method_;
    return known ? MseStep::done : MseStep::failed;
}

MseStep CBTMSE::receive_ya() {
    return take_public_key();
}

MseStep CBTMSE::find_request(std::span<const InfoHash> torrents, std::size_t farthest) {
    std::size_t at = 0;
    if (const MseStep step = find(secret_hash("req1"), farthest, at); step != MseStep::done) return step;
    if (buffer_.size() - at < 2 * hash_size) return MseStep::more;
    const std::string wanted(buffer_.view().substr(at + hash_size, hash_size));
    buffer_.remove(at + 2 * hash_size);
    const auto found = std::find_if(torrents.begin(), torrents.end(),
                                    [&](const InfoHash& torrent) { return torrent_hash(torrent) == wanted; });
    if (found == torrents.end()) return MseStep::failed;
    torrent_ = *found;
    incoming_ = make_stream("keyA", torrent_);
    outgoing_ = make_stream("keyB", torrent_);
    return incoming_ && outgoing_ ? MseStep::done : MseStep::failed;
}

MseStep CBTMSE::answer(std::uint32_t setting, std::uint16_t& pad_length, std::string& out) {
    std::string head;
    if (const MseStep step = take_handshake(vc_size + 6, head); step != MseStep::done) return step;
    if (head.find_first_not_of('\0') < vc_size) return MseStep::failed;
    const auto provided = get_number<std::uint32_t>(head, vc_size);
    pad_length = get_number<std::uint16_t>(head, vc_size + 4);
    method_ = setting;
    if (setting == 0) method_ = (provided & rc4_bit) != 0 ? rc4_bit : std::uint32_t{1};
    const std::string pad = padding();
    std::string block(vc_size, '\0');
    put_number(block, method_);
    put_number(block, static_cast<std::uint16_t>(pad.size()));
    out += encrypted(block + pad);
    return MseStep::done;
}

MseStep CBTMSE::take_handshake(std::size_t count, std::string& bytes) {
    if (buffer_.size() < count) return MseStep::more;
    bytes.assign(buffer_.view().substr(0, count));
    buffer_.remove(count);
    libraries_.RC4_3(incoming_.get(), bytes.data(), bytes.size());
    return MseStep::done;
}

std::string CBTMSE::read_payload(std::size_t most) {
    std::string bytes(std::min(most, buffer_.size()), '\0');
    if (method_ == rc4_bit) {
        libraries_.RC4_4(incoming_.get(), bytes.data(), buffer_.data(), bytes.size());
    } else {
        buffer_.view().copy(bytes.data(), bytes.size());
    }
    buffer_.remove(bytes.size());
    return bytes;
}

std::string CBTMSE::write_payload(std::string_view bytes) {
    std::string out(bytes.size(), '\0');
    if (method_ != rc4_bit) return std::string(bytes);
    libraries_.RC4_4(outgoing_.get(), out.data(), bytes.data(), bytes.size());
    return out;
}

void CBTMSE::decrypt(std::span<std::byte> bytes) {
    if (method_ == rc4_bit) libraries_.RC4_3(incoming_.get(), bytes.data(), bytes.size());
}

void CBTMSE::encrypt(std::span<const std::byte> bytes, std::vector<std::byte>& sealed) {
    sealed.assign(bytes.begin(), bytes.end());
    if (method_ == rc4_bit) libraries_.RC4_3(outgoing_.get(), sealed.data(), sealed.size());
}

}  // namespace vantlow
