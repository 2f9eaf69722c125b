// bench_http_window URL FILE: fetches the URL into the file with a window open, as a job of the program does:
// each wait lets Qt's events through, and each packet moves the progress bar, the bytes label and the title.
// Prints the seconds of the transfer alone. bench/http.sh compares them with curl's.

#include <QApplication>
#include <QLabel>
#include <QMainWindow>
#include <QProgressBar>
#include <QStatusBar>
#include <chrono>
#include <cstdio>
#include <string>

#include "bench_context.h"

namespace {

using namespace skyreel;

class TWindowDisplay : public bench::TQuietDisplay {
 public:
  TWindowDisplay() {
    window_.setCentralWidget(&bar_);
    window_.statusBar()->addWidget(&bytes_);
    window_.show();
  }
  void SetProgress(int percent) override { bar_.setValue(percent); }
  void SetBytes(const std::string& label, const std::string& title) override {
    bytes_.setText(QString::fromStdString(label));
    window_.setWindowTitle(QString::fromStdString(title));
  }

 private:
  // The window is destroyed last, when its children have left it.
  QMainWindow window_;
  QProgressBar bar_;
  QLabel bytes_;
};

}  // namespace

int main(int argc, char** argv) try {
  const QApplication application(argc, argv);
  if (argc != 3) {
    std::fprintf(stderr, "usage: bench_http_window URL FILE\n");
    return 2;
  }
  TWindowDisplay display;
  TNMHTTP http([] { QCoreApplication::processEvents(); });
  http.TimeOut = 200'000;
  http.InputFileMode = true;
  http.Body = argv[2];
  http.OnPacketRecvd = [&](TPowersock& sender) {
    ShowTransferProgress(display, sender.ReceivedByteCount, sender.TransferSize);
  };
  const auto start = std::chrono::steady_clock::now();
  http.Get(argv[1]);
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
  if (http.ReplyCode != 200 || http.ReceivedByteCount != http.TransferSize) return 1;
  std::printf("%.6f\n", taken.count());
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "bench_http_window: %s\n", error.what());
  return 1;
}
