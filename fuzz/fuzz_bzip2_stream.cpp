// Any bytes as a bzip2 stream; the first byte chooses how the stream over the rest is read and moved.

#include <sys/mman.h>

#include <string>

#include "base/descriptor.h"
#include "decompress/bzip2_stream.h"
#include "require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const unsigned choice = data[0];
  const skyreel::TDescriptor memory(::memfd_create("source", MFD_CLOEXEC));
  Require(skyreel::WriteAll(memory.Get(), AsText(data, size).substr(1)));
  try {
    skyreel::TFileStream source("/proc/self/fd/" + std::to_string(memory.Get()));
    skyreel::TBZDecompressionStream stream(source);
    std::string buffer(1 + choice * 37, '\0');
    std::int64_t total = 0;
    if ((choice & 1) != 0) total = stream.Seek(choice, skyreel::TSeekOrigin::Current);
    if ((choice & 2) != 0) total = stream.Seek(0, skyreel::TSeekOrigin::Beginning);
    while (total < 4 << 20) {
      const std::int64_t got = stream.Read(buffer.data(), static_cast<std::int64_t>(buffer.size()));
      if (got == 0) break;
      total += got;
    }
    Require(stream.Seek(0, skyreel::TSeekOrigin::Current) == total);
  } catch (const skyreel::EBZip2Error&) {
  }
  return 0;
}
