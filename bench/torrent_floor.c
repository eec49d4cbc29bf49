// The floor that torrents are held against: asks N peers for a file's pieces in turn, receives, hashes
// (SHA-1) and writes on one thread, and does nothing else. Plain connections, BEP 3; every peer must have
// everything.
//
//   torrent_floor INFO_HASH SIZE PIECE_SIZE HASHES FILE ADDRESS:PORT...
//
// INFO_HASH in hexadecimal; HASHES: a file of the pieces' 20-byte digests.
#define _GNU_SOURCE
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <openssl/sha.h>
#include <poll.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

enum { block_size = 16384, window = 192, max_peers = 8, slots = 16, room = 1 << 20, handshake_size = 68 };

// A piece that is being received: peers that read with several threads answer out of turn.
struct slot {
    int64_t piece, got;  // bytes of it
    unsigned char* bytes;
};

struct peer {
    int fd;
    int greeted, unchoked;
    struct slot slots[slots];
    int64_t next, asked;  // the piece whose blocks are asked for now, -1: none, and how far
    int in_flight;
    unsigned char* bytes;  // received and not yet understood
    size_t count;
};

static int64_t size, piece_size, piece_count, next_piece, done;
static unsigned char* hashes;
static int file;

static void fail(const char* what) {
    perror(what);
    exit(1);
}

static uint32_t number(const unsigned char* p) {
    return (uint32_t)p[0] << 24 | (uint32_t)p[1] << 16 | (uint32_t)p[2] << 8 | p[3];
}

static void put(unsigned char* p, uint32_t value) {
    uint32_t big = htonl(value);
    memcpy(p, &big, 4);
}

static void send_all(int fd, const unsigned char* data, size_t count) {
    while (count > 0) {
        ssize_t n = send(fd, data, count, MSG_NOSIGNAL);
        if (n <= 0) fail("send");
        data += n;
        count -= (size_t)n;
    }
}

static int64_t length_of(int64_t piece) {
    return piece + 1 < piece_count ? piece_size : size - piece * piece_size;
}

// One message for as many requests as the window has room for.
static void ask(struct peer* p) {
    unsigned char out[window * 17];
    size_t used = 0;
    while (p->unchoked && p->in_flight < window) {
        if (p->next < 0 || p->asked == length_of(p->next)) {
            if (next_piece == piece_count) break;
            p->next = next_piece++;
            p->asked = 0;
        }
        int64_t rest = length_of(p->next) - p->asked;
        uint32_t want = rest < block_size ? (uint32_t)rest : block_size;
        put(out + used, 13);
        out[used + 4] = 6;
        put(out + used + 5, (uint32_t)p->next);
        put(out + used + 9, (uint32_t)p->asked);
        put(out + used + 13, want);
        used += 17;
        p->asked += want;
        ++p->in_flight;
    }
    if (used > 0) send_all(p->fd, out, used);
}

static struct slot* slot_of(struct peer* p, int64_t piece) {
    struct slot* empty = NULL;
    for (int i = 0; i < slots; ++i) {
        if (p->slots[i].got > 0 && p->slots[i].piece == piece) return &p->slots[i];
        if (p->slots[i].got == 0) empty = &p->slots[i];
    }
    if (!empty) {
        fputs("torrent_floor: too many pieces at once\n", stderr);
        exit(1);
    }
    if (!empty->bytes) empty->bytes = malloc((size_t)piece_size);
    empty->piece = piece;
    return empty;
}

static void take(struct peer* p, const unsigned char* body, uint32_t length) {
    int64_t piece = number(body + 1), begin = number(body + 5), count = length - 9;
    if (piece >= piece_count || begin + count > length_of(piece)) {
        fputs("torrent_floor: a block that is none\n", stderr);
        exit(1);
    }
    struct slot* slot = slot_of(p, piece);
    memcpy(slot->bytes + begin, body + 9, (size_t)count);
    slot->got += count;
    --p->in_flight;
    if (slot->got < length_of(piece)) return;
    unsigned char made[20];
    SHA1(slot->bytes, (size_t)slot->got, made);
    if (memcmp(made, hashes + 20 * piece, 20) != 0) {
        fputs("torrent_floor: a wrong piece\n", stderr);
        exit(1);
    }
    if (pwrite(file, slot->bytes, (size_t)slot->got, piece * piece_size) != slot->got) fail("pwrite");
    slot->got = 0;
    ++done;
}

