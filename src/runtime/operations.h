// The operations that the run-time libraries export: their shapes, for the libraries and for their callers.
//
// A C interface: no exception crosses it, no memory is owned across it except the handles that its own pairs
// of operations make and free. Sizes are in bytes. A handle belongs to one thread at a time.
#pragma once

// NOLINTBEGIN(modernize-*): C reads this too
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- libssh: compression (RFC 1950, 1951, 1952) ---- */

/* A running inflate or deflate. */
typedef struct VantlowZStream VantlowZStream;

/* What a step of a stream answers. */
enum {
    VANTLOW_Z_MORE = 0, /* go on: give more input or more room */
    VANTLOW_Z_END = 1,  /* the stream is complete; input behind its end was not taken */
    VANTLOW_Z_BAD =
        -1, /* the input is not such a stream, or is damaged; also when memory runs out. It stays so */
};

/* Begin to inflate a gzip stream, a zlib stream, or a deflate stream without any wrapping. NULL without
   memory. */
typedef VantlowZStream* GZ_InflateInit_t(void);
typedef VantlowZStream* ZLib_InflateInit_t(void);
typedef VantlowZStream* Raw_InflateInit_t(void);
/* Inflates from `in` (*in_size bytes; set to the number taken) into `out` (room for *out_size; set to the
   number written). VANTLOW_Z_MORE with nothing taken and nothing written says that input or room is needed; a
   stream that is cut short never gets to VANTLOW_Z_END. A gzip stream is one member (RFC 1952, 2.2): what
   follows it needs a new one. */
typedef int ZLib_Inflate_t(VantlowZStream* stream, const void* in, size_t* in_size, void* out,
                           size_t* out_size);
typedef void ZLib_InflateEnd_t(VantlowZStream* stream); /* NULL is fine */

/* Begin to deflate into a zlib stream; level 1 (fast) to 9 (small). NULL without memory and for another
 * level. */
typedef VantlowZStream* ZLib_DeflateInit_t(int level);
/* As ZLib_Inflate; with `finish` the stream is brought to its end (call until VANTLOW_Z_END). */
typedef int ZLib_Deflate_t(VantlowZStream* stream, const void* in, size_t* in_size, void* out,
                           size_t* out_size, int finish);
typedef void ZLib_DeflateEnd_t(VantlowZStream* stream); /* NULL is fine */
/* Frees memory that an operation of this library returned; none does yet, NULL is fine. */
typedef void ZLib_Free_t(void* memory);

/* ---- libsecur: Diffie-Hellman ---- */

/* One side's keys, and the secret once the other side's key was taken. */
typedef struct VantlowDh VantlowDh;

/* New random keys over the group of this prime and generator (big-endian; the prime at most 1024 bytes). NULL
   for arguments that name no group and without memory. All keys have as many bytes as the prime. */
typedef VantlowDh* DH_Create_t(const void* prime, size_t prime_size, const void* generator,
                               size_t generator_size);
typedef void DH_Delete_t(VantlowDh* dh); /* NULL is fine */
/* Writes the public key, big-endian, zeroes in front. `size` is the prime's; returned on success, else 0. */
typedef int DH_GetPublicKey_t(VantlowDh* dh, void* buffer, size_t size);
/* Takes the other side's public key. `size` on success; 0 for a key that would make the secret known to
   anybody (0, 1, the prime less one) or that is not below the prime. */
typedef int DH_ComputeSecret_t(VantlowDh* dh, const void* key, size_t size);
/* Writes the shared secret like the public key. 0 while there is none. */
typedef int DH_GetSecret_t(VantlowDh* dh, void* buffer, size_t size);

/* ---- libsecur: RC4 ---- */

/* A running key stream. */
typedef struct VantlowRc4 VantlowRc4;

/* The key stream of a key (5 to 256 bytes) without its first `discarded` bytes. NULL for other keys and
   without memory. */
typedef VantlowRc4* RC4_Create_t(const void* key, size_t key_size, size_t discarded);
typedef void RC4_Delete_t(VantlowRc4* stream); /* NULL is fine */
/* Encrypts, or decrypts, from `source` into `destination`, which are the same or do not overlap. */
typedef void RC4_4_t(VantlowRc4* stream, void* destination, const void* source, size_t size);
/* The same in place. */
typedef void RC4_3_t(VantlowRc4* stream, void* buffer, size_t size);

