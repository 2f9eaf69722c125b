#include "app/servers_dialog.h"

#include <gmock/gmock.h>

#include <QLabel>
#include <QLineEdit>
#include <optional>

namespace skyreel {
namespace {

struct TRootCase {
  const char* Text;
  bool Http;  ///< right as an HTTP root
  bool Ftp;   ///< right as an FTP root
};

TEST(ServerRoot, IsAHostAndMayHaveAPort) {
  const std::vector<TRootCase> cases = {
      {"", true, true},
      {"http://example.org", true, false},
      {"HTTP://127.0.0.1:8080", true, false},
      {"ftp.example.org", false, true},
      {"127.0.0.1:2121", false, true},
      {"localhost:65535", false, true},
      {"localhost:65536", false, false},
      {"localhost:0", false, false},
      {"localhost:", false, false},
      {"localhost:21x", false, false},
      {"localhost:-1", false, false},
      {"http://", false, false},
      {"http://:80", false, false},
      {"http://host:80:81", false, false},
      {"http://host/path", false, false},
      {"http://user@host", false, false},
      {"http://host name", false, false},
      {"http://host\r\nX: y", false, false},
      {"https://example.org", false, false},
      {"ftp://example.org", false, false},
      {":21", false, false},
  };
  for (const TRootCase& item : cases) {
    EXPECT_EQ(ServerRootProblem(item.Text, false).empty(), item.Http) << item.Text;
    EXPECT_EQ(ServerRootProblem(item.Text, true).empty(), item.Ftp) << item.Text;
  }
}

TEST(ServersDialog, TakesOnlyRootsThatAreRight) {
  TServersDialog::TRoots roots;
  roots[0] = "http://old.example";
  TServersDialog dialog(nullptr, roots);
  std::optional<TServersDialog::TRoots> accepted;
  dialog.OnAccepted = [&](const TServersDialog::TRoots& chosen) { accepted = chosen; };
  auto& goes = *dialog.findChild<QLineEdit*>("ServerGoes");
  auto& problem = *dialog.findChild<QLabel*>("LabelProblem");
  EXPECT_EQ(goes.placeholderText(), "http://goes.gsfc.nasa.gov");
  EXPECT_EQ(dialog.findChild<QLineEdit*>("ServerEuArchiveOld")->text(), "http://old.example");

  goes.setText("goes.example");
  dialog.accept();
  EXPECT_FALSE(accepted);
  EXPECT_FALSE(problem.isHidden());
  EXPECT_TRUE(problem.text().startsWith("GOES images, GSFC: ")) << problem.text().toStdString();

  goes.setText("  http://goes.example:8080/ ");
  dialog.accept();
  ASSERT_TRUE(accepted);
  EXPECT_EQ((*accepted)[4], "http://goes.example:8080");
  EXPECT_EQ((*accepted)[0], "http://old.example");
  EXPECT_EQ(dialog.result(), QDialog::Accepted);
}

}  // namespace
}  // namespace skyreel
