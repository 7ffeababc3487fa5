// Namespace-aware reading on RapidXml, which keeps names as written: a
// prefix is resolved against the xmlns declarations in scope (the element's
// own attributes, then its ancestors'), as the XML namespaces rules say.
#pragma once

#include <cstddef>
#include <string_view>

#include <rapidxml/rapidxml.hpp>

namespace veltrane::xmlns {

using Node = rapidxml::xml_node<char>;

inline std::string_view Name(const Node* node) { return {node->name(), node->name_size()}; }

// The element's text: its value (the first data node), empty when it has none.
inline std::string_view Text(const Node* node) {
  return node ? std::string_view(node->value(), node->value_size()) : std::string_view();
}

// The part of the qualified name behind the colon, or the whole name.
std::string_view LocalName(const Node* element);

// The part in front of the colon, empty when there is none.
std::string_view Prefix(const Node* element);

// The namespace URI of the element's prefix (the default namespace without
// one). found is false when the prefix is not declared in scope; an
// element without prefix and without default namespace is in no namespace
// (empty URI, found true). The prefix "xml" is predeclared.
std::string_view NamespaceOf(const Node* element, bool* found = nullptr);

// First child element with this local name in this namespace; null if none.
const Node* FirstChildNs(const Node* parent, std::string_view ns, std::string_view local);

// First child element whose qualified name, as written, is qname; null if none.
const Node* FirstChild(const Node* parent, std::string_view qname);

}  // namespace veltrane::xmlns
