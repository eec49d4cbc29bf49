// The part of the dialogue that FTP and SFTP share: what is the file like, from where, give it.
#pragma once

#include "transfer/ftp/channel.h"
#include "transfer/ftp/login.h"
#include "transfer/ftp/transfer.h"

namespace vantlow {

/// MDTM, TYPE, SIZE, MODE Z; where the server has no SIZE or MDTM, a listing (STAT) tells. What stays unknown
/// is no failure.
Result ftp_ask_about_file(FtpChannel& channel, const FtpPlan& plan, FtpSession& session, FtpFile& file,
                          LogSink& log);

/// REST: sets `file.granted` to the offset, or to 0 where the server cannot restart.
Result ftp_restart_at(FtpChannel& channel, const FtpPlan& plan, FtpSession& session, std::int64_t offset,
                      FtpFile& file);

/// The meaning of the reply to RETR: success for 125, 150 and 2xx. `server_error` when the server has no such
/// file, `busy` when it may have it later.
Result ftp_retrieve_result(const FtpReply& reply, LogSink& log);

/// A file that cannot be fetched: `refused`, or `unsupported` where a folder has its name, which is what the
/// person is told.
Result ftp_name_folder(FtpChannel& channel, const FtpPlan& plan, Result refused);

/// Files that are made while they are read (those of /proc, reports) are said to be empty. Makes a size of
/// zero an unknown one where the whole is asked for: the end that is found decides.
void ftp_doubt_empty(std::int64_t offset, FtpFile& file);

/// Fails where the server told neither size nor time of what was asked about: it has no such file, or hides
/// what it is like.
Result ftp_is_told(FtpChannel& channel, const FtpPlan& plan, const FtpFile& file);

}  // namespace vantlow
