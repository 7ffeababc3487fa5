#include "soap/xml_ns.h"

#include <algorithm>
#include <cstring>

namespace veltrane::xmlns {

namespace {

constexpr std::string_view kXmlNamespace = "http://www.w3.org/XML/1998/namespace";

std::string_view AttrName(const rapidxml::xml_attribute<char>* a) { return {a->name(), a->name_size()}; }

// The declaration of prefix (empty for the default namespace) on element.
bool Declared(const Node* element, std::string_view prefix, std::string_view* uri) {
  for (const auto* a = element->first_attribute(); a; a = a->next_attribute()) {
    std::string_view name = AttrName(a);
    if (!name.starts_with("xmlns")) continue;
    std::string_view rest = name.substr(5);
    bool match = prefix.empty() ? rest.empty()
                                : (rest.size() == prefix.size() + 1 && rest[0] == ':' && rest.substr(1) == prefix);
    if (match) {
      *uri = std::string_view(a->value(), a->value_size());
      return true;
    }
  }
  return false;
}

}  // namespace

std::string_view LocalName(const Node* element) {
  std::string_view name = Name(element);
  size_t colon = name.find(':');
  return colon == std::string_view::npos ? name : name.substr(colon + 1);
}

std::string_view Prefix(const Node* element) {
  std::string_view name = Name(element);
  size_t colon = name.find(':');
  return colon == std::string_view::npos ? std::string_view() : name.substr(0, colon);
}

std::string_view NamespaceOf(const Node* element, bool* found) {
  std::string_view prefix = Prefix(element);
  if (found) *found = true;
  if (prefix == "xml") return kXmlNamespace;
  for (const Node* n = element; n && n->type() == rapidxml::node_element; n = n->parent()) {
    std::string_view uri;
    if (Declared(n, prefix, &uri)) return uri;
  }
  // An undeclared prefix has no namespace; no default declaration means
  // no namespace as well.
  if (found && !prefix.empty()) *found = false;
  return {};
}

const Node* FirstChildNs(const Node* parent, std::string_view ns, std::string_view local) {
  if (!parent) return nullptr;
  for (const Node* n = parent->first_node(); n; n = n->next_sibling()) {
    if (n->type() != rapidxml::node_element || LocalName(n) != local) continue;
    bool found = false;
    std::string_view uri = NamespaceOf(n, &found);
    if (found && uri == ns) return n;
  }
  return nullptr;
}

const Node* FirstChild(const Node* parent, std::string_view qname) {
  if (!parent) return nullptr;
  for (const Node* n = parent->first_node(); n; n = n->next_sibling())
    if (n->type() == rapidxml::node_element && n->name_size() == qname.size() &&
        std::memcmp(n->name(), qname.data(), qname.size()) == 0)
      return n;
  return nullptr;
}

}  // namespace veltrane::xmlns
