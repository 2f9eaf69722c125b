#include "journal/source_memory.h"

#include <algorithm>
#include <array>

namespace skyreel {

TDateTime TMissedSlot::AskAgainAt() const {
  constexpr std::array kMinutes = {5, 15, 30, 60, 180, 360};
  const auto step = std::clamp<std::int64_t>(Times, 1, kMinutes.size()) - 1;
  return LastAsked + std::chrono::minutes(kMinutes.at(static_cast<std::size_t>(step)));
}

void TSourceMemory::Remember(const TStoredFile& file) {
  journal_.Write([source = source_, file, at = journal_.Now()](TDatabase& database) {
    database
        .Prepared(
            "INSERT OR REPLACE INTO stored(path, source, product, slot, address, at, bytes, hash, etag, "
            "last_modified, stamp) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)")
        .Run(PathColumn(file.Path), source, file.Product, ToColumn(file.SlotTime), file.Address, ToColumn(at),
             file.Bytes, file.Hash, file.ETag, file.LastModified, file.Stamp);
  });
}

void TSourceMemory::Forget(const std::filesystem::path& path) {
  journal_.Write([path](TDatabase& database) {
    database.Prepared("DELETE FROM stored WHERE path = ?").Run(PathColumn(path));
  });
}

template <typename... TValues>
std::vector<TStoredFile> TSourceMemory::Files(const std::string& condition, const TValues&... values) const {
  std::vector<TStoredFile> files;
  journal_.Ask([&](TDatabase& database) {
    files.clear();
    TStatement found(database,
                     "SELECT source, product, slot, address, path, bytes, hash, etag, last_modified, stamp "
                     "FROM stored WHERE " +
                         condition);
    found.With(values...);
    while (found.Next()) {
      TStoredFile& file = files.emplace_back();
      file.Source = found.Text(0);
      file.Product = found.Text(1);
      file.SlotTime = TimeOf(found, 2);
      file.Address = found.Text(3);
      file.Path = found.Text(4);
      file.Bytes = found.Number(5);
      file.Hash = found.Text(6);
      file.ETag = found.Text(7);
      file.LastModified = found.Text(8);
      file.Stamp = found.Text(9);
    }
  });
  return files;
}

std::optional<TStoredFile> TSourceMemory::At(const std::filesystem::path& path) const {
  return FirstOf(Files("path = ?", PathColumn(path)));
}

std::optional<TStoredFile> TSourceMemory::Last(const std::string& product, const std::string& address) const {
  return FirstOf(Files("source = ? AND product = ? AND address = ? ORDER BY at DESC, slot DESC LIMIT 1",
                       source_, product, address));
}

std::vector<TStoredFile> TSourceMemory::Before(TDateTime slot, std::int64_t limit) const {
  return Files("source = ? AND slot < ? ORDER BY slot LIMIT ?", source_, slot.UnixTime(), limit);
}

std::vector<TMissedSlot> TSourceMemory::Missed(TDateTime since) const {
  std::vector<TMissedSlot> slots;
  journal_.Ask([&](TDatabase& database) {
    slots.clear();
    TStatement found(database,
                     "SELECT product, slot, count(*), max(at) FROM files "
                     "WHERE outcome = 'missing' AND source = ? AND slot >= ? GROUP BY slot, product");
    found.With(source_, since.UnixTime());
    while (found.Next())
      slots.push_back({found.Text(0), TimeOf(found, 1), found.Number(2), TimeOf(found, 3)});
  });
  return slots;
}

}  // namespace skyreel
