#include "sources/fetch_and_uncompress.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <system_error>
#include <utility>

#include "base/exceptions.h"
#include "base/files.h"
#include "decompress/bzip2_stream.h"
#include "decompress/uncompress.h"
#include "transfer/run_record.h"
#include "transfer/transfer_ledger.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

void UncompressImage(TJobContext& context, const TCompressedFile& file, const TUncompressRule& rule,
                     TFileResult& result) {
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
    if (size != file.ImageSize) {
      result.Outcome = TFileOutcome::NotDecoded;
      result.Reason = "kept: uncompressed to " + std::to_string(size) + " bytes, expected " +
                      std::to_string(file.ImageSize);
      return;
    }
    result.Path = file.ImagePath();
    // Until the image is on the disk, a power cut leaves only the compressed file.
    std::error_code ignored;
    if (FlushToDisk(file.ImagePath())) fs::remove(compressed, ignored);
  } catch (const std::exception& error) {
    result.Outcome = TFileOutcome::NotDecoded;
    result.Reason = "not uncompressed: " + ReasonOf(error);
  }
}

}  // namespace

bool IsCompressedName(const std::string& name) {
  return name.ends_with(".Z") || name.ends_with(".bz2");
}

bool IsDecoded(TJobContext& context, const TFtpSession& session, const TCompressedFile& file) {
  const fs::path image = file.ImagePath(), compressed = file.LocalPath();
  if (!file.Uncompress || !context.Ledger.Present(image)) return false;
  TWantedFile wanted = session.Wanted(file);
  wanted.Path = image;
  CountPresent(context, std::move(wanted));
  if (context.Plan) return true;
  // A kill may have come between the image and the deletion of the compressed file.
  if (FileSizeOf(image) == file.ImageSize && context.Ledger.IsNoted(compressed) && FlushToDisk(image) &&
      context.Ledger.Begin(compressed)) {
    SetFileDateTime(image, file.Time);
    std::error_code ignored;
    fs::remove(compressed, ignored);
    context.Ledger.End(compressed, TTransferEnd::Whole);
  }
  return true;
}

void FetchAndUncompress(TJobContext& context, TFtpSession& session, const TCompressedFile& file,
                        const TUncompressRule& rule) {
  std::optional<TFtpFetch> fetch = FtpFetchFile(context, session, file);
  if (!fetch) return;
  if (fetch->Received) SetFileDateTime(file.LocalPath(), file.Time);
  // The note stays until the file has its time and is decoded: a later run does neither to a file that is
  // there.
  if (fetch->StillNoted) {
    // A cut file is not decoded: its image could pass for the whole one.
    if (file.Uncompress) UncompressImage(context, file, rule, fetch->Result);
    context.Ledger.End(file.LocalPath(), TTransferEnd::Whole);
  }
  EndFile(context, fetch->Result, FtpLine(fetch->Result));
  context.Display.SetPanel(1, "");
}

}  // namespace skyreel
