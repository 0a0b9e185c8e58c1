/* The download benchmark's origin: a native loopback HTTP/1.1 server that
 * answers every request for /bytes?n=N with N bytes of a fixed pattern and a
 * Content-Length, keeps connections alive and sends with TCP_NODELAY. It is
 * fast enough that neither side of the benchmark waits for it, which the
 * tests' Python origin is not at these sizes.
 *
 *   origin --ready-file FILE [--lifetime SECONDS] [--parent PID]
 *
 * Binds 127.0.0.1 on a port the system picks and writes
 * "READY http=<port> pid=<pid>" to FILE and to stdout. */
#define _GNU_SOURCE
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

enum { kPattern = 1 << 20, kHead = 16384 };
static char pattern[kPattern];

static int send_all(int fd, const char *data, size_t size)
{
    while (size > 0) {
        ssize_t n = send(fd, data, size, MSG_NOSIGNAL);
        if (n <= 0)
            return -1;
        data += n;
        size -= (size_t)n;
    }
    return 0;
}

/* Serves the requests of one connection until the client closes it. */
static void *serve(void *arg)
{
    int fd = (int)(long)arg;
    char head[kHead];
    size_t filled = 0;
    for (;;) {
        char *end;
        while (!(end = memmem(head, filled, "\r\n\r\n", 4))) {
            ssize_t n = filled < sizeof head ? recv(fd, head + filled, sizeof head - filled, 0) : -1;
            if (n <= 0)
                goto done;
            filled += (size_t)n;
        }
        const size_t used = (size_t)(end + 4 - head);
        /* The size comes from the request line only. */
        const char *line_end = memmem(head, used, "\r\n", 2);
        const char *n_at = memmem(head, (size_t)(line_end - head), "n=", 2);
        const unsigned long long size = n_at ? strtoull(n_at + 2, NULL, 10) : 1024;
        const int body = strncmp(head, "HEAD ", 5) != 0;
        char reply[256];
        const int length = snprintf(reply, sizeof reply,
                                    "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\n"
                                    "Content-Length: %llu\r\nConnection: keep-alive\r\n\r\n",
                                    size);
        memmove(head, head + used, filled - used);
        filled -= used;
        if (send_all(fd, reply, (size_t)length) != 0)
            goto done;
        for (unsigned long long left = body ? size : 0; left > 0;) {
            const size_t take = left < kPattern ? (size_t)left : kPattern;
            if (send_all(fd, pattern, take) != 0)
                goto done;
            left -= take;
        }
    }
done:
    close(fd);
    return NULL;
}

int main(int argc, char **argv)
{
    const char *ready = NULL;
    long lifetime = 3600, parent = 0;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (!strcmp(argv[i], "--ready-file"))
            ready = argv[i + 1];
        else if (!strcmp(argv[i], "--lifetime"))
            lifetime = atol(argv[i + 1]);
        else if (!strcmp(argv[i], "--parent"))
            parent = atol(argv[i + 1]);
    }
    for (size_t i = 0; i < sizeof pattern; ++i)
        pattern[i] = (char)(i * 131 + (i >> 12));
    int listener = socket(AF_INET, SOCK_STREAM, 0);
    struct sockaddr_in address = {0};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (listener < 0 || bind(listener, (struct sockaddr *)&address, sizeof address) != 0 || listen(listener, 64) != 0 ||
        getsockname(listener, (struct sockaddr *)&address, &size) != 0) {
        perror("origin");
        return 1;
    }
    char line[128];
    snprintf(line, sizeof line, "READY http=%d pid=%d\n", ntohs(address.sin_port), (int)getpid());
    if (ready) {
        FILE *f = fopen(ready, "w");
        if (f) {
            fputs(line, f);
            fclose(f);
        }
    }
    fputs(line, stdout);
    fflush(stdout);
    alarm((unsigned)lifetime);  /* the process ends at the latest after its lifetime */
    for (;;) {
        int fd = accept(listener, NULL, NULL);
        if (fd < 0)
            continue;
        if (parent && kill((pid_t)parent, 0) != 0)
            return 0;
        int one = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        pthread_t thread;
        if (pthread_create(&thread, NULL, serve, (void *)(long)fd) == 0)
            pthread_detach(thread);
        else
            close(fd);
    }
}
