#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace skyreel {

/// How far a run has come.
class TRunProgress {
 public:
  using TTime = std::chrono::steady_clock::time_point;

  /// This many more files will end than were known before; see TRunControl::ExpectFiles.
  void Expect(std::int64_t more) { expected_ += more; }
  /// A file has ended; `bytes` came for it.
  void Count(std::int64_t bytes) { ++files_, bytes_ += bytes; }

  bool KnowsTotal() const { return expected_ > 0; }
  /// 0 to 100; 0 while the total is not known.
  int Percent() const;
  /// "37 of 412, 96 MB, 3 min left". Without a total "37 files, 96 MB".
  std::string Text(TTime now) const;

 private:
  const TTime begin_ = std::chrono::steady_clock::now();
  std::int64_t files_ = 0, expected_ = 0, bytes_ = 0;
};

}  // namespace skyreel
