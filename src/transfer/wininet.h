#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>

#include "transfer/transfer_context.h"

#ifdef _WIN32
#define SKYREEL_WININET_CALL __stdcall
#else
#define SKYREEL_WININET_CALL
#endif

namespace skyreel {

/// The result of a search for a remote file, in the library's layout.
struct TWinInetFindData {
  std::uint32_t Attributes = 0;
  std::uint32_t Times[6] = {};
  std::uint32_t FileSizeHigh = 0;
  std::uint32_t FileSizeLow = 0;
  std::uint32_t Reserved[2] = {};
  char FileName[260] = {};
  char AlternateFileName[14] = {};
};

/// The entry points of the operating system's Internet library that this program uses.
struct TWinInetApi {
  using THandle = void*;
  using TContext = std::uintptr_t;
  using TStatusCallback = void(SKYREEL_WININET_CALL*)(THandle, TContext, std::uint32_t status, void* info,
                                                      std::uint32_t info_length);

  THandle(SKYREEL_WININET_CALL* FtpFindFirstFileA)(THandle connection, const char* path, TWinInetFindData*,
                                                   std::uint32_t flags, TContext) = nullptr;
  int(SKYREEL_WININET_CALL* FtpGetFileA)(THandle connection, const char* remote_path, const char* local_path,
                                         int fail_if_exists, std::uint32_t attributes, std::uint32_t flags,
                                         TContext) = nullptr;
  int(SKYREEL_WININET_CALL* HttpQueryInfoA)(THandle, std::uint32_t level, void* buffer, std::uint32_t* length,
                                            std::uint32_t* index) = nullptr;
  std::uint32_t(SKYREEL_WININET_CALL* InternetAutodial)(std::uint32_t flags, void* parent) = nullptr;
  int(SKYREEL_WININET_CALL* InternetAutodialHangup)(std::uint32_t reserved) = nullptr;
  int(SKYREEL_WININET_CALL* InternetCloseHandle)(THandle) = nullptr;
  THandle(SKYREEL_WININET_CALL* InternetConnectA)(THandle session, const char* host, std::uint16_t port,
                                                  const char* user, const char* password,
                                                  std::uint32_t service, std::uint32_t flags,
                                                  TContext) = nullptr;
  int(SKYREEL_WININET_CALL* InternetGetLastResponseInfoA)(std::uint32_t* error, char* buffer,
                                                          std::uint32_t* length) = nullptr;
  THandle(SKYREEL_WININET_CALL* InternetOpenA)(const char* agent, std::uint32_t access, const char* proxy,
                                               const char* bypass, std::uint32_t flags) = nullptr;
  THandle(SKYREEL_WININET_CALL* InternetOpenUrlA)(THandle, const char* url, const char* headers,
                                                  std::uint32_t headers_length, std::uint32_t flags,
                                                  TContext) = nullptr;
  int(SKYREEL_WININET_CALL* InternetReadFile)(THandle, void* buffer, std::uint32_t count,
                                              std::uint32_t* read) = nullptr;
  int(SKYREEL_WININET_CALL* InternetSetOptionA)(THandle, std::uint32_t option, void* buffer,
                                                std::uint32_t length) = nullptr;
  TStatusCallback(SKYREEL_WININET_CALL* InternetSetStatusCallback)(THandle, TStatusCallback) = nullptr;

