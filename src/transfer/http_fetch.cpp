#include "transfer/http_fetch.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <random>
#include <system_error>

#include "base/descriptor.h"
#include "base/exceptions.h"
#include "base/files.h"
#include "base/text.h"
#include "net/nm_http.h"
#include "transfer/delivery_scope.h"
#include "transfer/http_header.h"
#include "transfer/jpeg_reencode.h"
#include "transfer/size_limit_scope.h"
#include "transfer/transfer_progress.h"
#include "transfer/watchdog_scope.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

std::optional<std::uint16_t> ProxyPortOf(const TSharedSettings& shared) {
  try {
    const std::int32_t port = ToInteger(shared.ProxyPort);
    if (port >= 0 && port <= 0xFFFF) return static_cast<std::uint16_t>(port);
  } catch (const EConvertError&) {
    // Said by ReportUnusableProxy.
  }
  return std::nullopt;
}

/// The file that a body arrives in, for the time of a scope. Its name is the same for every fetch of this
/// running program and another one for each copy.
class TTemporaryFile {
 public:
  TTemporaryFile() : path_(CurrentPath()) {
    do {
      if (!Create()) {
        Remove();
        if (!Create()) ThrowErrno(path_.string());
      }
    } while (!LockNew(file_.Get(), path_));
  }
  ~TTemporaryFile() {
    if (!moved_) Remove();
  }
  TTemporaryFile(const TTemporaryFile&) = delete;
  TTemporaryFile& operator=(const TTemporaryFile&) = delete;

  /// Where the next one will be.
  static fs::path CurrentPath() { return fs::temp_directory_path() / Name(); }

  std::string Read() const { return ReadWholeFile(file_.Get(), path_, kLargestDownload); }
  bool SetDateTime(TDateTime time) const { return SetFileDateTime(file_.Get(), time); }
  /// In the place of `to`, if a rename is all that it takes; false, and nothing is done, otherwise.
  bool MoveTo(const fs::path& to) {
    moved_ = MoveFileWhole(file_.Get(), path_, to);
    return moved_;
  }

 private:
  static std::string Name() {
    // Random, so that nobody can have put a file of that name in the way.
    static const std::uint32_t identity = [] {
      RemoveAbandoned(fs::temp_directory_path(), "~Skyreel~XXXXXXXX.~tmp");
      return std::random_device{}();
    }();
    char name[32];
    std::snprintf(name, sizeof name, "~Skyreel~%08X.~tmp", identity);
    return name;
  }
  /// Others may write in that folder: only a file that is new and our own will do, never a link that they put
  /// there, and nobody else may read it.
  bool Create() {
    constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    file_ = TDescriptor(::open(path_.c_str(), kFlags, S_IRUSR | S_IWUSR));
    return file_.IsOpen();
  }
  void Remove() const {
    std::error_code ignored;
    fs::remove(path_, ignored);
  }

  fs::path path_;
  TDescriptor file_;
  bool moved_ = false;
};

class TBusyCursorScope {
 public:
  explicit TBusyCursorScope(TStatusDisplay& display) : display_(display) { display_.SetBusyCursor(true); }
  ~TBusyCursorScope() { display_.SetBusyCursor(false); }
  TBusyCursorScope(const TBusyCursorScope&) = delete;
  TBusyCursorScope& operator=(const TBusyCursorScope&) = delete;

 private:
  TStatusDisplay& display_;
};

/// How a transfer ended, beside the bytes.
struct TFetchEnd {
  bool Cut = false;          ///< fewer bytes came than the server had announced, or what it calls a part
  std::string LocalFailure;  ///< why this computer could not keep what came
  std::string Refusal;       ///< why nothing was asked for
};

/// `file` holds what came too, until the caller lets it go.
TFetchEnd Transfer(TTransferContext& context, const std::string& url, std::string& stream,
                   const std::string& user_name, const std::string& password,
                   std::optional<TTemporaryFile>& file) {
  const TBusyCursorScope busy(context.Display);
  const TProgressScope progress(context.Display, url);
  TNMHTTP& client = context.NMHTTP;
  stream.clear();
  if (!user_name.empty()) client.HeaderInfo.UserId = user_name;
  if (!password.empty()) client.HeaderInfo.Password = password;
  ApplySharedHttpSettings(client, context.Shared);

  TFetchEnd end;
  try {
    // The server does its part while the file is made; a redirect asks a second time.
    const TDeliveryScope delivery(client, TTemporaryFile::CurrentPath().string(), [&file](TNMHTTP&) {
      if (!file) file.emplace();
    });
    {
      const TWatchdogScope watchdog(context.Run);
      const TSizeLimitScope limit(client);
      client.Get(url);
    }
    stream = file->Read();
    end.Cut =
        static_cast<std::int64_t>(stream.size()) < client.TransferSize || client.ReplyCode == kPartialContent;
  } catch (const ESockError&) {
    // Nothing was received: that says it all.
  } catch (const std::system_error& error) {
    end.LocalFailure = ReasonOf(error);
  } catch (const std::exception& error) {
    end.Refusal = ReasonOf(error);
  }
  return end;
}

