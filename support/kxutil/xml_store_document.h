// The XML form of a settings file: sections that hold values, all of it in attributes.
#ifndef KXUTIL_XML_STORE_DOCUMENT_H
#define KXUTIL_XML_STORE_DOCUMENT_H

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "kxutil/config_store.h"
#include "kxutil/tinyxml_header.h"

namespace qln {

// <settings>
//   <section path="Tarnwick\MetaData\Default">
//     <value key="Title" text="Dawn" />
//     <value key="TimeCode" number="90000" />
//   </section>
// </settings>
//
// A path, key or text that XML cannot hold (control characters, bytes that are no UTF-8) stands in
// hexadecimal under pathBytes, keyBytes or bytes. Whatever else stands in the document stays there.
class XmlStoreDocument {
 public:
  // False for a text that is not wholly such a document; nothing else may be asked of it then.
  bool Parse(std::string_view text);

  // All values that the document holds; the first of a name counts.
  std::map<ConfigName, ConfigValue> Values() const;

  // Sets and removes values. False if that changes nothing.
  bool Apply(const std::map<ConfigName, std::optional<ConfigValue>>& changes);

  std::string Text() const;

 private:
  using Changes = std::map<ConfigName, std::optional<ConfigValue>>;

  // The section elements by their paths; the first of a path counts.
  using Sections = std::map<std::string, TiXmlElement*>;

  TiXmlElement& Root();
  bool ApplyToPresent(Changes& changes, Sections& sections);
  void Append(const ConfigName& name, const ConfigValue& value, Sections& sections);

  TiXmlDocument document_;
};

}  // namespace qln

#endif
