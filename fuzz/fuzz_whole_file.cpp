// Any bytes as a file of every type. One that is whole is no longer so when its announced length differs.

#include "catalogue/whole_file.h"
#include "require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using enum skyreel::TFileType;
  for (const auto type : {Jpeg, Png, Gif, Tiff, Tar, NetCdf, Hdf5, Pdf}) {
    skyreel::TWay way;
    way.Type = type;
    const auto verdict = skyreel::JudgeBytes(AsText(data, size), way, {});
    Require(verdict.Reason.empty() == (verdict.Kind == skyreel::TVerdictKind::Whole));
    const auto length = static_cast<std::int64_t>(size) + 1;
    Require(skyreel::JudgeBytes(AsText(data, size), way, {length, {}, {}}).Kind ==
            skyreel::TVerdictKind::Damaged);
  }
  return 0;
}
