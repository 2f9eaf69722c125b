#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>

#include "sources/job_context.h"
#include "transfer/ftp_fetch.h"

namespace skyreel {

/// One file of an FTP source that may be decoded.
struct TCompressedFile : TFtpFile {
  bool Uncompress = false;     ///< a ".Z" or ".bz2" file to be decoded after the download
  std::int64_t ImageSize = 0;  ///< bytes of the whole decoded image

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

/// Whether the decoded image that the file is wanted for is there already. If so, counts it and finishes what
/// a killed run left undone with the compressed file; not for a plan.
bool IsDecoded(TJobContext& context, const TFtpSession& session, const TCompressedFile& file);

/// Fetches a file, stamps it with its time, decodes it if that is wanted, and ends it at the display. The
/// compressed file is deleted only when the image has exactly its size. When the decoding fails, the status
/// line says why and the compressed file stays. A download that was cut short is not decoded. Throws nothing.
void FetchAndUncompress(TJobContext& context, TFtpSession& session, const TCompressedFile& file,
                        const TUncompressRule& rule);

}  // namespace skyreel
