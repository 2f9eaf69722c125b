#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>

#include "sources/job_context.h"
#include "transfer/ftp_fetch.h"

namespace skyreel {

/// One file of an FTP source.
struct TFtpFile {
  std::string Name;
  std::filesystem::path Folder;  ///< local
  TDateTime Time;                ///< becomes the file's modification time
  bool Uncompress = false;       ///< a ".Z" or ".bz2" file to be decoded after the download
  std::int64_t ImageSize = 0;    ///< bytes of the whole decoded image

  std::filesystem::path LocalPath() const { return Folder / Name; }
  /// Where the decoded image goes.
  std::filesystem::path ImagePath() const { return Folder / std::filesystem::path(Name).stem(); }
};

/// What the FTP sources differ in when they decode.
struct TUncompressRule {
  std::int64_t MoreThan = 0;           ///< only compressed files larger than that are decoded
  std::chrono::milliseconds Pause{0};  ///< before decoding
};

/// Whether a name ends in ".Z" or ".bz2".
bool IsCompressedName(const std::string& name);

/// Whether the decoded image that the file is wanted for is there already. Ends what a killed run has left to
/// do with its compressed file then.
bool IsDecoded(TJobContext& context, const TFtpFile& file);

/// Fetches a file, stamps it with its time and decodes it if that is wanted. The compressed file is deleted
/// only when the image has exactly its size. A decode that fails leaves one status line with the reason and
/// the compressed file. A download that was cut short is not decoded. Throws nothing.
void FetchAndUncompress(TJobContext& context, TFtpSession& session, TFtpVariant variant, const TFtpFile& file,
                        const TUncompressRule& rule);

}  // namespace skyreel