/* ---- libsecur: TLS 1.2 and 1.3 (RFC 5246, RFC 8446), the client's side ---- */

/* What is trusted, and the sessions that later connections resume. Any thread may use it. */
typedef struct VantlowTlsEngine VantlowTlsEngine;
/* One connection. */
typedef struct VantlowTls VantlowTls;

/* What TLS operations answer. Failures are for good: the connection can only be freed. */
enum {
    VANTLOW_TLS_OK = 0,
    VANTLOW_TLS_QUIET = -1,       /* nothing came while the transport waited: no failure, call again */
    VANTLOW_TLS_INTERRUPTED = -2, /* the interrupt said so, or the transport */
    VANTLOW_TLS_REFUSED = -6,     /* the two sides cannot agree, and will not the next time */
    VANTLOW_TLS_UNTRUSTED = -21,  /* the certificate of the server was not accepted */
    VANTLOW_TLS_BROKEN = -30      /* cut, damaged, or ended without TLS's own end */
};

/* The bytes below TLS. Called from within SSL_Connect, SSL_Recv, SSL_Send and SSL_Free, on their thread. */
typedef struct VantlowTlsTransport {
    void* context;
    /* Up to `size` bytes, waiting for the first one; their number, 0 when the peer sends nothing more,
       VANTLOW_TLS_QUIET when none came in time, or a failure of the list above. */
    ptrdiff_t (*receive)(void* context, void* into, size_t size);
    /* Sends all of it; VANTLOW_TLS_OK or a failure. */
    int (*send)(void* context, const void* from, size_t size);
} VantlowTlsTransport;

/* What a connection is to be. The texts are copied. */
typedef struct VantlowTlsPlan {
    VantlowTlsTransport transport;
    const char* host;     /* name or IP literal that the certificate must be for; a name is also sent (SNI) */
    const char* protocol; /* offered by ALPN (RFC 7301), "http/1.1"; NULL: none */
    const char* session_key; /* connections with the same text resume each other's sessions; NULL: none */
    int verify;              /* 0: any certificate will do */
    int end_without_notice;  /* 1: a closed transport is an end like TLS's own close_notify */
} VantlowTlsPlan;

/* What was agreed. */
typedef struct VantlowTlsFacts {
    int version;       /* 12 or 13 */
    int resumed;       /* 1: an earlier session went on */
    char cipher[64];   /* the cipher suite's name */
    char protocol[16]; /* chosen by ALPN; empty: none */
} VantlowTlsFacts;

/* Prepares TLS. `roots`: the certificates to trust in PEM or one in DER, `size` bytes, copied; NULL: those of
   the system. NULL when they cannot be read; `error` (may be NULL, `room` bytes) then says why. Freed by
   SSL_Exit, after all connections made with it. */
typedef VantlowTlsEngine* SSL_Init_t(const void* roots, size_t size, char* error, size_t room);
typedef void SSL_Exit_t(VantlowTlsEngine* engine); /* NULL is fine */
/* Frees what the calling thread holds besides; the thread may use TLS again. */
typedef void SSL_Thread_Exit_t(void);

/* A connection that SSL_Connect opens. NULL without memory. */
typedef VantlowTls* SSL_New_t(VantlowTlsEngine* engine, const VantlowTlsPlan* plan);
/* Frees the connection; where it still stands the server is told (close_notify). NULL is fine. */
typedef void SSL_Free_t(VantlowTls* tls);
/* Asked before each step of what follows; another answer than 0 ends the operation. NULL: none. */
typedef void SSL_Set_Interrupt_t(VantlowTls* tls, int (*interrupt)(void* context), void* context);
/* Where a failure's sentence is left (UTF-8, ends with a zero, cut to `room` bytes). NULL: nowhere. */
typedef void SSL_Set_ErrPtr_t(VantlowTls* tls, char* text, size_t room);
/* The handshake; `facts` may be NULL. VANTLOW_TLS_QUIET can be followed by another call. */
typedef int SSL_Connect_t(VantlowTls* tls, VantlowTlsFacts* facts);
/* Up to `size` (above 0) bytes: their number, 0 at the end that the server announced, or a failure. Waits
   only while there is nothing to give. */
