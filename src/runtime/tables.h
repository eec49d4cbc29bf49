// The operations of the run-time libraries: one table a library, an entry an operation.
//
// An entry is null when its library could not be loaded or does not export it: every caller tests its entry
// before it calls. Entries of type void* belong to operations that nobody calls yet.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/library.h"
#include "runtime/operations.h"

namespace vantlow {

/// A loaded library: the owner of its table's operations.
struct LibraryTable {
    std::string file;  ///< UTF-8 file name, "libssh.so"; empty until a load was tried
    Library library;
};

struct SslTable : LibraryTable {
    NTLM_Challenge_t* NTLM_Challenge = nullptr;
    NTLM_Destroy_t* NTLM_Destroy = nullptr;
    NTLM_Response_t* NTLM_Response = nullptr;
    WDigest_Response_t* WDigest_Response = nullptr;
};

struct SshTable : LibraryTable {
    SSH_Init_t* SSH_Init = nullptr;
    SSH_Exit_t* SSH_Exit = nullptr;
    Sftp_Connect_t* Sftp_Connect = nullptr;
    SSH_Disconnect_t* SSH_Disconnect = nullptr;
    SSH_Send_t* SSH_Send = nullptr;
    SSH_Recv_t* SSH_Recv = nullptr;
    SSH_Settings_t* SSH_Settings = nullptr;
    SSH_SetErrPtr_t* SSH_SetErrPtr = nullptr;
    ZLib_InflateInit_t* ZLib_InflateInit = nullptr;
    GZ_InflateInit_t* GZ_InflateInit = nullptr;
    Raw_InflateInit_t* Raw_InflateInit = nullptr;
    ZLib_InflateEnd_t* ZLib_InflateEnd = nullptr;
    ZLib_Inflate_t* ZLib_Inflate = nullptr;
    ZLib_DeflateInit_t* ZLib_DeflateInit = nullptr;
    ZLib_DeflateEnd_t* ZLib_DeflateEnd = nullptr;
    ZLib_Deflate_t* ZLib_Deflate = nullptr;
    ZLib_Free_t* ZLib_Free = nullptr;
};

struct Crypto5Table : LibraryTable {
    void* RSA_GenerateKey = nullptr;
    void* RSA_Sign = nullptr;
    void* RSA_Verify = nullptr;
};

struct SecurTable : LibraryTable {
    SSL_Init_t* SSL_Init = nullptr;
    SSL_Exit_t* SSL_Exit = nullptr;
    SSL_Thread_Exit_t* SSL_Thread_Exit = nullptr;
    SSL_New_t* SSL_New = nullptr;
    SSL_Free_t* SSL_Free = nullptr;
    SSL_Connect_t* SSL_Connect = nullptr;
    SSL_Recv_t* SSL_Recv = nullptr;
    SSL_Send_t* SSL_Send = nullptr;
    SSL_Set_Interrupt_t* SSL_Set_Interrupt = nullptr;
    SSL_Set_ErrPtr_t* SSL_Set_ErrPtr = nullptr;
    DH_Create_t* DH_Create = nullptr;
    DH_Delete_t* DH_Delete = nullptr;
    DH_ComputeSecret_t* DH_ComputeSecret = nullptr;
    DH_GetPublicKey_t* DH_GetPublicKey = nullptr;
    DH_GetSecret_t* DH_GetSecret = nullptr;
    RC4_Create_t* RC4_Create = nullptr;
    RC4_Delete_t* RC4_Delete = nullptr;
    RC4_4_t* RC4_4 = nullptr;
    RC4_3_t* RC4_3 = nullptr;
    void* RC4_Create_SHA1 = nullptr;
    void* RC4_Create_MD5 = nullptr;
    void* HMAC_SHA256 = nullptr;
    void* RC4_Create_RTMPE = nullptr;
    void* RTMPE9_Signature = nullptr;
    opieKeyGenerate_t* opieKeyGenerate = nullptr;
    Digest2617_t* Digest2617 = nullptr;
    NTLM1_ChallengeResponse_t* NTLM1_ChallengeResponse = nullptr;
    void* wx_1 = nullptr;
    void* wx_4 = nullptr;
    void* wx_5 = nullptr;
    void* Real_GenerateRN5 = nullptr;
    void* Real_GetCompanyID = nullptr;
};

/// Dial-up: a library of the system, which only Windows has.
struct RasTable : LibraryTable {
    void* RasEnumEntriesW = nullptr;
    void* RasGetEntryDialParamsW = nullptr;
    void* RasDialW = nullptr;
    void* RasEnumConnectionsW = nullptr;
    void* RasHangUpW = nullptr;
    void* RasGetErrorStringW = nullptr;
};

struct KadTable : LibraryTable {
    void* Kademlia_Init = nullptr;
    void* Kademlia_Start = nullptr;
    void* Kademlia_Stop = nullptr;
    void* Kademlia_BeginThread = nullptr;
    void* Kademlia_EndThread = nullptr;
    void* Kademlia_SearchKeyword = nullptr;
    void* Kademlia_SearchFileHash = nullptr;
    void* Kademlia_StopSearch = nullptr;
    void* Kademlia_Bootstrap = nullptr;
    void* Kademlia_Publish = nullptr;
};

struct BtdhtTable : LibraryTable {
    BTDHT_Start_t* BTDHT_Start = nullptr;
    BTDHT_Stop_t* BTDHT_Stop = nullptr;
    BTDHT_StartAnnounce_t* BTDHT_StartAnnounce = nullptr;
    BTDHT_StopAnnounce_t* BTDHT_StopAnnounce = nullptr;
    BTDHT_GetPeers_t* BTDHT_GetPeers = nullptr;
    BTDHT_AddNode_t* BTDHT_AddNode = nullptr;
    BTDHT_AddNodeV6_t* BTDHT_AddNodeV6 = nullptr;
    BTDHT_Work_t* BTDHT_Work = nullptr;
    BTDHT_Nodes_t* BTDHT_Nodes = nullptr;
    UTP_Srv_Init_t* UTP_Srv_Init = nullptr;
    UTP_Srv_End_t* UTP_Srv_End = nullptr;
    UTP_Srv_Take_t* UTP_Srv_Take = nullptr;
    UTP_Srv_Send_t* UTP_Srv_Send = nullptr;
    UTP_Cli_Open_t* UTP_Cli_Open = nullptr;
    UTP_Cli_Close_t* UTP_Cli_Close = nullptr;
    UTP_Cli_Send_t* UTP_Cli_Send = nullptr;
    UTP_Cli_Recv_t* UTP_Cli_Recv = nullptr;
};

struct NamesTable : LibraryTable {
    Names_ToAscii_t* Names_ToAscii = nullptr;
    Names_IsPublicSuffix_t* Names_IsPublicSuffix = nullptr;
};

struct PortmapTable : LibraryTable {
    PortMap_Find_t* PortMap_Find = nullptr;
    PortMap_FindFirewall_t* PortMap_FindFirewall = nullptr;
    PortMap_Forget_t* PortMap_Forget = nullptr;
    PortMap_Describe_t* PortMap_Describe = nullptr;
    PortMap_Open_t* PortMap_Open = nullptr;
    PortMap_Close_t* PortMap_Close = nullptr;
};

/// All tables, in the order in which they are loaded. The operations stay valid while the object lives, also
/// when it is moved; any thread may read it.
struct LibraryTables {
    SslTable ssl;
    SshTable ssh;
    Crypto5Table crypto5;
    SecurTable secur;
    RasTable ras;
    KadTable kad;
    BtdhtTable btdht;
    NamesTable names;
    PortmapTable portmap;
};

/// Loads every library from the folder (a full path) by its full path, so that nothing of the same name
/// elsewhere is loaded. The dial-up library comes from the system's own folder instead. Never fails: a
/// missing operation's entry stays empty.
LibraryTables load_libraries(const std::u16string& folder);

/// The file name of each library of this system, in load order, and whether it is loaded.
std::vector<std::pair<std::string, bool>> loaded_libraries(const LibraryTables& tables);

/// The message for an action that needs a missing library: "\"libssh.dll\" not found?" for "libssh".
std::string missing_library_text(std::string_view library);

}  // namespace vantlow
