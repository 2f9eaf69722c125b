#include "sources/fetch_and_uncompress.h"

#include <algorithm>
#include <exception>
#include <system_error>

#include "base/exceptions.h"
#include "base/files.h"
#include "decompress/bzip2_stream.h"
#include "decompress/uncompress.h"
#include "transfer/transfer_ledger.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

void UncompressImage(TJobContext& context, const TFtpFile& file, const TUncompressRule& rule) {
  const fs::path compressed = file.LocalPath();
  if (FileSizeOf(compressed) <= rule.MoreThan) return;
  context.Display.SetPanel(1, "Uncompressing:  " + file.Name);
  context.Clock.Sleep(rule.Pause);
  RemoveAbandoned(file.Folder);
  try {
    if (file.Name.ends_with(".Z")) {
      UncompressFile(compressed);
    } else {
      DecompressBz2File(compressed, [&] { context.Clock.Sleep(std::chrono::milliseconds(0)); });
    }
    const std::int64_t size = std::max<std::int64_t>(FileSizeOf(file.ImagePath()), 0);
    std::error_code ignored;
    if (size == file.ImageSize) {
      // Until then the compressed file is the only one that a power cut leaves.
      if (FlushToDisk(file.ImagePath())) fs::remove(compressed, ignored);
    } else {
      context.Display.AddStatusLine(file.Name + " - kept: it uncompresses to " + std::to_string(size) +
                                    " bytes in place of " + std::to_string(file.ImageSize));
    }
  } catch (const std::exception& error) {
    context.Display.AddStatusLine(file.Name + " - not uncompressed: " + ReasonOf(error));
  }
}

}  // namespace

bool IsCompressedName(const std::string& name) {
  return name.ends_with(".Z") || name.ends_with(".bz2");
}

bool IsDecoded(TJobContext& context, const TFtpFile& file) {
  const fs::path image = file.ImagePath(), compressed = file.LocalPath();
  if (!file.Uncompress || !context.Ledger.Present(image)) return false;
  // A kill may have come between the image and what follows it; a power cut may have kept the image from the
  // disk.
  if (FileSizeOf(image) == file.ImageSize && context.Ledger.IsNoted(compressed) && FlushToDisk(image) &&
      context.Ledger.Begin(compressed)) {
    SetFileDateTime(image, file.Time);
    std::error_code ignored;
    fs::remove(compressed, ignored);
    context.Ledger.End(compressed, TTransferEnd::Whole);
  }
  return true;
}

void FetchAndUncompress(TJobContext& context, TFtpSession& session, TFtpVariant variant, const TFtpFile& file,
                        const TUncompressRule& rule) {
  const fs::path path = file.LocalPath();
  // The note stays until the file has its time and is decoded. A later run does neither to a file that is
  // there, so one that a kill has kept from it must be fetched again.
  bool whole = false;
  if (FtpFetchFile(context, session, variant, file.Name, file.Folder, &whole))
    SetFileDateTime(path, file.Time);
  if (whole) {
    // A cut file may decode without an error too, and its image would then pass for the whole one.
    if (file.Uncompress) UncompressImage(context, file, rule);
    context.Ledger.End(path, TTransferEnd::Whole);
  }
  context.Display.SetPanel(1, "");
}

}  // namespace skyreel
