#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "sources/job_context.h"
#include "sources/offer.h"

namespace skyreel {

inline constexpr TServerSetting kEuArchiveOldServer{"ServerEuArchiveOld", "EUMETSAT images, old naming",
                                                    "http://www.eumetsat.de"};
inline constexpr TServerSetting kEuArchiveNewServer{"ServerEuArchiveNew", "EUMETSAT images, new naming",
                                                    "http://oiswww.eumetsat.org"};

/// What the "Eumetsat" page asks for.
struct TEuArchiveSettings {
  std::string OutputPath;          ///< with its trailing separator
  bool NewNaming = false;          ///< the server's naming since 9 November 2005
  int MsgName = 0;                 ///< 0 MSG1, 1 MSG2, 2 MSG3; any other counts as MSG1
  std::vector<std::string> Items;  ///< the ticked sectors, then the ticked products
};

/// The items of the page "Image sectors" and of the page "Products", in list order.
const std::vector<std::string>& EuArchiveSectorItems();
const std::vector<std::string>& EuArchiveProductItems();

/// A picture that the server has, or may have.
struct TEuArchiveImage {
  std::string RemoteName;  ///< its path at the server
  std::string LocalName;   ///< its file's name without the extension, "C1D_24"
  TDateTime Time;          ///< start of its slot, UTC
};

/// The pictures of one item (upper case) of a day, in slot order. Only the server's listing tells which
/// pictures of the old naming exist.
std::vector<TEuArchiveImage> EuArchiveOldImages(std::string_view item, TDateTime day);
std::vector<TEuArchiveImage> EuArchiveNewImages(std::string_view item, TDateTime day, int msg_name);

/// Path and query of the listing that names an item's pictures.
std::string EuArchiveListing(std::string_view item);

/// The pictures of both servers of one day, and the page of the old one that lists some of them.
std::vector<TOffer> EuArchiveOffers(TDateTime day);
std::string EuArchiveListingPage(const std::vector<TOffer>& offers);

enum class TEuArchiveList {
  None,  ///< the page holds no list
  Cut,   ///< its end is missing
  Whole,
};

/// Drops the images of one item and day that a listing page does not name. The page is a script whose lines
/// 'frame0 = "/path.jpg";' stand between the first "frame0" and "number_of_images". Any other page leaves no
/// image. The time that it takes does not depend on the number of images.
TEuArchiveList KeepListedImages(std::string_view page, std::string_view server_root,
                                std::vector<TEuArchiveImage>& images);

/// Fetches half-hourly JPEG pictures of the chosen sectors and products from the EUMETSAT image archive, of
/// today and the days before, filed as <output>/yyyy/mm/dd/<item>_<slot>.jpg with slot 00 to 47.
class TEuArchiveJob {
 public:
  TEuArchiveJob(TJobContext& context, TEuArchiveSettings settings);
  /// Fetches what is missing; returns at the end or soon after a stop was requested. A failure costs one file
  /// and gets one status line.
  void Run();

 private:
  class TRun;

  TJobContext& context_;
  const TEuArchiveSettings settings_;
};

}  // namespace skyreel
