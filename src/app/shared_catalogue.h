#pragma once

#include <QObject>
#include <functional>
#include <memory>

#include "catalogue/catalogue.h"

namespace skyreel {

/// The described sources as all pages see them. They are read on a worker thread.
class TSharedCatalogue : public QObject {
 public:
  using TPtr = std::shared_ptr<const TCatalogue>;

  explicit TSharedCatalogue(TSourceFolders folders) : folders_(std::move(folders)) {}

  const TSourceFolders& Folders() const { return folders_; }
  /// What was read last; null before the first reading. A run keeps it, since a newer one may replace it.
  /// When a file has become wrong, its old description is in it.
  const TPtr& Current() const { return current_; }

  /// Reads all descriptions in the background. A reading that is under way begins again.
  void Read();
  /// The first call reads; the others do nothing.
  void ReadOnce();
  /// Calls `next` from the event loop when there are descriptions. Only the latest `next` counts.
  void WhenRead(std::function<void()> next);
  /// For a job: waits for the descriptions and lets events through, or reads them itself. False when
  /// `stopped` came first.
  bool Await(const std::function<bool()>& stopped);

  /// There are new descriptions.
  std::function<void()> OnRead;

 private:
  void Take(TPtr read);
  void CallNext();

  const TSourceFolders folders_;
  TPtr current_;
  bool reading_ = false, again_ = false;
  std::function<void()> next_;
};

}  // namespace skyreel
