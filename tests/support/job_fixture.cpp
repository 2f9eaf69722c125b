#include "support/job_fixture.h"

#include "base/files.h"
#include "transfer/transfer_progress.h"

namespace skyreel::test {

namespace fs = std::filesystem;

TJobFixture::TJobFixture(TDateTime now)
    : Clock(now),
      Ledger(Folder / "ledger.txt"),
      Context{{Display, Run, Clock, NMFTP, NMHTTP, NMHTTPNotts, Ledger, {}}, {}, Folder / "program"} {
  fs::create_directories(OutputPath());
  fs::create_directories(Context.ProgramFolder);
  Context.Shared.TimeoutSeconds = 20;
  for (const TServerRootSetting& root : kServerRootSettings) {
    Context.Servers.*root.Field = root.Ftp ? root.Default : "http://" + Server.Address();
  }
  NMHTTPNotts.InputFileMode = true;
  for (TPowersock* const client : {static_cast<TPowersock*>(&NMFTP), static_cast<TPowersock*>(&NMHTTP),
                                   static_cast<TPowersock*>(&NMHTTPNotts)}) {
    client->OnPacketRecvd = [this](TPowersock& sender) {
      ShowTransferProgress(Display, sender.ReceivedByteCount, sender.TransferSize);
    };
  }
}

std::string TJobFixture::OutputPath() const {
  return (Folder / "out").string() + fs::path::preferred_separator;
}

fs::path TJobFixture::Output(const std::string& relative) const {
  return fs::path(OutputPath()) / relative;
}

fs::path TJobFixture::WriteOutput(const std::string& relative, const std::string& content) const {
  return Folder.Write("out/" + relative, content);
}

std::map<std::string, std::int64_t> TJobFixture::Tree() const {
  const std::string prefix = "out/";
  std::map<std::string, std::int64_t> tree;
  for (const auto& [name, size] : Folder.Tree()) {
    if (name.starts_with(prefix)) tree[name.substr(prefix.size())] = size;
  }
  return tree;
}

std::vector<std::string> TJobFixture::Files() const {
  std::vector<std::string> files;
  for (const auto& [name, size] : Tree()) files.push_back(name);
  return files;
}

std::string TJobFixture::AtRest() const {
  std::string panels[2];
  for (const auto& [panel, text] : Display.Panels) panels[panel] = text;
  std::string wrong;
  if (!Display.Progress.empty() && Display.Progress.back() != 0) wrong += "progress bar; ";
  if (!Display.BytesLabels.empty() && !Display.BytesLabels.back().empty()) wrong += "bytes label; ";
  if (!Display.Titles.empty() && Display.Titles.back() != kApplicationTitle) wrong += "title; ";
  if (!panels[0].empty() || !panels[1].empty()) wrong += "panels " + panels[0] + "|" + panels[1] + "; ";
  if (Display.BusyDepth != 0) wrong += "cursor; ";
  if (Run.WatchdogArmed || Run.Restarts != Run.Stops) wrong += "watchdog; ";
  if (!Display.Lines.empty() && Display.Lines.back().starts_with("Get: ")) wrong += "outcome line; ";
  return wrong;
}

std::string Picture(std::size_t size, char fill) {
  return std::string(size, fill);
}

}  // namespace skyreel::test