typedef ptrdiff_t SSL_Recv_t(VantlowTls* tls, void* into, size_t size);
/* Sends all of it. */
typedef int SSL_Send_t(VantlowTls* tls, const void* from, size_t size);

/* ---- libssh: SFTP (version 3 over SSH, RFC 4253), spoken to in the words of FTP ---- */

/* One connection. */
typedef struct VantlowSsh VantlowSsh;

enum {
    VANTLOW_SSH_OK = 0,
    VANTLOW_SSH_QUIET = -1,      /* nothing came while the transport waited: no failure, call again */
    VANTLOW_SSH_TRANSPORT = -2,  /* the transport failed: its owner knows why */
    VANTLOW_SSH_NO_FILES = -6,   /* the two sides cannot agree, or the server has no SFTP */
    VANTLOW_SSH_REFUSED = -20,   /* no login was accepted */
    VANTLOW_SSH_UNTRUSTED = -21, /* the server's key is not the known one, or was not accepted */
    VANTLOW_SSH_BROKEN = -30     /* cut or damaged */
};

/* The bytes below. Called from within the operations on their thread. */
typedef struct VantlowSshTransport {
    void* context;
    /* Up to `size` bytes, waiting for the first one; their number, 0 when the peer sends nothing more,
       VANTLOW_SSH_QUIET when none came in time, or VANTLOW_SSH_TRANSPORT. */
    ptrdiff_t (*receive)(void* context, void* into, size_t size);
    /* Sends all of it; VANTLOW_SSH_OK or VANTLOW_SSH_TRANSPORT. */
    int (*send)(void* context, const void* from, size_t size);
} VantlowSshTransport;

/* Who logs in, and which server is the right one. Needed during Sftp_Connect only. */
typedef struct VantlowSshLogin {
    const char* host; /* as the known hosts name it */
    int port;
    const char* user;
    const char* password;    /* NULL: none; also tried as the pass phrase of an encrypted key */
    const char* const* keys; /* texts of private keys (PEM, OpenSSH), tried in this order */
    size_t key_count;
    size_t first_keys; /* so many of them were asked for and come before the password */
    int use_agent;
    const char* known_hosts; /* text in the form of OpenSSH's known_hosts; NULL: none */
    size_t known_hosts_size;
    /* Asked about a server whose key is not known: its fingerprint ("ED25519 SHA256:...") and the line that
       would make it known. Another answer than 0 accepts it. NULL refuses. */
    int (*accept)(void* context, const char* fingerprint, const char* known_hosts_line);
    void* accept_context;
} VantlowSshLogin;

/* A connection that Sftp_Connect opens; NULL without memory. */
typedef VantlowSsh* SSH_Init_t(const VantlowSshTransport* transport);
/* Frees it; where it still stands it ends without a word to the server. NULL is fine. */
typedef void SSH_Exit_t(VantlowSsh* ssh);
/* How many bytes are received at once, 32 KiB to 4 MiB (before Sftp_Connect; 256 KiB otherwise). */
typedef void SSH_Settings_t(VantlowSsh* ssh, size_t receive_buffer);
/* Where a failure's sentence is left (UTF-8, ends with a zero, cut to `room` bytes). NULL: nowhere. */
typedef void SSH_SetErrPtr_t(VantlowSsh* ssh, char* text, size_t room);
/* Key exchange, the server's key, the login, SFTP. VANTLOW_SSH_QUIET is a time-out here: a failure. */
typedef int Sftp_Connect_t(VantlowSsh* ssh, const VantlowSshLogin* login);
/* One command: "CWD path", "TYPE I", "MDTM name", "SIZE name", "REST offset", "RETR name", "ABOR", "NOOP".
   `reply` (`room` bytes) gets the answer in FTP's form, "125 transfer starting. (Restarting at 0)" for
   one. VANTLOW_SSH_OK when there is an answer, whatever it says. */