static void understand(struct peer* p) {
    size_t at = 0;
    if (!p->greeted) {
        if (p->count < handshake_size) return;
        p->greeted = 1;
        at = handshake_size;
    }
    while (p->count - at >= 4) {
        uint32_t length = number(p->bytes + at);
        if (p->count - at - 4 < length) break;
        const unsigned char* body = p->bytes + at + 4;
        if (length > 0 && body[0] == 0) fail("choked");
        if (length > 0 && body[0] == 1) p->unchoked = 1;
        if (length > 9 && body[0] == 7) take(p, body, length);
        at += 4 + length;
    }
    memmove(p->bytes, p->bytes + at, p->count - at);
    p->count -= at;
    ask(p);
}

static void call(struct peer* p, char* address, const unsigned char* greeting) {
    static const unsigned char interested[5] = {0, 0, 0, 1, 2};
    struct sockaddr_in to = {.sin_family = AF_INET};
    char* colon = strrchr(address, ':');
    if (!colon) fail("address");
    *colon = 0;
    to.sin_port = htons((uint16_t)atoi(colon + 1));
    if (inet_pton(AF_INET, address, &to.sin_addr) != 1) fail(address);
    p->fd = socket(AF_INET, SOCK_STREAM, 0);
    if (p->fd < 0 || connect(p->fd, (struct sockaddr*)&to, sizeof to)) fail("connect");
    p->bytes = malloc(room);
    p->next = -1;
    send_all(p->fd, greeting, handshake_size);
    send_all(p->fd, interested, sizeof interested);
}

static void read_hashes(const char* path) {
    FILE* in = fopen(path, "rb");
    hashes = malloc((size_t)piece_count * 20);
    if (!in || fread(hashes, 20, (size_t)piece_count, in) != (size_t)piece_count) fail(path);
    fclose(in);
}

int main(int argc, char** argv) {
    if (argc < 7 || argc - 6 > max_peers || strlen(argv[1]) != 40) {
        fputs("usage: torrent_floor INFO_HASH SIZE PIECE_SIZE HASHES FILE ADDRESS:PORT...\n", stderr);
        return 2;
    }
    unsigned char greeting[handshake_size] = "\023BitTorrent protocol";
    for (int i = 0; i < 20; ++i) sscanf(argv[1] + 2 * i, "%2hhx", greeting + 28 + i);
    snprintf((char*)greeting + 48, 20, "-FL0000-%011d", (int)getpid());
    size = atoll(argv[2]);
    piece_size = atoll(argv[3]);
    piece_count = (size + piece_size - 1) / piece_size;
    read_hashes(argv[4]);
    file = open(argv[5], O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (file < 0) fail(argv[5]);
    struct peer peers[max_peers] = {0};
    struct pollfd waits[max_peers];
    int count = argc - 6;
    for (int i = 0; i < count; ++i) {
        greeting[handshake_size - 1] = (unsigned char)('a' + i);
        call(&peers[i], argv[6 + i], greeting);
        waits[i] = (struct pollfd){.fd = peers[i].fd, .events = POLLIN};
    }
    while (done < piece_count) {
        if (poll(waits, (nfds_t)count, -1) < 0) fail("poll");
        for (int i = 0; i < count; ++i) {
            if (!waits[i].revents) continue;
            struct peer* p = &peers[i];
            ssize_t n = recv(p->fd, p->bytes + p->count, room - p->count, 0);
            if (n <= 0) fail("recv");
            p->count += (size_t)n;
            understand(p);
        }
    }
    return 0;
}
