#include "transfer/wininet.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <vector>

#include "base/files.h"
#include "base/text.h"
#include "transfer/transfer_progress.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace skyreel {

namespace {

constexpr std::uint32_t kAsynchronous = 0x10000000;
constexpr std::uint32_t kServiceFtp = 1;
constexpr std::uint32_t kPassive = 0x08000000;
constexpr std::uint32_t kReload = 0x80000000;
constexpr std::uint32_t kBinary = 2;
constexpr std::uint32_t kStatusResponseReceived = 41;
constexpr std::uint32_t kStatusRequestComplete = 100;
constexpr std::uint32_t kErrorNoMoreFiles = 18;
constexpr std::uint32_t kErrorIoPending = 997;
constexpr std::uint32_t kErrorExtended = 12003;
constexpr std::chrono::milliseconds kPoll{250};
constexpr std::chrono::milliseconds kGrace{50};

/// What the library passes when a request ends.
struct TAsyncResult {
  std::uintptr_t Result;
  std::uint32_t Error;
};

template <typename F>
bool Resolve(F& function, const std::function<void*(const char*)>& find, const char* name) {
  function = reinterpret_cast<F>(find(name));
  return function != nullptr;
}

/// The server's last response on the calling thread; empty if the library keeps no response.
std::string LastResponse(const TWinInetApi& api) {
  std::array<char, 1025> text{};
  std::uint32_t error = 0, length = static_cast<std::uint32_t>(text.size());
  if (!api.InternetGetLastResponseInfoA(&error, text.data(), &length)) return "";
  if (length == 0 || text[0] == '\0') return "";
  return std::string(text.data(), std::min<std::size_t>(length, text.size()));
}

}  // namespace

bool ResolveWinInet(TWinInetApi& api, const std::function<void*(const char* name)>& find) {
  return Resolve(api.FtpFindFirstFileA, find, "FtpFindFirstFileA") &&
         Resolve(api.FtpGetFileA, find, "FtpGetFileA") &&
         Resolve(api.HttpQueryInfoA, find, "HttpQueryInfoA") &&
         Resolve(api.InternetAutodial, find, "InternetAutodial") &&
         Resolve(api.InternetAutodialHangup, find, "InternetAutodialHangup") &&
         Resolve(api.InternetCloseHandle, find, "InternetCloseHandle") &&
         Resolve(api.InternetConnectA, find, "InternetConnectA") &&
         Resolve(api.InternetGetLastResponseInfoA, find, "InternetGetLastResponseInfoA") &&
         Resolve(api.InternetOpenA, find, "InternetOpenA") &&
         Resolve(api.InternetOpenUrlA, find, "InternetOpenUrlA") &&
         Resolve(api.InternetReadFile, find, "InternetReadFile") &&
         Resolve(api.InternetSetOptionA, find, "InternetSetOptionA") &&
         Resolve(api.InternetSetStatusCallback, find, "InternetSetStatusCallback");
}

#ifdef _WIN32

namespace {

std::uint32_t SKYREEL_WININET_CALL SystemLastError() {
  return ::GetLastError();
}

class TSystemLibrary : public TWinInetLibrary {
 public:
  TSystemLibrary() : module_(::LoadLibraryA("wininet.dll")) { Api.GetLastError = SystemLastError; }
  ~TSystemLibrary() override {
    if (module_ != nullptr) ::FreeLibrary(module_);
  }
  bool Resolve() {
    return module_ != nullptr && ResolveWinInet(Api, [this](const char* name) {
             return reinterpret_cast<void*>(::GetProcAddress(module_, name));
           });
  }

 private:
  HMODULE module_;
};

}  // namespace

std::unique_ptr<TWinInetLibrary> LoadWinInet() {
  auto library = std::make_unique<TSystemLibrary>();
  if (!library->Resolve()) return nullptr;
  return library;
}

#else

std::unique_ptr<TWinInetLibrary> LoadWinInet() {
  return nullptr;
}

#endif

TWinInetTransfer::TWinInetTransfer(std::unique_ptr<TWinInetLibrary> library) : library_(std::move(library)) {}

TWinInetTransfer::~TWinInetTransfer() = default;

TWinInetTransfer::TConnection::~TConnection() {
  api_.InternetCloseHandle(connection_);
  api_.InternetCloseHandle(session_);
}

std::unique_ptr<TWinInetTransfer::TConnection> TWinInetTransfer::Connect(const std::string& host,
                                                                         std::uint16_t port,
                                                                         const std::string& user,
                                                                         const std::string& password,
                                                                         bool passive) {
  user_ = user;
  password_ = password;
  const TWinInetApi& api = Api();
  const THandle session = api.InternetOpenA("Skyreel", 0, nullptr, nullptr, kAsynchronous);
  if (session == nullptr) return nullptr;
  // Context 0: the handle comes at once and gets no callback.
  const THandle connection = api.InternetConnectA(session, host.c_str(), port, user.c_str(), password.c_str(),
                                                  kServiceFtp, passive ? kPassive : 0, 0);
  if (connection == nullptr) {
    api.InternetCloseHandle(session);
    return nullptr;
  }
  api.InternetSetStatusCallback(connection, WinInetStatusCallback);
  return std::make_unique<TConnection>(api, session, connection);
}

