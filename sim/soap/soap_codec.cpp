#include "soap/soap_codec.h"

#include <algorithm>
#include <memory>
#include <cstring>
#include <rapidxml/rapidxml.hpp>

#include "engine/convert.h"

namespace vsim::soap {

namespace {

using Node = rapidxml::xml_node<char>;

constexpr int kMaxDepth = 200;

std::string_view nameOf(const Node* n) { return {n->name(), n->name_size()}; }

std::string_view localName(const Node* n) {
  std::string_view q = nameOf(n);
  const size_t colon = q.find(':');
  return colon == std::string_view::npos ? q : q.substr(colon + 1);
}

std::string_view prefixOf(const Node* n) {
  std::string_view q = nameOf(n);
  const size_t colon = q.find(':');
  return colon == std::string_view::npos ? std::string_view() : q.substr(0, colon);
}

// The namespace URI of an element: its prefix resolved through the xmlns attributes in scope.
std::string_view namespaceOf(const Node* n) {
  const std::string_view prefix = prefixOf(n);
  const std::string wanted = prefix.empty() ? std::string("xmlns") : "xmlns:" + std::string(prefix);
  for (const Node* e = n; e && e->type() == rapidxml::node_element; e = e->parent()) {
    for (auto* a = e->first_attribute(); a; a = a->next_attribute())
      if (std::string_view(a->name(), a->name_size()) == wanted) return {a->value(), a->value_size()};
  }
  return {};
}

const Node* firstElement(const Node* parent) {
  for (const Node* c = parent->first_node(); c; c = c->next_sibling())
    if (c->type() == rapidxml::node_element) return c;
  return nullptr;
}

const Node* childElement(const Node* parent, std::string_view local, std::string_view ns) {
  for (const Node* c = parent->first_node(); c; c = c->next_sibling())
    if (c->type() == rapidxml::node_element && localName(c) == local && namespaceOf(c) == ns) return c;
  return nullptr;
}

std::string textOf(const Node* n) {
  std::string s;
  for (const Node* c = n->first_node(); c; c = c->next_sibling())
    if (c->type() == rapidxml::node_data || c->type() == rapidxml::node_cdata) s.append(c->value(), c->value_size());
  return s;
}

bool isNil(const Node* n) {
  for (auto* a = n->first_attribute(); a; a = a->next_attribute()) {
    std::string_view name(a->name(), a->name_size());
    const size_t colon = name.find(':');
    if ((colon == std::string_view::npos ? name : name.substr(colon + 1)) == "nil")
      return std::string_view(a->value(), a->value_size()) == "true" ||
             std::string_view(a->value(), a->value_size()) == "1";
  }
  return false;
}

// Rejects documents nested deeper than the parser's recursion should go; a cheap scan of tags.
void checkDepth(const std::string& body) {
  int depth = 0;
  for (size_t i = 0; i + 1 < body.size(); ++i) {
    if (body[i] != '<') continue;
    const char c = body[i + 1];
    if (c == '/') {
      --depth;
    } else if (c != '!' && c != '?') {
      const size_t close = body.find('>', i);
      if (close == std::string::npos) return;  // the parser reports it
      if (body[close - 1] != '/') ++depth;
      if (depth > kMaxDepth) throw SoapFault("Client", "XML document nested too deeply");
      i = close;
    }
  }
}

Value decode(const TypeDesc& t, const Node* n, const std::string& path) {
  if (isNil(n)) return initialValue(t);
  if (t.kind == Kind::Struct) {
    Value v = initialValue(t);
    for (const Node* c = n->first_node(); c; c = c->next_sibling()) {
      if (c->type() != rapidxml::node_element) continue;
      const std::string name = abapName(std::string(localName(c)));
      const int i = t.find(name);
      if (i < 0) continue;
      v.items()[static_cast<size_t>(i)] = decode(*t.components[static_cast<size_t>(i)].type, c, path + "-" + name);
    }
    return v;
  }
  if (t.kind == Kind::Table) {
    Value v(Value::List{});
    size_t row = 0;
    for (const Node* c = n->first_node(); c; c = c->next_sibling())
      if (c->type() == rapidxml::node_element)
        v.items().push_back(decode(*t.row, c, path + "[" + std::to_string(++row) + "]"));
    return v;
  }
  try {
    return parseValue(t, textOf(n), TextForm::Xml);
  } catch (const ConversionError& e) {
    throw SystemFailure("CONVERSION_ERROR", "Parameter " + path + ": " + e.what());
  }
}

void encode(std::string& out, const std::string& name, const TypeDesc& t, const Value& v) {
  const std::string tag = xmlName(name);
  out += '<';
  out += tag;
  out += '>';
  if (t.kind == Kind::Struct) {
    for (size_t i = 0; i < t.components.size(); ++i)
      encode(out, t.components[i].name, *t.components[i].type, v.items()[i]);
  } else if (t.kind == Kind::Table) {
    for (const Value& r : v.items()) encode(out, "item", *t.row, r);
  } else {
    appendEscaped(out, formatXml(t, v));
  }
  out += "</";
  out += tag;
  out += '>';
}

const char* kEnvelopeOpen =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?><SOAP-ENV:Envelope "
    "xmlns:SOAP-ENC=\"http://schemas.xmlsoap.org/soap/encoding/\" "
    "xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\"><SOAP-ENV:Body>";
const char* kEnvelopeClose = "</SOAP-ENV:Body></SOAP-ENV:Envelope>";

std::string faultOpen(const std::string& code, const std::string& text) {
  std::string out = kEnvelopeOpen;
  out += "<SOAP-ENV:Fault><faultcode>SOAP-ENV:" + code + "</faultcode><faultstring>";
  appendEscaped(out, text);
  out += "</faultstring>";
  return out;
}

void element(std::string& out, const char* name, const std::string& text) {
  out += '<';
  out += name;
  out += '>';
  appendEscaped(out, text);
  out += "</";
  out += name;
  out += '>';
}

}  // namespace

std::string xmlName(const std::string& abap) {
  std::string out;
  out.reserve(abap.size() + 4);
  for (char c : abap) {
    if (c == '/')
      out += "_-";
    else
      out += c;
  }
  return out;
}

std::string abapName(const std::string& xml) {
  std::string out;
  out.reserve(xml.size());
  for (size_t i = 0; i < xml.size(); ++i) {
    if (xml[i] == '_' && i + 1 < xml.size() && xml[i + 1] == '-') {
      out += '/';
      ++i;
    } else {
      out += xml[i];
    }
  }
  return out;
}

void appendEscaped(std::string& out, const std::string& text) {
  for (char c : text) {
    switch (c) {
      case '&': out += "&#38;"; break;
      case '<': out += "&#60;"; break;
      case '>': out += "&#62;"; break;
      case '"': out += "&#34;"; break;
      case '\'': out += "&#39;"; break;
      default: out += c;
    }
  }
}

SoapRequest parseRequest(System& system, const std::string& body, std::unique_ptr<Call>& call) {
  if (trim(body).empty()) throw SoapFault("Client", "Empty request: a SOAP envelope is expected");
  checkDepth(body);
  std::vector<char> buffer(body.begin(), body.end());
  buffer.push_back('\0');
  rapidxml::xml_document<char> doc;
  try {
    doc.parse<rapidxml::parse_validate_closing_tags>(buffer.data());
  } catch (const rapidxml::parse_error& e) {
    const long offset = static_cast<long>(e.where<char>() - buffer.data());
    throw SoapFault("Client", std::string("XML parse error: ") + e.what() + " at offset " + std::to_string(offset));
  }
  const Node* env = firstElement(&doc);
  if (!env || localName(env) != "Envelope") throw SoapFault("Client", "No SOAP envelope in the request");
  if (namespaceOf(env) != kEnvelopeNs)
    throw SoapFault("VersionMismatch", "Envelope namespace " + std::string(namespaceOf(env)) + " is not SOAP 1.1");
  const Node* bodyNode = childElement(env, "Body", kEnvelopeNs);
  if (!bodyNode) throw SoapFault("Client", "No SOAP body in the request");
  const Node* fn = firstElement(bodyNode);
  if (!fn) throw SoapFault("Client", "No function module element in the SOAP body");
  if (namespaceOf(fn) != kRfcNs)
    throw SoapFault("Client", "Element " + std::string(nameOf(fn)) + " is not in namespace " + kRfcNs);

  SoapRequest req;
  req.function = abapName(std::string(localName(fn)));
  req.prefix = std::string(prefixOf(fn));
  call = std::make_unique<Call>(system.prepare(req.function));
  const FunctionModule& fm = call->function();
  req.present.assign(fm.params.size(), 0);
  for (const Node* c = fn->first_node(); c; c = c->next_sibling()) {
    if (c->type() != rapidxml::node_element) continue;
    const std::string name = abapName(std::string(localName(c)));
    const int i = fm.find(name);
    if (i < 0) continue;  // unknown elements are ignored
    const Parameter& p = fm.params[static_cast<size_t>(i)];
    req.present[static_cast<size_t>(i)] = 1;
    if (p.direction == Direction::Exporting) continue;
    call->supply(static_cast<size_t>(i), decode(*p.type, c, name));
  }
  return req;
}

std::string buildResponse(const SoapRequest& request, const Call& call) {
  const FunctionModule& fm = call.function();
  std::vector<size_t> order;
  for (size_t i = 0; i < fm.params.size(); ++i) {
    const Direction d = fm.params[i].direction;
    if (d == Direction::Exporting || d == Direction::Changing || (d == Direction::Tables && request.present[i]))
      order.push_back(i);
  }
  std::sort(order.begin(), order.end(), [&](size_t a, size_t b) { return fm.params[a].name < fm.params[b].name; });
  const std::string prefix = request.prefix.empty() ? "rfc" : request.prefix;
  const std::string tag = prefix + ":" + xmlName(fm.name) + ".Response";
  std::string out = kEnvelopeOpen;
  out += "<" + tag + " xmlns:" + prefix + "=\"" + kRfcNs + "\">";
  for (size_t i : order) encode(out, fm.params[i].name, *fm.params[i].type, call.value(i));
  out += "</" + tag + ">";
  out += kEnvelopeClose;
  return out;
}

std::string buildExceptionFault(const std::string& function, const AbapException& e) {
  std::string out = faultOpen("Client", e.name());
  const std::string tag = "rfc:" + xmlName(function) + ".Exception";
  out += "<detail><" + tag + " xmlns:rfc=\"" + kRfcNs + "\">";
  element(out, "Name", e.name());
  if (e.message()) {
    const AbapMessage& m = *e.message();
    element(out, "Text", m.text);
    out += "<Message>";
    element(out, "ID", m.id);
    element(out, "Type", m.type);
    element(out, "Number", m.number);
    out += "</Message>";
    if (!(m.vars[0].empty() && m.vars[1].empty() && m.vars[2].empty() && m.vars[3].empty())) {
      out += "<Attributes>";
      element(out, "V1", m.vars[0]);
      element(out, "V2", m.vars[1]);
      element(out, "V3", m.vars[2]);
      element(out, "V4", m.vars[3]);
      out += "</Attributes>";
    }
  } else {
    element(out, "Text", e.name());
  }
  out += "</" + tag + "></detail></SOAP-ENV:Fault>";
  out += kEnvelopeClose;
  return out;
}

std::string buildSystemFault(const SystemFailure& e) {
  std::string out = faultOpen("Client", e.key() + ": " + e.message());
  out += "<detail><rfc:Error xmlns:rfc=\"" + std::string(kSoapFunctionsNs) + "\">";
  element(out, "type", e.key());
  element(out, "message", e.message());
  out += "</rfc:Error></detail></SOAP-ENV:Fault>";
  out += kEnvelopeClose;
  return out;
}

std::string buildSoapFault(const SoapFault& e) {
  std::string out = faultOpen(e.code(), e.what());
  out += "</SOAP-ENV:Fault>";
  out += kEnvelopeClose;
  return out;
}

}  // namespace vsim::soap
