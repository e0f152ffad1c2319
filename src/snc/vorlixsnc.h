/* The security library: "vorlixsnc.dll" on Windows (Schannel), "libvorlixsnc.so" on Linux
 * (OpenSSL). The service loads it at run time and resolves these exports by name; a service
 * without it runs with plain connections only.
 *
 * The library never touches the service's sockets: each session moves its bytes through the
 * transport the service hands it (the service's own network layer, with its time-outs and trace),
 * so the library works on any connection and can be driven from memory.
 *
 * Return codes: 0 success; SNC_ERR_NI when the failure lies in the network layer below (its code
 * is then SncNiErrorOf(session)); any other negative value is the library's own error, named by
 * SncErrorName and described by SncErrorDescription. Sessions are independent: calls on different
 * sessions may run on different threads at once.
 *
 * The header carries no export markings: the library's own build exports these names (a module
 * definition file for the DLL, default visibility for the shared object). */
#ifndef VORLIXSNC_H
#define VORLIXSNC_H

#ifdef __cplusplus
extern "C" {
#endif

#define SNC_OK 0
#define SNC_ERR_NI (-8)         /* the network layer failed: see SncNiErrorOf */
#define SNC_ERR_PROFILE (-20)   /* the profile, a certificate or a key cannot be read */
#define SNC_ERR_HANDSHAKE (-21) /* the peer's hand-shake failed or its certificate was refused */
#define SNC_ERR_STATE (-22)     /* the call does not fit the session's state */
#define SNC_ERR_ARGUMENT (-23)  /* a null or out-of-range argument */
#define SNC_ERR_PROTOCOL (-24)  /* the secured stream is broken */
#define SNC_ERR_MEMORY (-25)

#define SNC_USAGE_SERVER 6 /* the usage value the service initialises the library with */
#define SNC_PEER_NAME_MAX 512
#define SNC_ERROR_LINE_MAX 200

typedef struct SncSession SncSession;

/* How a session reaches its peer. recv waits at most timeoutMs (-1: no limit) and delivers at
 * least one byte; send writes all bytes. Both return 0 with *count set, or the network layer's
 * code (-5 time-out, -6 closed by the peer, another negative value for other failures). */
typedef struct SncTransport {
    void* context;
    int (*recv)(void* context, void* buffer, int length, int timeoutMs, int* count);
    int (*send)(void* context, const void* data, int length, int timeoutMs, int* count);
} SncTransport;

/* Where the library's trace lines go: the service's network trace. */
typedef void (*SncTraceWriter)(void* context, const char* line);

/* usage: SNC_USAGE_SERVER. profile: the profile file's name ("ZELLPD.INI", "WIN.INI"), looked
 * up in baseDirectory, which also anchors the relative paths it names. *realProduct: 1 when
 * certificates are loaded and sessions can be secured, 0 when only the placeholder is there. */
int SncInit(int usage, const char* profile, const char* baseDirectory, int* realProduct);
void SncDone(void);
void SncSetTrace(SncTraceWriter writer, void* context);
/* The name of the active security product (slot 0), cut to size with its NUL. */
int SncGetAdapterName(SncSession* none, int slot, char* buffer, int size);

/* The session keeps a copy of the transport: the caller's may go once the call returns. */
int SncNiRawSessionInit(SncSession** session, const SncTransport* transport);
int SncSetQOP(SncSession* session, int minimum, int maximum, int use);
int SncNiSessionAccept(SncSession* session, int sizeHint, int timeoutMs);
/* The peer's identity: its certificate's subject in RFC 4514 form ("CN=app1,O=Example"). */
int SncGetPeerName(SncSession* session, char* name, int size);
/* singleRead: return after the first record's bytes instead of waiting for length bytes. */
int SncNiRawRead(SncSession* session, void* buffer, int length, int timeoutMs, int* count,
                 int singleRead);
int SncNiRawWrite(SncSession* session, const void* data, int length, int timeoutMs, int* count);
int SncNiErrorOf(SncSession* session);
void SncSessionDone(SncSession* session);

const char* SncErrorName(int code);        /* null for an unknown code */
const char* SncErrorDescription(int code); /* never null */
/* The index-th detailed error line of the session's last failure: 1 with the line, 0 after the
 * last one. */
int SncErrorLine(SncSession* session, int index, char* buffer, int size);

#ifdef __cplusplus
}
#endif

#endif /* VORLIXSNC_H */
