#include "sources/fetch_again.h"

#include <fcntl.h>

#include <algorithm>
#include <cstdlib>
#include <system_error>

#include "base/descriptor.h"
#include "base/exceptions.h"
#include "base/files.h"
#include "base/scope.h"
#include "base/text.h"
#include "decompress/bzip2_stream.h"
#include "decompress/uncompress.h"
#include "net/nm_http.h"
#include "sources/fetch_and_uncompress.h"
#include "transfer/http_fetch.h"
#include "transfer/run_record.h"
#include "transfer/transfer_ledger.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kFtp = "ftp://";

std::string LastPart(const std::string& address) {
  return address.substr(address.rfind('/') + 1);
}

/// "host:port" of "ftp://host:port/path".
std::string FtpServerOf(const std::string& address) {
  const std::size_t end = address.find('/', kFtp.size());
  return address.substr(kFtp.size(), end - kFtp.size());
}

/// The server that may get the user's login.
bool IsOwnServer(const TJobContext& context, const TSource& source, const std::string& address) {
  return std::ranges::any_of(source.Servers, [&](const TServerSetting& server) {
    const std::string root = (server.Ftp ? std::string(kFtp) : "") + context.Servers.Root(server);
    return address.starts_with(root + "/");
  });
}

/// A temporary folder next to a file. The destructor deletes it and what is in it.
class TTemporaryFolder {
 public:
  explicit TTemporaryFolder(const fs::path& file) : name_((file.parent_path() / kTemporaryName).string()) {
    ForceDirectories(file.parent_path());
    if (::mkdtemp(name_.data()) == nullptr) ThrowErrno(name_);
    lock_ = TDescriptor(::open(name_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    LockNew(lock_.Get(), name_);
  }
  ~TTemporaryFolder() {
    std::error_code ignored;
    fs::remove_all(name_, ignored);
  }
  TTemporaryFolder(const TTemporaryFolder&) = delete;
  TTemporaryFolder& operator=(const TTemporaryFolder&) = delete;
  fs::path Path() const { return name_; }

 private:
  std::string name_;
  TDescriptor lock_;
};

/// Puts the file that came, decoded if its new place asks for that, where the old one is.
void PutInPlace(TJobContext& context, const fs::path& came, const TAgainFile& file) {
  fs::path whole = came;
  if (came.filename() != file.Path.filename()) {
    if (came.extension() == ".Z") {
      UncompressFile(came);
    } else {
      DecompressBz2File(came, [&] { context.Clock.Sleep(std::chrono::milliseconds(0)); });
    }
    whole = UncompressedName(came);
    // The image was stored because it had exactly the right size.
    const std::int64_t old_size = FileSizeOf(file.Path), size = FileSizeOf(whole);
    if (old_size >= 0 && size != old_size)
      throw EDecompressError("uncompressed to " + std::to_string(size) + " bytes, expected " +
                             std::to_string(old_size));
  }
  SetFileDateTime(whole, file.SlotTime);
  if (!FlushToDisk(whole)) ThrowErrno(whole.string());
  fs::rename(whole, file.Path);
}

void FetchFtp(TJobContext& context, TFtpSession& session, const TAgainFile& file) {
  try {
    const TTemporaryFolder folder(file.Path);
    const std::string remote_path = file.Address.substr(kFtp.size() + FtpServerOf(file.Address).size());
    const TFtpFile wanted{LastPart(file.Address), remote_path, folder.Path(), file.Product, file.SlotTime};
    std::optional<TFtpFetch> fetch = FtpFetchFile(context, session, wanted);
    if (!fetch) return;
    TFileResult& result = fetch->Result;
    result.Path = file.Path;
    if (fetch->StillNoted) {
      if (FileSizeOf(file.Path) >= 0) result.State = TFileState::Updated;
      try {
        PutInPlace(context, wanted.LocalPath(), file);
      } catch (const std::exception& error) {
        result.Outcome = TFileOutcome::NotDecoded;
        result.State = TFileState::Failed;
        result.Reason = "the old file stays: " + ReasonOf(error);
      }
    }
    // Nothing of this transfer stays in the folder, whole or cut.
    context.Ledger.End(wanted.LocalPath(), TTransferEnd::Whole);
    EndFile(context, result, FtpLine(result));
    context.Display.SetPanel(1, "");
  } catch (const std::system_error& error) {
    ReportFailure(context, file.Path.filename().string() + " - not saved: " + ReasonOf(error));
  }
}

void FetchHttp(TJobContext& context, const TSource& source, const TAgainFile& file) {
  THttpFileRequest request;
  request.Url = file.Address;
  request.Name = file.Path.filename().string();
  request.GetLine = "Get: " + request.Name;
  request.Product = file.Product;
  request.SlotTime = file.SlotTime;
  request.LocalPath = file.Path;
  request.Delivery = TDelivery::Direct;
  request.CompleteSize = source.SmallestFile;
  if (FileSizeOf(file.Path) >= 0)
    request.AfterSaving = [](TFileResult& result) { result.State = TFileState::Updated; };
  FetchHttpFile(context, request);
}

}  // namespace

std::string WhyNotAgain(const TSource& source, const TAgainFile& file) {
  if (!source.HasJob()) return "its service has closed";
  if (source.SmallestFile == 0) return "its address names the newest file, which may be another one by now";
  if (file.Path.empty()) return "it has no place on the disk yet";
  const bool ftp = file.Address.starts_with(kFtp);
  if (!ftp && !file.Address.starts_with("http://") && !file.Address.starts_with("https://"))
    return "its address is not known";
  const std::string name = LastPart(file.Address);
  if (ftp && file.Path.filename() != name &&
      !(IsCompressedName(name) && file.Path.filename() == fs::path(name).stem()))
    return "its name on the disk is another one than on the server";
  return "";
}

void FetchAgain(TJobContext& context, const TSource& source, TFtpLogin login,
                const std::vector<TAgainFile>& files) {
  context.Run.ExpectFiles(static_cast<std::int64_t>(files.size()));
  const TScopedValue user(context.NMHTTP.HeaderInfo.UserId, login.UserID);
  const TScopedValue password(context.NMHTTP.HeaderInfo.Password, login.Password);
  std::vector<TAgainFile> by_ftp;
  for (const TAgainFile& file : files) {
    if (context.Run.StopRequested()) return;
    if (!IsOwnServer(context, source, file.Address)) {
      ReportFailure(context, file.Address + " - not asked: another server is set for " + source.Caption);
    } else if (file.Address.starts_with(kFtp)) {
      by_ftp.push_back(file);
    } else {
      FetchHttp(context, source, file);
    }
  }
  if (by_ftp.empty()) return;
  login.Server = FtpServerOf(by_ftp.front().Address);
  RunFtpSession(context, login, [&](TFtpSession& session) {
    for (const TAgainFile& file : by_ftp) {
      if (context.Run.StopRequested() || session.IsLost()) return;
      FetchFtp(context, session, file);
    }
  });
}

}  // namespace skyreel
