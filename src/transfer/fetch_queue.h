#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "net/https_client.h"
#include "transfer/transfer_context.h"

namespace skyreel {

/// How an address of the queue ended.
enum class TFetchEnd {
  Answered,  ///< a whole reply came, with whatever code; only the body of a 200 is kept
  Failed,    ///< the network's or the server's fault, in the last try
  NotKept,   ///< the body is too large, or this computer could not keep it
  NotSent,   ///< the address or the request is wrong
  LeftOut,   ///< not asked: the run has left the host
  Stopped,   ///< the run was stopped before the end
};

/// What became of an address.
struct TFetchAnswer {
  TFetchEnd End = TFetchEnd::Stopped;
  std::string Reason;         ///< why it is not Answered, for a status line
  bool TooLarge = false;      ///< NotKept: the body is beyond the limit
  std::string ServerProblem;  ///< that it could not be reached or refused the login; see ReportServerProblem
  int Code = 0;               ///< HTTP status of the last reply; 0 when there was none
  std::string Header;         ///< the last reply's header lines
  std::string Url;            ///< the address that answered, after redirects
  std::string ETag;           ///< of the last reply; "" when it has none
  std::string LastModified;
  std::optional<std::int64_t> Length;  ///< bytes of the whole, when the server said
  std::string Text;                    ///< the body of a 200, if it goes to no file
  std::int64_t Bytes = 0;              ///< of the body that came
  double Seconds = 0;                  ///< of the last try
  int Tries = 0;
};

/// An address to fetch.
struct TFetchRequest {
  std::string Url;
  /// The body's file. It is created, or emptied, when the body of a good reply begins, and is the caller's
  /// from then on, whole or cut. Empty: the body is kept in memory.
  std::filesystem::path File;
  std::int64_t Limit = 0;  ///< most bytes of the body; 0: the context's LargestDownload; 64 MiB in memory
  bool HeaderOnly = false;
  int Tries = 3;  ///< how often a failure that may pass is met in all
  /// Of the copy that is there: an unchanged file is answered with 304. May be empty.
  std::string ETag, LastModified;
  /// Neighbours in the queue with the same group, if any, may be asked for side by side (tiles of a picture).
  std::string Group;
  /// Least time from one request to the next at this host. Of all requests to a host the longest holds.
  std::chrono::milliseconds Gap{0};
  /// Asked before each try, if set. False drops the request without a call of Done.
  std::function<bool()> IsWanted;
  /// Called exactly once, in Run. May add requests. Must not throw.
  std::function<void(const TFetchAnswer& answer)> Done;
};

/// Fetches many addresses over the context's HTTPS client. Up to six hosts are asked side by side, each over
/// one connection and one request after the other in the order in which they were added. Several requests of
/// one group run at once where the host speaks HTTP/2.
///
/// A failure that may pass (no connection, time-out, cut body, codes 408 425 429 500 502 503 504 520 to 524)
/// is tried three times in all, about 30 s apart, or when Retry-After says. What came of a cut body is kept,
/// and only the rest asked for, if the server vouches that the file is the same. A host is left for the rest
/// of the run when two of its files have failed so, or when Retry-After says more than 15 minutes; a status
/// line then names how many files were not asked for. While one host waits the others go on, and the second
/// panel names it.
class TFetchQueue {
 public:
  /// The context outlives the queue.
  explicit TFetchQueue(TTransferContext& context);
  /// Ends what is running; no Done is called.
  ~TFetchQueue();
  TFetchQueue(const TFetchQueue&) = delete;
  TFetchQueue& operator=(const TFetchQueue&) = delete;

  void Add(TFetchRequest request);
  /// Works until nothing is left. After a stop request all that is left ends as Stopped.
  void Run();

 private:
  struct TItem;
  struct THost;
  using TTime = std::chrono::milliseconds;
  /// How a try ended.
  struct TVerdict {
    TFetchEnd End = TFetchEnd::Answered;
    std::string Reason = "";
    bool MayPass = false;                           ///< another try may help
    std::optional<std::chrono::seconds> Wait = {};  ///< the server says when
  };

  bool MayStart(const THost& host) const;
  void StartAll();
  void Start(THost& host);
  void WaitForHost();
  /// Shows in the second panel which host waits for another try.
  void ShowWait(const std::string& text);
  std::string WaitText() const;
  void ItemEnded(THost& host, TItem& item, const THttpsReply& reply, const std::exception_ptr& failure);
  TVerdict Judge(TItem& item, const THttpsReply& reply, const std::exception_ptr& failure) const;
  TTime Pause();
  void End(std::unique_ptr<TItem> item, TFetchEnd end, const std::string& reason);
  void EndWaiting(THost& host, TFetchEnd end, const std::string& reason);
  void StopAll();
  bool IsEmpty() const;

  TTransferContext& context_;
  std::map<std::string, THost> hosts_;
  std::vector<THost*> order_;  ///< the host that was asked last is the last one
  std::string shown_wait_;
  std::minstd_rand random_{std::random_device{}()};
};

}  // namespace skyreel
