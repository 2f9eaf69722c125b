#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <optional>

#include "base/files.h"
#include "faults/stage.h"
#include "support/limit_scope.h"

namespace skyreel {
namespace {

namespace fs = std::filesystem;
using test::TFamily;
using test::TOutcome;
using test::TStage;
using test::TSubject;

/// A file system of so many bytes and files at `folder`, seen by this process alone and gone with it. False
/// where that is not allowed.
bool MountSmall(const fs::path& folder, std::size_t size, int files = 100) {
  static const bool allowed =
      ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  const std::string options = "size=" + std::to_string(size) + ",nr_inodes=" + std::to_string(files);
  return allowed && ::mount("none", folder.c_str(), "tmpfs", 0, options.c_str()) == 0;
}

enum class TGets { Whole, NotSaved, NoneSaved };
using enum TGets;

struct TDiskFault {
  const char* Name;
  TGets Gets;
  const char* Reason;
  /// Makes the trouble where the file that is hit is to stand; false when this user may not.
  bool (*Make)(TStage& stage, const fs::path& hit);
  std::size_t Times = 1;      ///< how much larger than the others the file is
  bool FetchDiffers = false;  ///< what saves by renaming a temporary file gets the opposite
};

const TDiskFault kFaults[] = {
    {"a folder of that name", NotSaved, "Is a directory",
     [](TStage&, const fs::path& hit) { return fs::create_directory(hit); }},
    {"a symbolic link to a file outside", Whole, "",
     [](TStage& s, const fs::path& hit) {
       return fs::create_symlink(s.Folder.Write("victim", "precious"), hit), true;
     }},
    {"a symbolic link to nothing", Whole, "",
     [](TStage& s, const fs::path& hit) { return fs::create_symlink(s.Folder / "none", hit), true; }},
    {"a pipe of that name", NotSaved, "No such device or address",
     [](TStage&, const fs::path& hit) { return ::mkfifo(hit.c_str(), 0600) == 0; }, 1, true},
    {"name too long", NotSaved, "File name too long",
     [](TStage& s, const fs::path&) { return s.Files[s.Hit].Local = std::string(300, 'n'), true; }},
    {"file larger than the system allows", NotSaved, "File too large",
     [](TStage&, const fs::path&) { return true; }, 8},
    {"full disk", NotSaved, "No space left on device",
     [](TStage& s, const fs::path&) { return MountSmall(s.OutputPath(), 4 * s.Size); }, 8},
    {"full temporary folder", Whole, "No space left on device",
     [](TStage& s, const fs::path&) { return MountSmall(s.Folder / "tmp", 4 * s.Size); }, 8, true},
    {"disk without room for one more file", NoneSaved, "No space left on device",
     [](TStage& s, const fs::path&) { return MountSmall(s.OutputPath(), 100 * s.Size, 1); }},
    {"read-only disk", NoneSaved, "Read-only file system",
     [](TStage& s, const fs::path&) {
       return MountSmall(s.OutputPath(), s.Size) &&
              ::mount(nullptr, s.OutputPath().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0;
     }},
    {"output folder that is a file", NoneSaved, "Not a directory",
     [](TStage& s, const fs::path&) {
       return fs::remove_all(s.Folder / "out"), s.Folder.Write("out", "x"), true;
     }},
    {"ledger that cannot be written", Whole, "",
     [](TStage& s, const fs::path&) { return fs::create_directory(s.Folder / "ledger.txt"); }},
};

std::string ExpectedLine(TFamily family, bool saved, const std::string& reason) {
  switch (family) {
    case TFamily::Client:
      return saved ? "" : "FILE: " + reason;
    case TFamily::Save:
      return saved ? "" : "not saved: " + reason;
    case TFamily::Ftp:
      return saved ? "Get: NAME" : "Get: NAME; NAME - not saved: " + reason;
    default:
      return (family == TFamily::Pdus ? "Get: NAME; " : "") +
             (saved ? "NAME - OK" : "NAME - not saved: " + reason);
  }
}

class DiskFaults : public testing::TestWithParam<TDiskFault> {
 protected:
  /// False when this user may not make the fault.
  bool Play(const TSubject& subject, bool ftp) {
    const TDiskFault& fault = GetParam();
    TStage stage(subject.Size);
    stage.Times = fault.Times;
    subject.Prepare(stage);
    // Names of sources are not that long; to an FTP source a link to a file is a file that is there already.
    const std::string name = fault.Name;
    if (name == "name too long" && (ftp || stage.Hit != 0)) return true;
    if (name == "a symbolic link to a file outside" && stage.HitFile().Remote.starts_with("/M7/"))
      return true;
    std::optional<test::TFtpStageServer> server;
    ftp ? void(server.emplace(stage, subject.Passive)) : ServeHttp(stage);
    if (ftp) server->Strict = fault.Gets != NoneSaved;
    const fs::path hit = stage.Output(stage.HitFile().Local);
    fs::create_directories(hit.parent_path());
    if (!fault.Make(stage, hit)) return false;
    std::optional<test::TLimitScope> limit;
    if (name.starts_with("file larger")) limit.emplace(RLIMIT_FSIZE, 4 * stage.Size);
    const TOutcome seen = stage.Play();
    limit.reset();
    const bool saved = (fault.Gets == Whole) != (fault.FetchDiffers && subject.Family == TFamily::Fetch);
    TOutcome expected{ExpectedLine(subject.Family, saved, fault.Reason), saved ? "whole" : "nothing"};
    if (fault.Gets == NoneSaved) {
      EXPECT_THAT(seen.Sees, testing::HasSubstr(fault.Reason));
      expected.Sees = seen.Sees;
    }
    Judge(subject, stage, seen, expected, fault.Gets == NoneSaved ? "no" : "yes");
    EXPECT_FALSE(fs::exists(stage.Folder / "none"));
    if (fs::exists(stage.Folder / "victim")) {
      EXPECT_EQ(ReadWholeFile(stage.Folder / "victim"), "precious");
    }
    ::umount2(stage.OutputPath().c_str(), MNT_DETACH);
    ::umount2((stage.Folder / "tmp").c_str(), MNT_DETACH);
    return true;
  }
};
INSTANTIATE_TEST_SUITE_P(Target, DiskFaults, testing::ValuesIn(kFaults),
                         [](const auto& info) { return test::TestName(info.param.Name); });

TEST_P(DiskFaults, CostOneFile) {
  for (const auto* const subjects : {&test::HttpSubjects(), &test::FtpSubjects()}) {
    for (const TSubject& subject : *subjects) {
      SCOPED_TRACE(subject.Name);
      const bool saves = subject.Family != TFamily::Memory && subject.Family != TFamily::Stream &&
                         subject.Family != TFamily::Older;
      if (saves && !Play(subject, subjects == &test::FtpSubjects()))
        GTEST_SKIP() << "this user may not mount a disk";
    }
  }
}

}  // namespace
}  // namespace skyreel