typedef int SSH_Send_t(VantlowSsh* ssh, const char* command, char* reply, size_t room);
/* Up to `size` bytes of the file that RETR opened: their number, 0 at its end, or a failure. Reads ahead by
   some multiples of `size`. */
typedef ptrdiff_t SSH_Recv_t(VantlowSsh* ssh, void* into, size_t size);
/* Tells the server that this is the end. The handle is still to be freed. */
typedef void SSH_Disconnect_t(VantlowSsh* ssh);

/* ---- libsecur: one-time passwords (RFC 2289) ---- */

/* Room for a response with its terminating zero. */
enum { VANTLOW_OPIE_ROOM = 17 };

/* Answers a challenge: `algorithm` is "otp-md4", "otp-md5" or "otp-sha1", `sequence` 0 or more, `seed` and
   `secret` are texts. Writes 16 hexadecimal digits and a zero to `response`. 0, or -1 when an argument is not
   one of these or the algorithm is not there. */
typedef int opieKeyGenerate_t(const char* algorithm, int sequence, const char* seed, const char* secret,
                              char* response);

/* ---- libsecur and libssl: logins ---- */

/* What a Digest answer is made of (RFC 2617, RFC 7616). NULL is an empty text; all text is as it goes on the
   wire. */
typedef struct VantlowDigest {
    const char* qop;       /* "auth", "auth-int" (of an empty body), or empty */
    const char* algorithm; /* "MD5", "MD5-sess", "SHA-256", "SHA-256-sess" in any case; empty: MD5 */
    const char* nonce;
    const char* realm;
    const char* user;
    const char* password;
    const char* method;
    const char* uri;
    const char* cnonce;
    const char* nc; /* eight hexadecimal digits */
} VantlowDigest;

/* libsecur. With a text: its MD5 in 32 hexadecimal digits and a zero byte (a client nonce); else the response
   for the parts, with MD5 alone. 1 on success; 0 without room or for an algorithm that is not known. */
typedef int Digest2617_t(const VantlowDigest* parts, const char* text, char* out, size_t room);
/* libssl. The response for the parts with any of the algorithms: 32 or 64 digits and a zero byte. 1 or 0. */
typedef int WDigest_Response_t(const VantlowDigest* parts, char* out, size_t room);

/* libsecur. The last message of an NTLM exchange (MS-NLMP), for the server's challenge message, with version
   2 where the challenge allows it. User (may be DOMAIN\name) and password are UTF-8. The message's size, 0
   without room and for bytes that are no challenge. Up to 2 KiB and the challenge's size are enough room. */
typedef size_t NTLM1_ChallengeResponse_t(const void* challenge, size_t challenge_size, const char* user,
                                         const char* password, void* out, size_t room);

/* libssl. A challenge message as an object: read once, answered as often as needed. */
typedef struct VantlowNtlm VantlowNtlm;
typedef VantlowNtlm* NTLM_Challenge_t(const void* challenge, size_t size); /* NULL for other bytes */
typedef size_t NTLM_Response_t(const VantlowNtlm* ntlm, const char* user, const char* password, void* out,
                               size_t room);    /* as NTLM1_ChallengeResponse */
typedef void NTLM_Destroy_t(VantlowNtlm* ntlm); /* NULL is fine */

/* ---- libnames: host names ---- */

/* Room for every host name with its terminating zero. */
enum { VANTLOW_NAME_ROOM = 256 };

/* The form of a host name that goes out (UTS 46, non-transitional; RFC 5891): `name` is UTF-8 and ends with a
   zero, `out` gets ASCII, in lower case where something was changed, and a zero. It may hold characters that
   no host name has, such as a slash: the caller looks. The size without the zero; 0 for what is no name and
   without room. Any thread may call. */
typedef size_t Names_ToAscii_t(const char* name, char* out, size_t room);
/* Whether everybody may register names right below this one ("com", "co.uk", "github.io"; publicsuffix.org).
   `domain` is in lower case and ASCII, without dots at its ends. 1 or 0; -1 when there is no list. Any thread
   may call. */
typedef int Names_IsPublicSuffix_t(const char* domain);

