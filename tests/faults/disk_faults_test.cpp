#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <optional>

#include "base/files.h"
#include "faults/stage.h"

namespace skyreel {
namespace {

namespace fs = std::filesystem;
using test::Judge;
using test::TFamily;
using test::TOutcome;
using test::TStage;
using test::TSubject;

/// A file system of so many bytes at `folder`, seen by this process alone and gone with it. False where that
/// is not allowed.
bool MountSmall(const fs::path& folder, std::size_t size) {
  static const bool allowed =
      ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  const std::string options = "size=" + std::to_string(size);
  return allowed && ::mount("none", folder.c_str(), "tmpfs", 0, options.c_str()) == 0;
}

/// Files may not grow beyond this limit, as on a disk that takes no more, for the time of a scope.
class TFileSizeLimit {
 public:
  explicit TFileSizeLimit(std::size_t limit) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit low{limit, before_.rlim_max};
    if (limit != 0) ::setrlimit(RLIMIT_FSIZE, &low);
  }
  ~TFileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }
  TFileSizeLimit(const TFileSizeLimit&) = delete;
  TFileSizeLimit& operator=(const TFileSizeLimit&) = delete;

 private:
  rlimit before_{};
  sighandler_t handler_;
};

enum class TGets { Whole, NotSaved, NoneSaved };

struct TDiskFault {
  const char* Name;
  TGets Gets;
  const char* Reason;
  /// Makes the trouble where the file that is hit is to stand; false when this user may not.
  bool (*Make)(TStage& stage, const fs::path& hit);
  std::size_t Times = 1;      ///< how much larger than the others the file is
  bool Limited = false;       ///< under a TFileSizeLimit
  bool FetchDiffers = false;  ///< what saves by renaming a temporary file gets the opposite
};

const TDiskFault kFaults[] = {
    {"a folder of that name", TGets::NotSaved, "Is a directory",
     [](TStage&, const fs::path& hit) { return fs::create_directory(hit); }},
    {"a symbolic link to a file outside", TGets::Whole, "",
     [](TStage& stage, const fs::path& hit) {
       fs::create_symlink(stage.Folder.Write("victim", "precious"), hit);
       return true;
     }},
    {"a symbolic link to nothing", TGets::Whole, "",
     [](TStage& stage, const fs::path& hit) {
       fs::create_symlink(stage.Folder / "none", hit);
       return true;
     }},
    {"a pipe of that name", TGets::NotSaved, "No such device or address",
     [](TStage&, const fs::path& hit) { return ::mkfifo(hit.c_str(), 0600) == 0; }, 1, false, true},
    {"name too long", TGets::NotSaved, "File name too long",
     [](TStage& stage, const fs::path&) {
       stage.Files[stage.Hit].Local = std::string(300, 'n') + ".gif";
       return true;
     }},
    {"file larger than the system allows", TGets::NotSaved, "File too large",
     [](TStage&, const fs::path&) { return true; }, 8, true},
    {"full disk", TGets::NotSaved, "No space left on device",
     [](TStage& stage, const fs::path&) { return MountSmall(stage.OutputPath(), 4 * stage.Size()); }, 8},
    {"full temporary folder", TGets::Whole, "No space left on device",
     [](TStage& stage, const fs::path&) { return MountSmall(stage.Folder / "tmp", 4 * stage.Size()); }, 8,
     false, true},
    {"read-only disk", TGets::NoneSaved, "Read-only file system",
     [](TStage& stage, const fs::path&) {
       return MountSmall(stage.OutputPath(), stage.Size()) &&
              ::mount(nullptr, stage.OutputPath().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0;
     }},
    {"output folder that is a file", TGets::NoneSaved, "Not a directory",
     [](TStage& stage, const fs::path&) {
       fs::remove_all(stage.Folder / "out");
       stage.Folder.Write("out", "x");
       return true;
     }},
    {"ledger that cannot be written", TGets::Whole, "",
     [](TStage& stage, const fs::path&) { return fs::create_directory(stage.Folder / "ledger.txt"); }},
};

TOutcome Expected(const TSubject& subject, bool saved, const std::string& reason) {
  const bool get = subject.Family == TFamily::Pdus || subject.Family == TFamily::Ftp;
  std::string line = get ? "Get: NAME; " : "";
  if (subject.Family == TFamily::Client) {
    line = saved ? "" : "FILE: " + reason;
  } else if (subject.Family == TFamily::Save) {
    line = saved ? "" : "not saved: " + reason;
  } else if (subject.Family == TFamily::Ftp && saved) {
    line = "Get: NAME";
  } else {
    line += saved ? "NAME - OK" : "NAME - not saved: " + reason;
  }
  return {line, saved ? "whole" : "nothing"};
}

class DiskFaults : public testing::TestWithParam<TDiskFault> {
 protected:
  /// False when this user may not make the fault.
  bool Run(const TSubject& subject, TStage& stage, bool ftp) {
    const TDiskFault& fault = GetParam();
    stage.Times = fault.Times;
    subject.Prepare(stage);
    // Names of sources are not that long; to some a link to a file is a file that is there already.
    if (fault.Name == std::string("name too long") && (stage.Hit != 0 || ftp)) return true;
    if (fault.Name == std::string("a symbolic link to a file outside") &&
        subject.Name == std::string("EUMETSAT data"))
      return true;
    std::optional<test::TFtpStageServer> server;
    if (ftp) {
      server.emplace(stage, subject.Passive, false, [](test::TFtpTurn& turn) { turn.Whole(); });
    } else {
      ServeHttp(stage);
    }
    const fs::path hit = stage.Output(stage.HitFile().Local);
    fs::create_directories(hit.parent_path());
    if (!fault.Make(stage, hit)) return false;
    TOutcome seen;
    {
      const TFileSizeLimit limit(fault.Limited ? 4 * stage.Size() : 0);
      seen = stage.Play(20'000, 0);
    }
    const bool saved =
        (fault.Gets == TGets::Whole) != (fault.FetchDiffers && subject.Family == TFamily::Fetch);
    TOutcome expected = Expected(subject, saved, fault.Reason);
    if (fault.Gets == TGets::NoneSaved) {
      EXPECT_THAT(seen.Sees, testing::HasSubstr(fault.Reason));
      expected.Sees = seen.Sees;
    }
    Judge("Disk", fault.Name, subject, stage, seen, expected, fault.Gets == TGets::NoneSaved ? "no" : "yes");
    EXPECT_FALSE(fs::exists(stage.Folder / "none"));
    if (fs::exists(stage.Folder / "victim")) {
      EXPECT_EQ(ReadWholeFile(stage.Folder / "victim"), "precious");
    }
    ::umount2(stage.OutputPath().c_str(), MNT_DETACH);
    ::umount2((stage.Folder / "tmp").c_str(), MNT_DETACH);
    return true;
  }
};

TEST_P(DiskFaults, CostsOneFile) {
  for (const auto* subjects : {&test::HttpSubjects(), &test::FtpSubjects()}) {
    for (const TSubject& subject : *subjects) {
      SCOPED_TRACE(subject.Name);
      if (subject.Family == TFamily::Memory || subject.Family == TFamily::Stream ||
          subject.Family == TFamily::Older)
        continue;
      TStage stage(subject.Size);
      if (!Run(subject, stage, subjects == &test::FtpSubjects()))
        GTEST_SKIP() << "this user may not mount a file system";
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Target, DiskFaults, testing::ValuesIn(kFaults),
                         [](const auto& info) { return test::TestName(info.param.Name); });

}  // namespace
}  // namespace skyreel
