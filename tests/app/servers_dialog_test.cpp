#include "app/servers_dialog.h"

#include <gmock/gmock.h>

#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

#include "support/temp_folder.h"

namespace skyreel {
namespace {

TEST(ServerRoot, IsAHostAndMayHaveAPort) {
  const std::pair<const char*, std::vector<const char*>> cases[] = {
      {"http ftp", {""}},
      {"http", {"http://example.org", "HTTP://127.0.0.1:8080"}},
      {"ftp", {"ftp.example.org", "127.0.0.1:2121", "localhost:65535"}},
      {"",
       {"localhost:65536", "localhost:0", "localhost:", "localhost:21x", "localhost:-1", "http://",
        "http://:80", "http://host:80:81", "http://host/path", "http://user@host", "http://host name",
        "http://host\r\nX: y", "https://example.org", "ftp://example.org", ":21"}}};
  for (const auto& [right_for, texts] : cases) {
    for (const char* text : texts) {
      const bool http = ServerRootProblem(text, false).empty(), ftp = ServerRootProblem(text, true).empty();
      EXPECT_EQ(std::string(http ? "http" : "") + (http && ftp ? " " : "") + (ftp ? "ftp" : ""), right_for)
          << text;
    }
  }
}

TEST(ServersDialog, TakesOnlyRootsThatAreRight) {
  const test::TTempFolder folder;
  TRegistryStore store(folder / "Skyreel.conf");
  store.WriteString("ServerEuArchiveOld", "http://old.example");
  TServerSettings settings(store);
  const auto chosen = [&](const char* name) {
    for (const auto& [server, root] : settings.Choices()) {
      if (std::string(server.Name) == name) return root->Value.toStdString();
    }
    return std::string("none");
  };
  TServersDialog dialog(nullptr, settings);
  auto& goes = *dialog.findChild<QLineEdit*>("ServerGoes");
  auto& problem = *dialog.findChild<QLabel*>("LabelProblem");
  EXPECT_EQ(goes.placeholderText(), "http://goes.gsfc.nasa.gov");
  EXPECT_EQ(dialog.findChild<QLineEdit*>("ServerEuArchiveOld")->text(), "http://old.example");

  goes.setText("goes.example");
  dialog.accept();
  EXPECT_EQ(chosen("ServerGoes"), "");
  EXPECT_FALSE(problem.isHidden());
  EXPECT_TRUE(problem.text().startsWith("GOES images, GSFC: ")) << problem.text().toStdString();

  goes.setText("  http://goes.example:8080/ ");
  dialog.accept();
  EXPECT_EQ(chosen("ServerGoes"), "http://goes.example:8080");
  EXPECT_EQ(chosen("ServerEuArchiveOld"), "http://old.example");
  dialog.findChild<QDialogButtonBox*>()->buttons().back()->click();
  EXPECT_EQ(goes.text(), "");
}

}  // namespace
}  // namespace skyreel