/* ---- libBTDHT: the distributed hash table of BitTorrent ---- */

/* One node (BEP 5, BEP 32) for the process. It owns no socket and no clock that wakes it: its owner hands it
   datagrams and sends what it says. But for BTDHT_AddNode and BTDHT_AddNodeV6, which any thread may call, one
   thread at a time calls. Info hashes and node ids have 20 bytes; addresses 4 or 16, in network order. */

enum { VANTLOW_DHT_IPV4 = 1, VANTLOW_DHT_IPV6 = 2, VANTLOW_DHT_LARGEST = 1500 /* bytes of a datagram */ };

/* The owner's side. Called from within BTDHT_Work alone. */
typedef struct VantlowDhtOwner {
    void* context;
    /* Sends a datagram: 1, or 0 where it is not sent. */
    int (*send)(void* context, const uint8_t* address, size_t address_size, uint16_t port,
                const void* datagram, size_t size);
    /* A peer of a torrent that is searched for; the same one may be told many times, and nothing is known of
       it but what a node says. */
    void (*found)(void* context, const uint8_t* info_hash, const uint8_t* address, size_t address_size,
                  uint16_t port);
} VantlowDhtOwner;

/* Starts the node, with the id that it had the last time, for the families of addresses (VANTLOW_DHT_IPV4 and
   VANTLOW_DHT_IPV6). 1, or 0 where it runs already or memory or random bytes are missing. */
typedef int BTDHT_Start_t(const VantlowDhtOwner* owner, const uint8_t* id, int families);
typedef void BTDHT_Stop_t(void);
/* From now on the torrent's peers are searched for, and told that one listens at the port (0: none is told):
   as soon as nodes are known, every 25 minutes, and after a minute where no peer was found. 1, or 0 where no
   further torrent is taken. */
typedef int BTDHT_StartAnnounce_t(const uint8_t* info_hash, uint16_t port);
typedef void BTDHT_StopAnnounce_t(const uint8_t* info_hash);
/* Searches once more, now: for a torrent of BTDHT_StartAnnounce, or for another one, once. */
typedef int BTDHT_GetPeers_t(const uint8_t* info_hash);
/* Tells of a node, which is asked whether it is there, also before the node is started. At most 256 wait. */
typedef void BTDHT_AddNode_t(const uint8_t* address, uint16_t port);
typedef void BTDHT_AddNodeV6_t(const uint8_t* address, uint16_t port);
/* Takes a datagram that came from there (NULL: none came), and does what is due. Longer ones than
   VANTLOW_DHT_LARGEST are dropped. The milliseconds after which it wants to be called again at the latest. */
typedef uint32_t BTDHT_Work_t(const uint8_t* address, size_t address_size, uint16_t port,
                              const void* datagram, size_t size);
/* Writes the nodes of one family that answered lately, each as its address and its port, big-endian; the
   bytes that were written. */
typedef size_t BTDHT_Nodes_t(int family, uint8_t* into, size_t room);

/* ---- libBTDHT: uTP, connections over datagrams (BEP 29) ---- */

/* One end of uTP, at a UDP port of its owner, who hands it datagrams and sends what it says. Each belongs,
   with its clients, to one thread at a time; there may be many. Addresses are those of the system's sockets
   (sockaddr_in, sockaddr_in6). */
typedef struct VantlowUtpServer VantlowUtpServer;
/* A connection. From UTP_Cli_Open or `called` on, until UTP_Cli_Close. */
typedef struct VantlowUtpClient VantlowUtpClient;

enum { VANTLOW_UTP_LARGEST = 1500 /* bytes of a datagram */ };

/* The news of a client. */
enum {
    VANTLOW_UTP_CONNECTED = 1,
    VANTLOW_UTP_READABLE = 2, /* there are bytes, or the end, after there were none */
    VANTLOW_UTP_WRITABLE = 4, /* it takes bytes again */
    VANTLOW_UTP_FAILED = 8,   /* refused, reset or too late: it is of no more use */
};

