// An HTTP/1.1 server for the comparisons: files of one folder, single ranges, kept connections, and the
// manners of difficult servers. A thread a connection; bodies go out by sendfile. Prints "port N" once it
// listens on 127.0.0.1.
//
//   server [options] FOLDER
//
// --delay-ms D                  waits so long before each answer
// --reset-min A --reset-max B   resets each connection after A to B body bytes; the size depends on the
//                               connection's number alone
// --slow-every N --slow-rate R  every Nth connection sends R bytes a second
// --fast-rate R                 the others R bytes a second (0: unlimited)
// --stall                       takes requests and never answers
#define _GNU_SOURCE
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <inttypes.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

enum { head_size = 16384, stack_size = 256 << 10, slices_a_second = 50, send_at_once = 8 << 20 };

static struct {
    int64_t delay_ms, reset_min, reset_max, slow_every, slow_rate, fast_rate;
    bool stall;
    int folder;
} options;

struct connection {
    int fd;
    int64_t rate;         // bytes a second, 0: unlimited
    int64_t until_reset;  // body bytes, -1: never
    double next_slice;    // when the next paced slice is due
    char head[head_size + 1];
    size_t have;  // bytes in head
};

struct request {
    bool get, close;
    char path[1024];
    bool ranged;
    int64_t first, last;  // -1: open; first -1: the last `last` bytes
};

static double now(void) {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (double)t.tv_sec + (double)t.tv_nsec / 1e9;
}

static void sleep_seconds(double s) {
    if (s <= 0) return;
    struct timespec t = {(time_t)s, (long)((s - (double)(time_t)s) * 1e9)};
    while (nanosleep(&t, &t) && errno == EINTR) {
    }
}

// The same number gives the same value in every run.
static uint64_t mix(uint64_t x) {
    x += 0x9e3779b97f4a7c15u;
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9u;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebu;
    return x ^ (x >> 31);
}

// The head's bytes, with a 0 in place of its empty line's end; NULL when the connection ended.
static char* read_head(struct connection* c, size_t* size) {
    for (;;) {
        c->head[c->have] = 0;
        char* end = strstr(c->head, "\r\n\r\n");
        if (end) {
            *size = (size_t)(end + 4 - c->head);
            end[2] = 0;
            return c->head;
        }
        if (c->have == head_size) return NULL;
        ssize_t n = recv(c->fd, c->head + c->have, head_size - c->have, 0);
        if (n <= 0) return NULL;
        c->have += (size_t)n;
    }
}

static const char* header(const char* head, const char* name) {
    size_t size = strlen(name);
    for (const char* line = strstr(head, "\r\n"); line; line = strstr(line + 2, "\r\n")) {
        if (!strncasecmp(line + 2, name, size) && line[2 + size] == ':') {
            return line + 3 + size + strspn(line + 3 + size, " ");
        }
    }
    return NULL;
}

static bool parse(const char* head, struct request* r) {
    char method[8];
    memset(r, 0, sizeof *r);
    if (sscanf(head, "%7s /%1023s HTTP/1.", method, r->path) != 2) return false;
    r->get = !strcmp(method, "GET");
    if (!r->get && strcmp(method, "HEAD") != 0) return false;
    const char* connection = header(head, "Connection");
    r->close = strstr(head, "HTTP/1.0\r\n") || (connection && !strncasecmp(connection, "close", 5));
    const char* range = header(head, "Range");
    if (!range || strncasecmp(range, "bytes=", 6) != 0) return true;
    r->ranged = true;
    r->first = r->last = -1;
    if (range[6] != '-') r->first = strtoll(range + 6, (char**)&range, 10);
    range = strchr(range, '-');
    if (range && range[1] >= '0' && range[1] <= '9') r->last = strtoll(range + 1, NULL, 10);
    return true;
}

