#include "net/nm_http.h"

#include <gmock/gmock.h>

#include "support/scripted_server.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

using test::THttpServer;
using test::TScript;
using test::TScriptedServer;
using testing::ElementsAre;

TEST(NmHttp, GetKeepsHeaderAndBodyInStringMode) {
  THttpServer server;
  server.Answer("/a.gif", "GIF89a", {"X-Sky: blue"});
  TNMHTTP http;
  http.Get(server.Url("/a.gif"));
  EXPECT_EQ(http.ReplyCode, 200);
  EXPECT_EQ(http.Header, "HTTP/1.0 200 OK\r\nX-Sky: blue\r\nContent-Length: 6\r\n\r\n");
  EXPECT_EQ(http.Body, "GIF89a");
  EXPECT_EQ(http.TransferSize, 6);
  EXPECT_EQ(http.ReceivedByteCount, 6);
  EXPECT_THAT(server.RequestLines(), ElementsAre("GET /a.gif HTTP/1.0"));
}

}  // namespace
}  // namespace skyreel