TWinInetTransfer::TRemoteFile TWinInetTransfer::WinInetFindRemote(THandle connection,
                                                                  const std::string& remote_path) const {
  TRemoteFile remote;
  TWinInetFindData data;
  const THandle search = Api().FtpFindFirstFileA(connection, remote_path.c_str(), &data, kReload, 0);
  if (search == nullptr) return remote;
  // kept: a handle alone does not prove that the file exists.
  remote.Found = Api().GetLastError() != kErrorNoMoreFiles;
  remote.Size = data.FileSizeLow;
  Api().InternetCloseHandle(search);
  return remote;
}

bool TWinInetTransfer::WinInetFtpGet(TTransferContext& context, THandle connection,
                                     const std::string& remote_path,
                                     const std::filesystem::path& local_path) {
  requests_.remove_if([](const TRequest& request) { return request.Ended.load(); });
  TRequest& request = requests_.emplace_back(Api());
  last_remote_ = WinInetFindRemote(connection, remote_path);
  if (!last_remote_.Found) {
    request.WinInetTransferState = TWinInetTransferState::wtsNoFile;
    request.Ended = true;
  } else {
    // Before the call, because the library may report the end before the call returns.
    request.WinInetTransferState = TWinInetTransferState::wtsRunning;
    if (!Api().FtpGetFileA(connection, remote_path.c_str(), local_path.string().c_str(), 0, 0,
                           kReload | kBinary, reinterpret_cast<TWinInetApi::TContext>(&request))) {
      const std::uint32_t error = Api().GetLastError();
      if (error != kErrorIoPending) {
        request.WinInetLastError = error;
        request.WinInetTransferState = TWinInetTransferState::wtsFailed;
        // The library forgets a request that it has refused.
        request.Ended = true;
      }
    }
  }
  Await(context, request);
  ShowOutcome(context, request, local_path);
  return last_state_ == TWinInetTransferState::wtsDone;
}

void TWinInetTransfer::Await(TTransferContext& context, TRequest& request) {
  const std::chrono::milliseconds time_out = std::chrono::seconds(context.Shared.TimeoutSeconds) + kGrace;
  std::chrono::milliseconds elapsed{0};
  std::string bytes;
  do {
    const std::int64_t received = request.BytesReceived;
    const double share = last_remote_.Size == 0 ? 0 : static_cast<double>(received) / last_remote_.Size;
    context.Display.SetProgress(static_cast<int>(std::lround(std::min(share, 1.0) * 100)));
    bytes = std::to_string(received) + " bytes";
    context.Display.SetBytes(bytes, bytes);
    context.Clock.Sleep(kPoll);
    elapsed += kPoll;
  } while (request.WinInetTransferState == TWinInetTransferState::wtsRunning && elapsed <= time_out);
  context.Display.SetProgress(0);
  context.Display.SetBytes(bytes, kApplicationTitle);
  // kept: an end that came during the last step is too late.
  last_state_ = elapsed > time_out ? TWinInetTransferState::wtsTimedOut : request.WinInetTransferState.load();
}

void TWinInetTransfer::ShowOutcome(TTransferContext& context, TRequest& request,
                                   const std::filesystem::path& local_path) {
  std::string message;
  std::vector<std::string> extra;
  switch (last_state_) {
    case TWinInetTransferState::wtsDone:
      message = "Got " + std::to_string(FileSizeOf(local_path)) + " bytes";
      break;
    case TWinInetTransferState::wtsTimedOut:
      message = "Transfer timed out";
      break;
    case TWinInetTransferState::wtsNoFile:
      message = "File does not exist";
      break;
    default: {
      message = "Transfer failed";
      const std::lock_guard lock(request.ResponseMutex);
      if (request.WinInetLastError == kErrorExtended) extra = SplitLines(request.WinInetLastResponse);
      if (extra.size() > 1 && extra.back() == extra[extra.size() - 2]) extra.pop_back();
      request.WinInetLastResponse.clear();
    }
  }
  if (extra.empty()) context.Display.AddStatusLine(message);
  for (const std::string& line : extra)
    context.Display.AddStatusLine(WithoutSecrets(WithoutControls(line), user_, password_));
  context.Clock.Sleep(std::chrono::milliseconds(0));
}

void SKYREEL_WININET_CALL TWinInetTransfer::WinInetStatusCallback(THandle, TWinInetApi::TContext context,
                                                                  std::uint32_t status, void* info,
                                                                  std::uint32_t info_length) {
  // The other status codes do not matter to a request.
  if (context == 0 || info == nullptr) return;
  auto& request = *reinterpret_cast<TRequest*>(context);
  if (status == kStatusResponseReceived && info_length >= sizeof(std::uint32_t)) {
    std::uint32_t count = 0;
    std::memcpy(&count, info, sizeof count);
    request.BytesReceived += count;
  } else if (status == kStatusRequestComplete && info_length >= sizeof(TAsyncResult)) {
    TAsyncResult result{};
    std::memcpy(&result, info, sizeof result);
    const std::string response = LastResponse(request.Api);
    {
      const std::lock_guard lock(request.ResponseMutex);
      request.WinInetLastResponse = response;
    }
    request.WinInetLastError = result.Error;
    // After the fields above, so that a reader who sees the end sees them, too.
    request.WinInetTransferState =
        result.Error == 0 ? TWinInetTransferState::wtsDone : TWinInetTransferState::wtsFailed;
    request.Ended = true;
  }
}

}  // namespace skyreel
