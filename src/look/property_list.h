// A grading document's property list: named text values that the host keeps with a look (who made
// it, for which camera, notes), in the order they were set.
//
// XML, inside the document's properties element:
//   <property>
//     <key>"Camera"</key>
//     <value>"A"</value>
//   </property>
#pragma once

#include <pugixml.hpp>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Tincta {

class COvPropertyList {
 public:
  const std::vector<std::pair<std::string, std::string>>& Entries() const { return entries_; }
  bool Empty() const { return entries_.empty(); }

  /// The value under `key`, or null.
  const std::string* Find(std::string_view key) const;
  /// Sets the value under `key` (a new key goes to the end). An empty key is refused.
  bool Set(std::string_view key, std::string value);

  /// Reads the property elements among the children of `element`; other children are skipped.
  /// False, with `error` set and the list unchanged, for a property without a key or a key given
  /// twice.
  bool Read(const pugi::xml_node& element, std::string& error);
  /// Appends one property element per entry, indented by `indent` blanks.
  void Write(int indent, std::string& out) const;

  friend bool operator==(const COvPropertyList&, const COvPropertyList&) = default;

 private:
  std::vector<std::pair<std::string, std::string>> entries_;
};

}  // namespace Tincta
