#include "catalogue/xml_lists.h"

#include <algorithm>
#include <pugixml.hpp>

#include "base/text.h"

namespace skyreel {

namespace {

/// An element or attribute takes up to 130 bytes of memory but may take only two of the document.
constexpr std::ptrdiff_t kMostMarks = 4'000'000;

/// The name without a namespace's prefix.
std::string_view LocalName(const pugi::xml_node& node) {
  const std::string_view name = node.name();
  return name.substr(name.find(':') + 1);
}

pugi::xml_node Child(const pugi::xml_node& node, std::string_view name) {
  return node.find_child([&](const pugi::xml_node& child) { return LocalName(child) == name; });
}

std::string_view Text(const pugi::xml_node& node) {
  return Trim(node.text().get());
}

/// "workspace:name" for a layer without a workspace of its own is the same layer.
bool IsSameLayer(std::string_view a, std::string_view b) {
  const std::size_t colon_a = a.find(':'), colon_b = b.find(':');
  if (colon_a != std::string_view::npos && colon_b != std::string_view::npos) return a == b;
  return a.substr(colon_a + 1) == b.substr(colon_b + 1);
}

/// A document, its root's name checked.
class TXml {
 public:
  TXml(std::string_view text, const char* wanted, std::initializer_list<std::string_view> roots) {
    // The library expands none, but no list needs them either.
    if (text.find("<!ENTITY") != std::string_view::npos)
      throw EListError("the XML document declares entities");
    if (std::count_if(text.begin(), text.end(), [](char c) { return c == '<' || c == '='; }) > kMostMarks)
      throw EListError("the XML document has too many elements");
    const pugi::xml_parse_result result =
        document_.load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_utf8);
    Root = document_.document_element();
    const std::string_view name = LocalName(Root);
    if (result && std::find(roots.begin(), roots.end(), name) != roots.end()) return;
    RefuseHtmlPage(text, wanted);
    if (!result)
      throw EListError("the XML document is damaged at byte " + std::to_string(result.offset) + ": " +
                       result.description());
    std::string error = "the server sent a document \"" + WithoutControls(std::string(name.substr(0, 60))) +
                        "\" instead of " + wanted;
    if (const std::string said = Said(); !said.empty()) error += ": " + said;
    throw EListError(error);
  }

  pugi::xml_node Root;

 private:
  /// The words of an error document: S3 has them in Message, a WMS in ServiceException.
  std::string Said() const {
    const pugi::xml_node words = Root.find_node([](const pugi::xml_node& node) {
      return LocalName(node) == "Message" || LocalName(node) == "ServiceException";
    });
    std::string said(Text(words).substr(0, 200));
    std::replace_if(said.begin(), said.end(), IsBlank, ' ');
    return said;
  }

  pugi::xml_document document_;
};

}  // namespace

std::string ReadS3List(std::string_view document, const TTakeListed& take) {
  const TXml xml(document, "a bucket's list", {"ListBucketResult"});
  for (const pugi::xml_node& entry : xml.Root.children()) {
    if (LocalName(entry) != "Contents") continue;
    const std::string name = LastPart(Text(Child(entry, "Key")));
    std::string stamp(Text(Child(entry, "LastModified")));
    if (!stamp.empty()) stamp.append(" ").append(Text(Child(entry, "Size")));
    if (!name.empty()) take({name, stamp});
  }
  if (Text(Child(xml.Root, "IsTruncated")) != "true") return "";
  std::string token(Text(Child(xml.Root, "NextContinuationToken")));
  if (token.empty()) throw EListError("the bucket's list is cut and does not say how it goes on");
  return token;
}

std::vector<TTimeRange> ReadWmsTimes(std::string_view document, std::string_view layer) {
  const TXml xml(document, "the capabilities of a WMS", {"WMS_Capabilities", "WMT_MS_Capabilities"});
  pugi::xml_node found;
  for (const bool exactly : {true, false}) {
    if (found) break;
    found = xml.Root.find_node([&](const pugi::xml_node& node) {
      if (LocalName(node) != "Layer") return false;
      const std::string_view name = Text(Child(node, "Name"));
      return exactly ? name == layer : IsSameLayer(name, layer);
    });
  }
  if (!found) throw EListError("the capabilities have no layer \"" + std::string(layer) + "\"");
  for (; LocalName(found) == "Layer"; found = found.parent()) {
    for (const pugi::xml_node& child : found.children()) {
      // Version 1.1.1 declares the dimension in one element and gives its values in another.
      if (LocalName(child) != "Dimension" && LocalName(child) != "Extent") continue;
      if (!SameText(child.attribute("name").value(), "time") || Text(child).empty()) continue;
      std::vector<TTimeRange> times = ReadTimeList(Text(child));
      if (times.empty()) throw EListError("the times of layer \"" + std::string(layer) + "\" cannot be read");
      return times;
    }
  }
  throw EListError("the capabilities give no times for layer \"" + std::string(layer) + "\"");
}

}  // namespace skyreel
