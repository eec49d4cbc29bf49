// Runs one command and writes what it cost, as one JSON line, to the descriptor given by --report:
// wall and processor seconds, peak resident KiB, how it ended. A small process of its own, because a child's
// peak counts what its parent had resident at the fork.
//
//   measure [--report FD] [--timeout S] [--peak-after S] COMMAND [WORDS...]
//
// --timeout S     ends the command's process group after S seconds ("timeout":true)
// --peak-after S  reads the peak of the still running command after S seconds, then ends its group
#define _GNU_SOURCE
#include <errno.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

static double now(void) {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (double)t.tv_sec + (double)t.tv_nsec / 1e9;
}

static double seconds(struct timeval t) {
    return (double)t.tv_sec + (double)t.tv_usec / 1e6;
}

static long peak_kib(pid_t pid) {
    char path[64], line[256];
    long peak = -1;
    snprintf(path, sizeof path, "/proc/%d/status", (int)pid);
    FILE* file = fopen(path, "r");
    while (file && fgets(line, sizeof line, file)) {
        if (sscanf(line, "VmHWM: %ld", &peak) == 1) break;
    }
    if (file) fclose(file);
    return peak;
}

static pid_t start(char** command, const sigset_t* mask) {
    pid_t pid = fork();
    if (pid != 0) return pid;
    sigprocmask(SIG_SETMASK, mask, NULL);
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    execvp(command[0], command);
    perror(command[0]);
    _exit(127);
}

// SIGCHLD is blocked, so that the wait below ends at the child's end or at the time, whichever is first.
static bool wait_until(double end) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGCHLD);
    for (;;) {
        double left = end - now();
        if (left <= 0) return false;
        struct timespec t = {(time_t)left, (long)((left - (double)(time_t)left) * 1e9)};
        if (sigtimedwait(&set, NULL, &t) == SIGCHLD) return true;
        if (errno != EINTR && errno != EAGAIN) return false;
    }
}

int main(int argc, char** argv) {
    int report = 1, i = 1;
    double timeout = 3600, peak_after = 0;
    for (; i + 1 < argc && strncmp(argv[i], "--", 2) == 0; i += 2) {
        if (!strcmp(argv[i], "--report"))
            report = atoi(argv[i + 1]);
        else if (!strcmp(argv[i], "--timeout"))
            timeout = atof(argv[i + 1]);
        else if (!strcmp(argv[i], "--peak-after"))
            peak_after = atof(argv[i + 1]);
        else
            return 2;
    }
    if (i >= argc) return 2;
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    sigset_t block, before;
    sigemptyset(&block);
    sigaddset(&block, SIGCHLD);
    sigprocmask(SIG_BLOCK, &block, &before);

    double began = now();
    pid_t pid = start(argv + i, &before);
    if (pid < 0) return 1;
    long peak = -1;
    bool ended = wait_until(began + (peak_after > 0 ? peak_after : timeout));
    bool timed_out = !ended && peak_after <= 0;
    if (!ended) {
        peak = peak_kib(pid);
        kill(-pid, SIGTERM);
        if (!wait_until(now() + 3)) kill(-pid, SIGKILL);
    }
    int status = 0;
    struct rusage use;
    if (wait4(pid, &status, 0, &use) != pid) return 1;
    double wall = now() - began;
    if (peak < 0) peak = use.ru_maxrss;
    dprintf(report,
            "{\"wall\":%.6f,\"user\":%.6f,\"sys\":%.6f,\"peak_kib\":%ld,\"exit\":%d,\"timeout\":%s,"
            "\"still_running\":%s}\n",
            wall, seconds(use.ru_utime), seconds(use.ru_stime), peak,
            WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), timed_out ? "true" : "false",
            !ended && peak_after > 0 ? "true" : "false");
    return 0;
}