  /// The system's last error of the calling thread.
  std::uint32_t(SKYREEL_WININET_CALL* GetLastError)() = nullptr;
};

/// The loaded library. The destructor unloads it; after that it calls back no more.
class TWinInetLibrary {
 public:
  virtual ~TWinInetLibrary() = default;
  TWinInetApi Api;
};

/// Fills the 13 entry points by name from `find`, which gives nothing for a name that it does not know.
/// True when all were found.
bool ResolveWinInet(TWinInetApi& api, const std::function<void*(const char* name)>& find);

/// Loads the library. Empty when it or one of its entry points is missing, and always off Windows.
std::unique_ptr<TWinInetLibrary> LoadWinInet();

enum class TWinInetTransferState : std::uint8_t {
  wtsIdle = 0,      ///< nothing started
  wtsRunning = 1,   ///< download in progress
  wtsDone = 2,      ///< ended without an error
  wtsFailed = 3,    ///< ended with an error
  wtsTimedOut = 4,  ///< the wait ran out
  wtsNoFile = 5,    ///< the remote file was not found
};

/// Downloads by FTP through the operating system's Internet library: asynchronous requests whose progress and
/// end the library reports on a thread of its own. The owner keeps it for the program's whole run.
///
/// Each request has its own record, which the library gets as context. A request that timed out is not
/// cancelled, so the library may still write to its record: the record lives until the library reports the
/// end, or until the library is unloaded.
class TWinInetTransfer {
 public:
  using THandle = TWinInetApi::THandle;

  explicit TWinInetTransfer(std::unique_ptr<TWinInetLibrary> library);
  ~TWinInetTransfer();
  TWinInetTransfer(const TWinInetTransfer&) = delete;
  TWinInetTransfer& operator=(const TWinInetTransfer&) = delete;

  const TWinInetApi& Api() const { return library_->Api; }

  /// An open FTP connection; closes its handles when it goes.
  class TConnection {
   public:
    TConnection(const TWinInetApi& api, THandle session, THandle connection)
        : api_(api), session_(session), connection_(connection) {}
    ~TConnection();
    TConnection(const TConnection&) = delete;
    TConnection& operator=(const TConnection&) = delete;
    THandle Handle() const { return connection_; }

   private:
    const TWinInetApi& api_;
    THandle session_;
    THandle connection_;
  };
  /// Opens an asynchronous session and in it a connection to an FTP server. Empty when that fails. The
  /// password stays out of the status lines.
  std::unique_ptr<TConnection> Connect(const std::string& host, std::uint16_t port, const std::string& user,
                                       const std::string& password, bool passive);

  struct TRemoteFile {
    bool Found = false;
    std::uint32_t Size = 0;  ///< bytes, the low 32 bits
  };
  /// Looks for a file on the server.
  TRemoteFile WinInetFindRemote(THandle connection, const std::string& remote_path) const;

  /// Downloads a file under the shared time-out, with progress display, and adds one status line with the
  /// outcome, or the server's own lines. True only when the library reports success.
  bool WinInetFtpGet(TTransferContext& context, THandle connection, const std::string& remote_path,
                     const std::filesystem::path& local_path);

  /// How the last WinInetFtpGet ended.
  TWinInetTransferState LastState() const { return last_state_; }
  /// What its remote file was.
  const TRemoteFile& LastRemoteFile() const { return last_remote_; }

 private:
  /// One request. Written by the library's thread, read by ours.
  struct TRequest {
    explicit TRequest(const TWinInetApi& api) : Api(api) {}
    const TWinInetApi& Api;
    std::atomic<TWinInetTransferState> WinInetTransferState{TWinInetTransferState::wtsIdle};
    std::atomic<std::int64_t> BytesReceived{0};
    std::atomic<std::uint32_t> WinInetLastError{0};
    std::mutex ResponseMutex;
    std::string WinInetLastResponse;
    std::atomic<bool> Ended{false};  ///< set last: the library will not touch this request again
  };

  static void SKYREEL_WININET_CALL WinInetStatusCallback(THandle, TWinInetApi::TContext context,
                                                         std::uint32_t status, void* info,
                                                         std::uint32_t info_length);
  void Await(TTransferContext& context, TRequest& request);
  void ShowOutcome(TTransferContext& context, TRequest& request, const std::filesystem::path& local_path);

  std::list<TRequest> requests_;
  std::string user_, password_;  ///< of the last Connect
  TWinInetTransferState last_state_ = TWinInetTransferState::wtsIdle;
  TRemoteFile last_remote_;
  // After the requests, so that it is unloaded before they are destroyed.
  std::unique_ptr<TWinInetLibrary> library_;
};

}  // namespace skyreel