static bool send_text(struct connection* c, int flags, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
static bool send_text(struct connection* c, int flags, const char* format, ...) {
    char text[1024];
    va_list list;
    va_start(list, format);
    int size = vsnprintf(text, sizeof text, format, list);
    va_end(list);
    return send(c->fd, text, (size_t)size, flags | MSG_NOSIGNAL) == size;
}

// Everything sent has arrived before the reset goes out, so that the peer gets as many bytes as were meant.
static void reset(struct connection* c) {
    int waiting = 1;
    for (int i = 0; i < 5000 && !ioctl(c->fd, SIOCOUTQ, &waiting) && waiting > 0; ++i) sleep_seconds(0.001);
    struct linger hard = {1, 0};
    setsockopt(c->fd, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
}

// How much may go out now; sleeps as the rate demands.
static size_t pace(struct connection* c, int64_t left) {
    if (c->rate <= 0) return (size_t)(left < send_at_once ? left : send_at_once);
    int64_t slice = c->rate / slices_a_second;
    if (slice < 1) slice = 1;
    if (slice > left) slice = left;
    double t = now();
    if (c->next_slice < t - 0.1) c->next_slice = t - 0.1;
    sleep_seconds(c->next_slice - t);
    c->next_slice += (double)slice / (double)c->rate;
    return (size_t)slice;
}

// False: the connection is over.
static bool send_body(struct connection* c, int file, int64_t offset, int64_t size) {
    while (size > 0) {
        int64_t left = size;
        if (c->until_reset >= 0 && left > c->until_reset) left = c->until_reset;
        for (size_t slice = left > 0 ? pace(c, left) : 0; slice > 0;) {
            ssize_t n = sendfile(c->fd, file, &offset, slice);
            if (n <= 0) return false;
            slice -= (size_t)n;
            size -= n;
            if (c->until_reset >= 0) c->until_reset -= n;
        }
        if (c->until_reset == 0) {
            reset(c);
            return false;
        }
    }
    return true;
}

// Turns the request's range into first and size within the file; false: it lies outside.
static bool place(const struct request* r, int64_t total, int64_t* first, int64_t* size) {
    *first = 0;
    *size = total;
    if (!r->ranged) return true;
    if (r->first < 0) {
        *size = r->last < total ? r->last : total;
        *first = total - *size;
        return *size > 0;
    }
    int64_t last = r->last < 0 || r->last >= total ? total - 1 : r->last;
    *first = r->first;
    *size = last + 1 - r->first;
    return r->first <= last;
}

static bool answer_file(struct connection* c, const struct request* r, int file) {
    struct stat s;
    int64_t first, size;
    if (fstat(file, &s)) return false;
    if (!place(r, s.st_size, &first, &size)) {
        return send_text(c, 0,
                         "HTTP/1.1 416 Range Not Satisfiable\r\nContent-Range: bytes */%" PRId64
                         "\r\nContent-Length: 0\r\n\r\n",
                         (int64_t)s.st_size);
    }
    char date[64], range[128] = "";
    struct tm tm;
    strftime(date, sizeof date, "%a, %d %b %Y %H:%M:%S GMT", gmtime_r(&s.st_mtime, &tm));
    if (r->ranged) {
        snprintf(range, sizeof range, "Content-Range: bytes %" PRId64 "-%" PRId64 "/%" PRId64 "\r\n", first,
                 first + size - 1, (int64_t)s.st_size);
    }
    if (!send_text(c, r->get ? MSG_MORE : 0,
                   "HTTP/1.1 %s\r\nContent-Type: application/octet-stream\r\nContent-Length: %" PRId64
                   "\r\n%sAccept-Ranges: bytes\r\nLast-Modified: %s\r\nETag: \"%" PRIx64 "-%" PRIx64
                   "\"\r\nConnection: %s\r\n\r\n",
                   r->ranged ? "206 Partial Content" : "200 OK", size, range, date, (int64_t)s.st_mtime,
                   (int64_t)s.st_size, r->close ? "close" : "keep-alive")) {
        return false;
    }
    return (!r->get || send_body(c, file, first, size)) && !r->close;
}

static bool answer(struct connection* c, const struct request* r) {
    sleep_seconds((double)options.delay_ms / 1000);
    int file = strstr(r->path, "..") ? -1 : openat(options.folder, r->path, O_RDONLY);
    if (file < 0) return send_text(c, 0, "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n");
    bool go_on = answer_file(c, r, file);
    close(file);
    return go_on;
}

static void* serve(void* argument) {
    struct connection* c = argument;
    struct request r;
    size_t size;
    char* head;
    while ((head = read_head(c, &size)) && parse(head, &r)) {
        c->have -= size;
        memmove(c->head, c->head + size, c->have);
        if (!options.stall && !answer(c, &r)) break;
    }
    close(c->fd);
    free(c);
    return NULL;
}

static void accept_one(int listener, int64_t number, const pthread_attr_t* attributes) {
    int fd = accept(listener, NULL, NULL);
    if (fd < 0) {
        sleep_seconds(0.01);
        return;
    }
    int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    struct connection* c = calloc(1, sizeof *c);
    pthread_t thread;
    if (!c) exit(1);
    c->fd = fd;
    bool slow = options.slow_every > 0 && number % options.slow_every == options.slow_every - 1;
    c->rate = slow ? options.slow_rate : options.fast_rate;
    c->until_reset = -1;
    if (options.reset_max > 0) {
        uint64_t spread = (uint64_t)(options.reset_max - options.reset_min + 1);
        c->until_reset = options.reset_min + (int64_t)(mix((uint64_t)number) % spread);
    }
    if (pthread_create(&thread, attributes, serve, c)) {
        close(fd);
        free(c);
    }
}

static void read_options(int argc, char** argv) {
    struct {
        const char* name;
        int64_t* value;
    } numbers[] = {{"--delay-ms", &options.delay_ms},   {"--reset-min", &options.reset_min},
                   {"--reset-max", &options.reset_max}, {"--slow-every", &options.slow_every},
                   {"--slow-rate", &options.slow_rate}, {"--fast-rate", &options.fast_rate}};
    int i = 1;
    for (; i < argc - 1; ++i) {
        if (!strcmp(argv[i], "--stall")) {
            options.stall = true;
            continue;
        }
        size_t k = 0;
        while (k < sizeof numbers / sizeof *numbers && strcmp(argv[i], numbers[k].name) != 0) ++k;
        if (k == sizeof numbers / sizeof *numbers || i + 2 >= argc) exit(2);
        *numbers[k].value = atoll(argv[++i]);
    }
    options.folder = i < argc ? open(argv[i], O_RDONLY | O_DIRECTORY) : -1;
    if (options.folder < 0 || options.reset_min > options.reset_max) exit(2);
}

int main(int argc, char** argv) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    signal(SIGPIPE, SIG_IGN);
    read_options(argc, argv);
    int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_in at = {.sin_family = AF_INET};
    at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof at;
    if (listener < 0 || bind(listener, (struct sockaddr*)&at, size) || listen(listener, 1024) ||
        getsockname(listener, (struct sockaddr*)&at, &size)) {
        perror("listen");
        return 1;
    }
    printf("port %d\n", ntohs(at.sin_port));
    fflush(stdout);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, stack_size);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    for (int64_t number = 0;; ++number) accept_one(listener, number, &attributes);
}