/* The owner's side. None of these may call an operation of this table. */
typedef struct VantlowUtpOwner {
    void* context;
    /* Sends a datagram, or loses it. */
    void (*send)(void* context, const void* address, size_t address_size, const void* datagram, size_t size);
    /* A peer has called, and its first bytes are there. The client's tag; NULL: it is not wanted, and is
       gone. It takes bytes. */
    void* (*called)(void* context, VantlowUtpClient* client, const void* address, size_t address_size);
    /* Comes from UTP_Srv_Take and UTP_Srv_Send alone. */
    void (*news)(void* tag, int news);
} VantlowUtpOwner;

/* NULL without memory. */
typedef VantlowUtpServer* UTP_Srv_Init_t(const VantlowUtpOwner* owner);
/* Ends all connections at once; clients that are not closed are freed, too. NULL is fine. */
typedef void UTP_Srv_End_t(VantlowUtpServer* server);
/* Takes a datagram that came from there. 1, or 0 where it is none of uTP. */
typedef int UTP_Srv_Take_t(VantlowUtpServer* server, const void* address, size_t address_size,
                           const void* datagram, size_t size);
/* Sends what is due: acknowledgements once all datagrams that are there were taken, what got lost. The
   milliseconds after which it wants to be called again at the latest; 0: there is no connection. */
typedef uint32_t UTP_Srv_Send_t(VantlowUtpServer* server);
/* Calls a peer; `tag` (not NULL) comes with the news. NULL without memory. */
typedef VantlowUtpClient* UTP_Cli_Open_t(VantlowUtpServer* server, const void* address, size_t address_size,
                                         void* tag);
/* Frees the client. What it took goes on being sent, until the server ends. */
typedef void UTP_Cli_Close_t(VantlowUtpClient* client);
/* The bytes that it took; 0: none until VANTLOW_UTP_WRITABLE comes; below 0: it has ended or failed. */
typedef ptrdiff_t UTP_Cli_Send_t(VantlowUtpClient* client, const void* bytes, size_t size);
/* The bytes that were read; 0: none until VANTLOW_UTP_READABLE comes; -1: the peer sends nothing more; -2: it
   has failed. A peer that sends far more than it may fails. */
typedef ptrdiff_t UTP_Cli_Recv_t(VantlowUtpClient* client, void* into, size_t room);

/* ---- libportmap: ports that routers pass on ---- */

/* The router in front of this machine, which takes orders over NAT-PMP (RFC 6886) or UPnP (IGD). */
typedef struct VantlowRouter VantlowRouter;

enum { VANTLOW_PORT_TCP = 6, VANTLOW_PORT_UDP = 17, VANTLOW_ROUTER_ROOM = 128 /* for each text */ };

/* Looks for it in this machine's networks, for some seconds at most. `stopped` (may be NULL) is asked now and
   then, and anything but 0 ends the search. NULL where none answers. */
typedef VantlowRouter* PortMap_Find_t(int (*stopped)(void* context), void* context);
/* The same for its firewall of IPv6 (UPnP, WANIPv6FirewallControl:1). To open a port of it is to have it let
   calls in for that port of this machine. Where this machine has no address that the world reaches over IPv6,
   it looks for none, and `has_address` becomes 0, else 1. */
typedef VantlowRouter* PortMap_FindFirewall_t(int (*stopped)(void* context), void* context, int* has_address);
typedef void PortMap_Forget_t(VantlowRouter* router); /* NULL is fine */
/* Its protocol ("NAT-PMP", "UPnP"), and the address that it has outside, empty where it tells none; that of
   this machine where it is a firewall. Both end with a zero. */
typedef void PortMap_Describe_t(const VantlowRouter* router, char* protocol, char* address, size_t room);
/* Has it pass what comes for this port on to the same port of this machine, for some time; again before that
   is over to go on. The seconds for which it does, 0 where it does not: `why` is a sentence then. Takes some
   seconds at most. */
typedef uint32_t PortMap_Open_t(VantlowRouter* router, int protocol, uint16_t port, uint32_t seconds,
                                const char* name, char* why, size_t room);
/* Ends that. 1, or 0 where the router does not answer. */
typedef int PortMap_Close_t(VantlowRouter* router, int protocol, uint16_t port);

#ifdef __cplusplus
}
#endif
// NOLINTEND(modernize-*)