/// Deletes a file, and nothing but a file.
void DeleteFile(const fs::path& path) {
  std::error_code ignored;
  if (FileSizeOf(path) >= 0) fs::remove(path, ignored);
}

struct TVerdict {
  THttpFileOutcome Outcome;
  std::string Text;  ///< what the status line says behind the name
};

TVerdict Save(const THttpFileRequest& request, TTemporaryFile& temporary, std::string_view data) {
  bool stamped = false;
  try {
    // Before it has its final name: later runs do not look at the time of a file that is there.
    temporary.SetDateTime(request.FileTime);
    // A rename is all that it takes where the temporary folder is on the same disk; the second file that it
    // saves would cost more than the rest of the fetch.
    stamped = temporary.MoveTo(request.LocalPath);
    if (!stamped) WriteFileWhole(request.LocalPath, data);
  } catch (const std::exception& error) {
    return {THttpFileOutcome::NotSaved, " - not saved: " + ReasonOf(error)};
  }
  fs::path image = request.LocalPath;
  try {
    if (request.AfterSaving) image = request.AfterSaving(image);
  } catch (const std::exception& error) {
    return {THttpFileOutcome::NotSaved, " - saved as it came, not re-encoded: " + ReasonOf(error)};
  }
  if (!stamped || request.AfterSaving) SetFileDateTime(image, request.FileTime);
  return {THttpFileOutcome::Saved, " - OK"};
}

TVerdict Judge(const THttpFileRequest& request, const TFetchEnd& end, std::optional<TTemporaryFile>& file,
               std::string_view data) {
  if (!end.LocalFailure.empty()) {
    return {THttpFileOutcome::NotSaved, " - not saved: " + end.LocalFailure};
  }
  if (!end.Refusal.empty()) return {THttpFileOutcome::TimedOut, " - not fetched: " + end.Refusal};
  if (data.empty()) return {THttpFileOutcome::TimedOut, " - timed out"};
  if (static_cast<std::int64_t>(data.size()) < request.CompleteSize || end.Cut || IsHtmlPage(data)) {
    DeleteFile(request.LocalPath);
    return {THttpFileOutcome::Incomplete, " - missing or incomplete"};
  }
  return Save(request, *file, data);
}

}  // namespace

void ApplySharedHttpSettings(TNMHTTP& client, const TSharedSettings& shared) {
  client.TimeOut = shared.TimeoutSeconds * 1000;
  if (!shared.UseProxy) return;
  if (const std::optional<std::uint16_t> port = ProxyPortOf(shared)) {
    client.ProxyPort = *port;
    client.Proxy = shared.ProxyServer;
  }
}

void ReportUnusableProxy(TTransferContext& context) {
  if (!context.Shared.UseProxy || ProxyPortOf(context.Shared)) return;
  context.Shared.UseProxy = false;
  context.Display.AddStatusLine("Proxy not set: port \"" + context.Shared.ProxyPort + "\" is no port number");
}

std::int64_t GetHttpToStream(TTransferContext& context, const std::string& url, std::string& stream,
                             const std::string& user_name, const std::string& password) {
  std::optional<TTemporaryFile> file;
  Transfer(context, url, stream, user_name, password, file);
  return static_cast<std::int64_t>(stream.size());
}

THttpFileOutcome FetchHttpFile(TTransferContext& context, const THttpFileRequest& request) {
  if (FileSizeOf(request.LocalPath) >= request.PresentSize) return THttpFileOutcome::Present;
  ReportUnusableProxy(context);
  context.Display.BeginStatusLine("Get: " + request.GetName);
  std::string stream;
  std::optional<TTemporaryFile> file;
  const TFetchEnd end = Transfer(context, request.Url, stream, "", "", file);
  const TVerdict verdict = Judge(request, end, file, stream);
  context.Display.EndStatusLine(request.ResultName + verdict.Text);
  return verdict.Outcome;
}

THttpFileOutcome GetHttpFile(TTransferContext& context, const std::string& base_url,
                             const std::string& remote_name, const fs::path& local_path, int correction,
                             bool reencode, TDateTime file_time) {
  THttpFileRequest request;
  request.Url = base_url + remote_name;
  request.GetName = remote_name;
  request.ResultName = remote_name;
  request.LocalPath = local_path;
  request.PresentSize = 1000;
  request.CompleteSize = 10000;
  request.FileTime = file_time;
  if (reencode) {
    request.AfterSaving = [correction](const fs::path& path) {
      fs::path image;
      ConvertToJpeg(path, image, static_cast<float>(correction));
      return image;
    };
  }
  return FetchHttpFile(context, request);
}

}  // namespace skyreel
