#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "transfer/fetch_test.h"

namespace skyreel {
namespace {

namespace fs = std::filesystem;

enum class TWay { Stream, Direct, Ftp };

const bool kMayMount =
    ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;

class TDiskFaults : public test::TFetchTest {
 protected:
  static constexpr std::size_t kLarge = 8 * kSize;

  ~TDiskFaults() override { Unmount(); }
  void Unmount() const {
    ::umount2(OutputPath().c_str(), MNT_DETACH);
    ::umount2((Folder / "tmp").c_str(), MNT_DETACH);
  }
  /// Mounts a file system of so many bytes, which only this process sees.
  static void MountSmall(const fs::path& folder, std::size_t size) {
    const std::string options = "size=" + std::to_string(size);
    EXPECT_EQ(::mount("none", folder.c_str(), "tmpfs", 0, options.c_str()), 0);
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
  const std::string out = OutputPath(), full = "No space left on device";
  const fs::path hit = Output("hit"), tmp = Folder / "tmp";
  // The fault, the reason (empty: the file comes), the reason when a temporary file is renamed, whether the
  // next file comes, and what makes the trouble.
  const std::tuple<const char*, std::string, std::string, bool, std::function<void()>> faults[] = {
      {"a folder of that name", "Is a directory", "Is a directory", true, [&] { fs::create_directory(hit); }},
      {"a link to a file outside", "", "", true,
       [&] { fs::create_symlink(Folder.Write("victim", "precious"), hit); }},
      {"a pipe", "No such device or address", "", true, [&] { ::mkfifo(hit.c_str(), 0600); }},
      {"full disk", full, full, true, [&] { MountSmall(out, 4 * kSize); }},
      {"full temporary folder", "", full, true, [&] { MountSmall(tmp, 4 * kSize); }},
      {"temporary folder on another disk", "", "", true, [&] { MountSmall(tmp, 100 * kSize); }},
      {"read-only disk", "Read-only file system", "Read-only file system", false,
       [&] {
         MountSmall(out, kSize);
         ::mount(nullptr, out.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr);
       }},
      {"ledger that cannot be written", "", "", true, [&] { fs::create_directory(Folder / "ledger.txt"); }},
  };
  if (!kMayMount) GTEST_SKIP() << "this user may not mount a disk";
  for (const auto& [name, by_write, by_rename, next_comes, make] : faults) {
    for (const TWay way : {TWay::Stream, TWay::Direct, TWay::Ftp}) {
      SCOPED_TRACE(std::string(name) + ", " + std::to_string(static_cast<int>(way)));
      fs::create_directories(out);
      make();
      const std::string reason = way == TWay::Stream ? by_rename : by_write;
      const TFileResult result = Fetch(way, next_comes);
      EXPECT_THAT(result.Reason, testing::EndsWith(reason));
      EXPECT_EQ(result.Outcome, reason.empty() ? TFileOutcome::Saved : TFileOutcome::NotSaved);
      EXPECT_EQ(FileSizeOf(hit), reason.empty() ? static_cast<std::int64_t>(kLarge) : -1);
      if (fs::exists(Folder / "victim")) {
        EXPECT_EQ(ReadWholeFile(Folder / "victim"), "precious");
      }
      Unmount();
      for (const fs::path& path : {fs::path(out), Folder / "ledger.txt"}) fs::remove_all(path);
    }
  }
}

}  // namespace
}  // namespace skyreel
