#include "runtime/tables.h"

#include "base/text.h"
#include "platform/file.h"

// Looks the operation up under the name of its entry.
#define VANTLOW_FIND(operation) find_operation(table.library, #operation, table.operation)

namespace vantlow {
namespace {

template <class Entry>
void find_operation(const Library& library, const char* name, Entry*& entry) {
    entry = reinterpret_cast<Entry*>(library.find(name));
}

void find_operations(SslTable& table) {
    VANTLOW_FIND(NTLM_Challenge);
    VANTLOW_FIND(NTLM_Destroy);
    VANTLOW_FIND(NTLM_Response);
    VANTLOW_FIND(WDigest_Response);
}

void find_operations(SshTable& table) {
    VANTLOW_FIND(SSH_Init);
    VANTLOW_FIND(SSH_Exit);
    VANTLOW_FIND(Sftp_Connect);
    VANTLOW_FIND(SSH_Disconnect);
    VANTLOW_FIND(SSH_Send);
    VANTLOW_FIND(SSH_Recv);
    VANTLOW_FIND(SSH_Settings);
    VANTLOW_FIND(SSH_SetErrPtr);
    VANTLOW_FIND(ZLib_InflateInit);
    VANTLOW_FIND(GZ_InflateInit);
    VANTLOW_FIND(Raw_InflateInit);
    VANTLOW_FIND(ZLib_InflateEnd);
    VANTLOW_FIND(ZLib_Inflate);
    VANTLOW_FIND(ZLib_DeflateInit);
    VANTLOW_FIND(ZLib_DeflateEnd);
    VANTLOW_FIND(ZLib_Deflate);
    VANTLOW_FIND(ZLib_Free);
}

void find_operations(Crypto5Table& table) {
    VANTLOW_FIND(RSA_GenerateKey);
    VANTLOW_FIND(RSA_Sign);
    VANTLOW_FIND(RSA_Verify);
}

void find_operations(SecurTable& table) {
    VANTLOW_FIND(SSL_Init);
    VANTLOW_FIND(SSL_Exit);
    VANTLOW_FIND(SSL_Thread_Exit);
    VANTLOW_FIND(SSL_New);
    VANTLOW_FIND(SSL_Free);
    VANTLOW_FIND(SSL_Connect);
    VANTLOW_FIND(SSL_Recv);
    VANTLOW_FIND(SSL_Send);
    VANTLOW_FIND(SSL_Set_Interrupt);
    VANTLOW_FIND(SSL_Set_ErrPtr);
    VANTLOW_FIND(DH_Create);
    VANTLOW_FIND(DH_Delete);
    VANTLOW_FIND(DH_ComputeSecret);
    VANTLOW_FIND(DH_GetPublicKey);
    VANTLOW_FIND(DH_GetSecret);
    VANTLOW_FIND(RC4_Create);
    VANTLOW_FIND(RC4_Delete);
    VANTLOW_FIND(RC4_4);
    VANTLOW_FIND(RC4_3);
    VANTLOW_FIND(RC4_Create_SHA1);
    VANTLOW_FIND(RC4_Create_MD5);
    VANTLOW_FIND(HMAC_SHA256);
    VANTLOW_FIND(RC4_Create_RTMPE);
    VANTLOW_FIND(RTMPE9_Signature);
    VANTLOW_FIND(opieKeyGenerate);
    VANTLOW_FIND(Digest2617);
    VANTLOW_FIND(NTLM1_ChallengeResponse);
    VANTLOW_FIND(wx_1);
    VANTLOW_FIND(wx_4);
    VANTLOW_FIND(wx_5);
    VANTLOW_FIND(Real_GenerateRN5);
    VANTLOW_FIND(Real_GetCompanyID);
}

void find_operations(RasTable& table) {
    VANTLOW_FIND(RasEnumEntriesW);
    VANTLOW_FIND(RasGetEntryDialParamsW);
    VANTLOW_FIND(RasDialW);
    VANTLOW_FIND(RasEnumConnectionsW);
    VANTLOW_FIND(RasHangUpW);
    VANTLOW_FIND(RasGetErrorStringW);
}

void find_operations(KadTable& table) {
    VANTLOW_FIND(Kademlia_Init);
    VANTLOW_FIND(Kademlia_Start);
    VANTLOW_FIND(Kademlia_Stop);
    VANTLOW_FIND(Kademlia_BeginThread);
    VANTLOW_FIND(Kademlia_EndThread);
    VANTLOW_FIND(Kademlia_SearchKeyword);
    VANTLOW_FIND(Kademlia_SearchFileHash);
    VANTLOW_FIND(Kademlia_StopSearch);
    VANTLOW_FIND(Kademlia_Bootstrap);
    VANTLOW_FIND(Kademlia_Publish);
}

void find_operations(BtdhtTable& table) {
    VANTLOW_FIND(BTDHT_Start);
    VANTLOW_FIND(BTDHT_Stop);
    VANTLOW_FIND(BTDHT_StartAnnounce);
    VANTLOW_FIND(BTDHT_StopAnnounce);
    VANTLOW_FIND(BTDHT_GetPeers);
    VANTLOW_FIND(BTDHT_AddNode);
    VANTLOW_FIND(BTDHT_AddNodeV6);
    VANTLOW_FIND(BTDHT_Work);
    VANTLOW_FIND(BTDHT_Nodes);
    VANTLOW_FIND(UTP_Srv_Init);
    VANTLOW_FIND(UTP_Srv_End);
    VANTLOW_FIND(UTP_Srv_Take);
    VANTLOW_FIND(UTP_Srv_Send);
    VANTLOW_FIND(UTP_Cli_Open);
    VANTLOW_FIND(UTP_Cli_Close);
    VANTLOW_FIND(UTP_Cli_Send);
    VANTLOW_FIND(UTP_Cli_Recv);
}

void find_operations(NamesTable& table) {
    VANTLOW_FIND(Names_ToAscii);
    VANTLOW_FIND(Names_IsPublicSuffix);
}

void find_operations(PortmapTable& table) {
    VANTLOW_FIND(PortMap_Find);
    VANTLOW_FIND(PortMap_FindFirewall);
    VANTLOW_FIND(PortMap_Forget);
    VANTLOW_FIND(PortMap_Describe);
    VANTLOW_FIND(PortMap_Open);
    VANTLOW_FIND(PortMap_Close);
}

template <class Table>
void load(Table& table, const std::u16string& path) {
    table.file = to_utf8(name_of(path));
    if (table.library.load(path)) find_operations(table);
}

}  // namespace

LibraryTables load_libraries(const std::u16string& folder) {
    const auto own = [&](std::string_view name) { return join_path(folder, Library::file_name(name)); };
    LibraryTables tables;
    load(tables.ssl, own("libssl"));
    load(tables.ssh, own("libssh"));
    load(tables.crypto5, own("libcrypto5"));
    load(tables.secur, own("libsecur"));
    if (const auto path = Library::system_path("rasapi32"); !path.empty()) load(tables.ras, path);
    load(tables.kad, own("libKAD"));
    load(tables.btdht, own("libBTDHT"));
    load(tables.names, own("libnames"));
    load(tables.portmap, own("libportmap"));
    return tables;
}

std::vector<std::pair<std::string, bool>> loaded_libraries(const LibraryTables& tables) {
    const std::initializer_list<const LibraryTable*> all = {&tables.ssl,   &tables.ssh,   &tables.crypto5,
                                                            &tables.secur, &tables.ras,   &tables.kad,
                                                            &tables.btdht, &tables.names, &tables.portmap};
    std::vector<std::pair<std::string, bool>> list;
    for (const LibraryTable* const table : all) {
        if (!table->file.empty()) list.emplace_back(table->file, table->library.is_loaded());
    }
    return list;
}

std::string missing_library_text(std::string_view library) {
    return "\"" + to_utf8(Library::file_name(library)) + "\" not found?";
}

}  // namespace vantlow
