#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "transfer/fetch_test.h"

namespace skyreel {
namespace {

namespace fs = std::filesystem;

enum class TWay { Stream, Direct, Ftp };

class TDiskFaults : public test::TFetchTest {
 protected:
  static constexpr std::size_t kLarge = 8 * kSize;

  ~TDiskFaults() override { Unmount(); }
  void Unmount() const {
    ::umount2(OutputPath().c_str(), MNT_DETACH);
    ::umount2((Folder / "tmp").c_str(), MNT_DETACH);
  }
  /// A file system of so many bytes and files at `folder`, which only this process sees. False where that is
  /// not allowed.
  static bool MountSmall(const fs::path& folder, std::size_t size) {
    static const bool allowed =
        ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    const std::string options = "size=" + std::to_string(size);
    return allowed && ::mount("none", folder.c_str(), "tmpfs", 0, options.c_str()) == 0;
  }

  /// Fetches the hit file, which is large, and the next one. The result of the hit file.
  TFileResult Fetch(TWay way, bool next_comes) {
    const std::string large = test::Picture(kLarge), body = test::Picture(kSize);
    Server.Answer("/hit", large);
    Server.Answer("/next", body);
    TFileResult hit, next;
    if (way == TWay::Ftp) {
      test::TFtpServer server(false,
                              "login|TYPE I>200 ok|open|RETR /hit>150 f|data:<hit>|>226 done|"
                              "open|RETR /next>150 f|data:<next>|>226 done|QUIT>221 bye",
                              {{"hit", large}, {"next", body}});
      server.Strict = false;  // a file that cannot be kept is aborted, or not asked for
      RunFtpSession(Context, {server.Address(), "user", "secret"}, [&](TFtpSession& session) {
        hit = FetchFtp(session, "hit").Result;
        next = FetchFtp(session, "next").Result;
      });
    } else {
      const TDelivery delivery = way == TWay::Stream ? TDelivery::Stream : TDelivery::Direct;
      hit = FetchHttp("hit", delivery);
      next = FetchHttp("next", delivery);
    }
    // An FTP transfer that was aborted may cost the session's next file.
    if (way != TWay::Ftp) {
      EXPECT_EQ(next.Outcome == TFileOutcome::Saved, next_comes) << next.Reason;
    }
    if (way == TWay::Ftp) EndFtpRun();
    return hit;
  }
};

TEST_F(TDiskFaults, CostTheFileAndNothingElse) {
  const struct {
    const char* Name;
    const char* Reason;  ///< empty: the file comes
    /// Makes the trouble at the path of the hit file; false when this user may not.
    std::function<bool(const fs::path& hit)> Make;
    const char* ByStream = "same";  ///< the reason when a temporary file is renamed
    bool NextComes = true;
  } faults[] = {
      {"a folder of that name", "Is a directory",
       [](const fs::path& hit) { return fs::create_directory(hit); }},
      {"a link to a file outside", "",
       [this](const fs::path& hit) {
         fs::create_symlink(Folder.Write("victim", "precious"), hit);
         return true;
       }},
      {"a pipe", "No such device or address",
       [](const fs::path& hit) { return ::mkfifo(hit.c_str(), 0600) == 0; }, ""},
      {"full disk", "No space left on device",
       [this](const fs::path&) { return MountSmall(OutputPath(), 4 * kSize); }},
      {"full temporary folder", "", [this](const fs::path&) { return MountSmall(Folder / "tmp", 4 * kSize); },
       "No space left on device"},
      {"temporary folder on another disk", "",
       [this](const fs::path&) { return MountSmall(Folder / "tmp", 100 * kSize); }},
      {"read-only disk", "Read-only file system",
       [this](const fs::path&) {
         return MountSmall(OutputPath(), kSize) &&
                ::mount(nullptr, OutputPath().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0;
       },
       "same", false},
      {"ledger that cannot be written", "",
       [this](const fs::path&) { return fs::create_directory(Folder / "ledger.txt"); }},
  };
  for (const auto& fault : faults) {
    for (const TWay way : {TWay::Stream, TWay::Direct, TWay::Ftp}) {
      SCOPED_TRACE(std::string(fault.Name) + ", " + std::to_string(static_cast<int>(way)));
      fs::create_directories(OutputPath());
      if (!fault.Make(Output("hit"))) GTEST_SKIP() << "this user may not mount a disk";
      const bool stream = way == TWay::Stream && fault.ByStream != std::string("same");
      const std::string reason = stream ? fault.ByStream : fault.Reason;
      const TFileResult result = Fetch(way, fault.NextComes);
      EXPECT_THAT(result.Reason, testing::EndsWith(reason));
      EXPECT_EQ(result.Outcome, reason.empty() ? TFileOutcome::Saved : TFileOutcome::NotSaved);
      EXPECT_EQ(FileSizeOf(Output("hit")), reason.empty() ? static_cast<std::int64_t>(kLarge) : -1);
      if (fs::exists(Folder / "victim")) {
        EXPECT_EQ(ReadWholeFile(Folder / "victim"), "precious");
      }
      Unmount();
      fs::remove_all(OutputPath());
      fs::remove_all(Folder / "ledger.txt");
    }
  }
}

}  // namespace
}  // namespace skyreel
