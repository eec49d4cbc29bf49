// The system's own declarations of addresses and names, for the files of this folder that both systems share.
#pragma once

#ifdef _WIN32
#include <winsock2.h>
// after it
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#endif
