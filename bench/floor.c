// The floors that downloads are held against: N connections ask for N equal ranges of one file. A thread each
// lets the system move the bytes through a pipe to where they belong (splice), or receives into a buffer and
// writes (write), and does nothing else.
//
//   floor PORT PATH SIZE CONNECTIONS FILE http|ftp splice|write
#define _GNU_SOURCE
#include <arpa/inet.h>
#include <fcntl.h>
#include <inttypes.h>
#include <netinet/in.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

// Smaller reads cost more: the sender's acknowledgements are worked off in the reader's time.
enum { buffer_size = 2 << 20, max_connections = 64, head_size = 4096 };

static int port;
static const char* path;
static int file;
static int ftp;
static int writes;

struct part {
    int64_t begin, end;
    pthread_t thread;
};

static void fail(const char* what) {
    perror(what);
    exit(1);
}

static void write_all(const char* data, size_t size, int64_t offset) {
    while (size > 0) {
        ssize_t n = pwrite(file, data, size, offset);
        if (n <= 0) fail("pwrite");
        data += n;
        size -= (size_t)n;
        offset += n;
    }
}

static int connect_to(int to_port) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    struct sockaddr_in to = {.sin_family = AF_INET, .sin_port = htons((uint16_t)to_port)};
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (fd < 0 || connect(fd, (struct sockaddr*)&to, sizeof to)) fail("connect");
    return fd;
}

// The last line of the next reply, which must begin with that digit.
static void expect(FILE* control, char* line, int line_size, char digit) {
    do {
        if (!fgets(line, line_size, control)) fail("control");
    } while (strlen(line) < 4 || line[3] != ' ');
    if (line[0] != digit) {
        fprintf(stderr, "unexpected reply: %s", line);
        exit(1);
    }
}

// Logs in and asks for the part; the data connection. The control connection stays open.
static int ask_ftp(const struct part* part) {
    int fd = connect_to(port);
    FILE* control = fdopen(fd, "r");
    char line[1024];
    unsigned high, low;
    if (!control) fail("fdopen");
    expect(control, line, sizeof line, '2');
    dprintf(fd, "USER anonymous\r\n");
    expect(control, line, sizeof line, '3');
    dprintf(fd, "PASS floor@\r\n");
    expect(control, line, sizeof line, '2');
    dprintf(fd, "TYPE I\r\n");
    expect(control, line, sizeof line, '2');
    dprintf(fd, "PASV\r\n");
    expect(control, line, sizeof line, '2');
    if (sscanf(line, "227 Entering Passive Mode (127,0,0,1,%u,%u)", &high, &low) != 2) fail("PASV");
    int data = connect_to((int)(high * 256 + low));
    dprintf(fd, "REST %" PRId64 "\r\n", part->begin);
    expect(control, line, sizeof line, '3');
    dprintf(fd, "RETR %s\r\n", path + 1);
    expect(control, line, sizeof line, '1');
    return data;
}

static int ask(const struct part* part) {
    int fd = connect_to(port);
    char request[1024];
    int size = snprintf(request, sizeof request,
                        "GET %s HTTP/1.1\r\nHost: 127.0.0.1\r\nRange: bytes=%" PRId64 "-%" PRId64 "\r\n\r\n",
                        path, part->begin, part->end - 1);
    if (send(fd, request, (size_t)size, 0) != size) fail("send");
    return fd;
}

// Reads the head; what came behind it is written. Returns the position reached.
static int64_t pass_head(int fd, const struct part* part) {
    char head[head_size + 1];
    size_t have = 0;
    char* end = NULL;
    while (!end) {
        ssize_t n = have < head_size ? recv(fd, head + have, head_size - have, 0) : 0;
        if (n <= 0) fail("head");
        have += (size_t)n;
        head[have] = 0;
        end = strstr(head, "\r\n\r\n");
    }
    if (strncmp(head, "HTTP/1.1 206 ", 13) != 0) {
        fprintf(stderr, "unexpected answer: %.60s\n", head);
        exit(1);
    }
    size_t rest = have - (size_t)(end + 4 - head);
    write_all(end + 4, rest, part->begin);
    return part->begin + (int64_t)rest;
}

static size_t next_size(int64_t at, int64_t end) {
    return end - at < buffer_size ? (size_t)(end - at) : (size_t)buffer_size;
}

static void receive_and_write(int fd, int64_t at, int64_t end) {
    char* buffer = aligned_alloc(4096, buffer_size);
    if (!buffer) fail("memory");
    while (at < end) {
        ssize_t n = recv(fd, buffer, next_size(at, end), 0);
        if (n <= 0) fail("recv");
        write_all(buffer, (size_t)n, at);
        at += n;
    }
    free(buffer);
}

static void move_through_a_pipe(int fd, int64_t at, int64_t end) {
    int ends[2];
    if (pipe(ends)) fail("pipe");
    fcntl(ends[1], F_SETPIPE_SZ, 1 << 20);  // the most that everybody may have
    while (at < end) {
        ssize_t n = splice(fd, NULL, ends[1], NULL, next_size(at, end), SPLICE_F_MOVE | SPLICE_F_MORE);
        if (n <= 0) fail("splice from the socket");
        while (n > 0) {
            ssize_t moved = splice(ends[0], NULL, file, &at, (size_t)n, SPLICE_F_MOVE | SPLICE_F_MORE);
            if (moved <= 0) fail("splice into the file");
            n -= moved;
        }
    }
    close(ends[0]);
    close(ends[1]);
}

static void* receive(void* argument) {
    const struct part* part = argument;
    int fd = ftp ? ask_ftp(part) : ask(part);
    int64_t at = ftp ? part->begin : pass_head(fd, part);
    (writes ? receive_and_write : move_through_a_pipe)(fd, at, part->end);
    close(fd);
    return NULL;
}

int main(int argc, char** argv) {
    if (argc != 8) return 2;
    ftp = strcmp(argv[6], "ftp") == 0;
    writes = strcmp(argv[7], "write") == 0;
    port = atoi(argv[1]);
    path = argv[2];
    int64_t size = atoll(argv[3]);
    int count = atoi(argv[4]);
    if (count < 1 || count > max_connections) return 2;
    file = open(argv[5], O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (file < 0) fail(argv[5]);
    struct part parts[max_connections];
    for (int i = 0; i < count; ++i) {
        parts[i].begin = size * i / count;
        parts[i].end = size * (i + 1) / count;
        if (pthread_create(&parts[i].thread, NULL, receive, &parts[i])) fail("thread");
    }
    for (int i = 0; i < count; ++i) pthread_join(parts[i].thread, NULL);
    return close(file) ? 1 : 0;
}
