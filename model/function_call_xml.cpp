// The XML form of a call's interface: `function` with the parameter elements
// `importing`, `exporting`, `changing`, `tables`, each holding its `type`
// tree. Written with the library's default print formatting, read with its
// default parse flags.
#include <algorithm>
#include <cstdint>
#include <iterator>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <rapidxml/rapidxml.hpp>
#include <rapidxml/rapidxml_print.hpp>

#include "model/collection.h"
#include "model/function_call.h"
#include "model/model_errors.h"
#include "model/rfc_parameter.h"
#include "model/rfc_parameters.h"
#include "model/rfc_type.h"
#include "model/rfc_types.h"
#include "model/type_access.h"
#include "platform/unicode.h"
#include "runtime/xml_depth.h"

namespace {

using Document = rapidxml::xml_document<char>;
using Node = rapidxml::xml_node<char>;
using Attribute = rapidxml::xml_attribute<char>;

constexpr const char* kSetNames[CFunctionCall::kSetCount] = {"importing", "exporting", "changing", "tables"};

HRESULT TooDeep() {
  return ModelErrorText(CLSID_FunctionCall, u"The type tree contains itself or is nested too deeply", E_INVALIDARG);
}

// --- writing ---------------------------------------------------------------

class Writer {
 public:
  explicit Writer(Document& doc) : m_doc(doc) {}

  Node* Element(Node* parent, const char* name) {
    Node* node = m_doc.allocate_node(rapidxml::node_element, name);
    parent->append_node(node);
    return node;
  }

  void Text(Node* node, const char* name, std::string_view value) {
    const char* copy = value.empty() ? "" : m_doc.allocate_string(value.data(), value.size());
    node->append_attribute(m_doc.allocate_attribute(name, copy, 0, value.size()));
  }

  void Wide(Node* node, const char* name, std::u16string_view value) { Text(node, name, WideToUtf8(value)); }

  void Number(Node* node, const char* name, long value) { Text(node, name, std::to_string(value)); }

  HRESULT Type(Node* parent, IRfcType* type, std::vector<IRfcType*>& path) {
    if (path.size() >= static_cast<size_t>(kMaxTypeDepth) || std::find(path.begin(), path.end(), type) != path.end())
      return TooDeep();
    Node* node = Element(parent, "type");
    CComBSTR holder;
    std::u16string_view name;
    HRESULT hr = TypeName(type, holder, &name);
    if (FAILED(hr)) return hr;
    Wide(node, "name", name);
    RFCTYPEKIND kind = RFCTYPEKIND_UNDEFINED;
    if (FAILED(hr = TypeKind(type, &kind))) return hr;
    switch (kind) {
      case RFCTYPEKIND_SCALAR: {
        Text(node, "kind", "scalar");
        ABAPTYPE abapType = TYPE_CHAR;
        SHORT length = 0, decimals = 0;
        LONG offset = -1, offsetC1 = -1, size = -1, sizeC1 = -1;
        if (FAILED(hr = type->get_ScalarType(&abapType)) || FAILED(hr = type->get_ScalarLength(&length)) ||
            FAILED(hr = type->get_ScalarDecimals(&decimals)) || FAILED(hr = type->get_StructOffset(&offset)) ||
            FAILED(hr = type->get_structOffsetC1(&offsetC1)) || FAILED(hr = type->get_StructLength(&size)) ||
            FAILED(hr = type->get_structLengthC1(&sizeC1)))
          return hr;
        Number(node, "abaptype", abapType);
        Number(node, "length", length);
        Number(node, "decimals", decimals);
        if (offset != -1) Number(node, "structoffset", offset);
        if (offsetC1 != -1) Number(node, "structoffsetc1", offsetC1);
        if (size != -1) Number(node, "structlength", size);
        if (sizeC1 != -1) Number(node, "structlengthc1", sizeC1);
        return S_OK;
      }
      case RFCTYPEKIND_STRUCT: {
        Text(node, "kind", "struct");
        TypeMembers members;
        if (FAILED(hr = members.Open(type))) return hr;
        path.push_back(type);
        CComPtr<IRfcType> holderMember;
        for (LONG i = 0; i < members.Count() && SUCCEEDED(hr); ++i) {
          IRfcType* member = nullptr;
          if (SUCCEEDED(hr = members.At(i, holderMember, &member))) hr = Type(node, member, path);
        }
        path.pop_back();
        return hr;
      }
      case RFCTYPEKIND_TABLE: {
        Text(node, "kind", "table");
        CComPtr<IRfcType> rowType;
        if (FAILED(hr = type->get_RowType(&rowType))) return hr;
        if (!rowType) return S_OK;
        path.push_back(type);
        hr = Type(node, rowType, path);
        path.pop_back();
        return hr;
      }
      default: return S_OK;
    }
  }

  HRESULT Parameter(Node* parent, const char* setName, IRfcParameter* parameter) {
    Node* node = Element(parent, setName);
    CComBSTR name, description, defaultValue;
    VARIANT_BOOL optional = VARIANT_FALSE;
    CComPtr<IRfcType> type;
    HRESULT hr;
    if (FAILED(hr = parameter->get_name(&name)) || FAILED(hr = parameter->get_Description(&description)) ||
        FAILED(hr = parameter->get_DefaultValue(&defaultValue)) || FAILED(hr = parameter->get_Optional(&optional)) ||
        FAILED(hr = parameter->get_RfcType(&type)))
      return hr;
    Wide(node, "name", name.View());
    Wide(node, "description", description.View());
    Wide(node, "default", defaultValue.View());
    Text(node, "optional", optional == VARIANT_TRUE ? "X" : " ");
    // An untyped parameter still gets its type element, of no kind.
    if (!type) {
      Text(Element(node, "type"), "name", "");
      return S_OK;
    }
    std::vector<IRfcType*> path;
    return Type(node, type, path);
  }

 private:
  Document& m_doc;
};

// --- reading ---------------------------------------------------------------

// A decimal integer at the start of the text, after optional white space and
// a sign, in the 32-bit range.
long ParseNumber(std::string_view text) {
  size_t i = 0;
  while (i < text.size() && (text[i] == ' ' || (text[i] >= '\t' && text[i] <= '\r'))) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  const size_t first = i;
  int64_t value = 0;
  bool overflow = false;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    value = value * 10 + (text[i] - '0');
    if (value > int64_t(INT32_MAX) + 1) {
      overflow = true;
      value = int64_t(INT32_MAX) + 1;
    }
  }
  if (i == first) throw std::invalid_argument("invalid stoi argument");
  if (negative) value = -value;
  if (overflow || value > INT32_MAX || value < INT32_MIN) throw std::out_of_range("stoi argument out of range");
  return static_cast<long>(value);
}

Attribute* Find(Node* node, const char* name) { return node->first_attribute(name); }

std::string_view ValueOf(const Attribute* a) { return {a->value(), a->value_size()}; }

CComBSTR WideOf(const Attribute* a) { return CComBSTR(std::u16string_view(Utf8ToWide(ValueOf(a)))); }

long NumberOr(Node* node, const char* name) {
  const Attribute* a = Find(node, name);
  return a ? ParseNumber(ValueOf(a)) : -1;
}

HRESULT NoType() {
  return ModelErrorText(CLSID_FunctionCall, u"A parameter or table element has no type element", E_INVALIDARG);
}

// Fills a type from a `type` element, straight into its fields.
HRESULT ReadType(CRfcType& type, Node* node, int depth) {
  if (depth >= kMaxTypeDepth) return TooDeep();
  CComBSTR name;
  if (const Attribute* a = Find(node, "name")) {
    name = WideOf(a);
    type.SetName(name.View());
  }
  const Attribute* kindAttr = Find(node, "kind");
  const std::string_view kind = kindAttr ? ValueOf(kindAttr) : std::string_view();
  if (kind == "scalar") {
    type.SetKind(RFCTYPEKIND_SCALAR);
    type.SetScalarType(NumberOr(node, "abaptype"));
    type.SetScalarLength(static_cast<SHORT>(NumberOr(node, "length")));
    type.SetScalarDecimals(static_cast<SHORT>(NumberOr(node, "decimals")));
    const long offset = NumberOr(node, "structoffset");
    const long offsetC1 = NumberOr(node, "structoffsetc1");
    const long size = NumberOr(node, "structlength");
    const long sizeC1 = NumberOr(node, "structlengthc1");
    type.SetLayout(offset, offsetC1, size, sizeC1);
  } else if (kind == "struct") {
    type.SetKind(RFCTYPEKIND_STRUCT);
    for (Node* child = node->first_node("type"); child; child = child->next_sibling("type")) {
      CComPtr<CRfcType> member;
      HRESULT hr = CRfcType::CreateInstance(&member.p);
      if (FAILED(hr)) return hr;
      if (FAILED(hr = ReadType(*member, child, depth + 1))) return hr;
      if (FAILED(hr = type.Members().CollAdd(static_cast<IRfcType*>(member.p)))) return hr;
    }
  } else if (kind == "table") {
    type.SetKind(RFCTYPEKIND_TABLE);
    Node* child = node->first_node("type");
    if (!child) return NoType();
    CComPtr<CRfcType> rowType;
    HRESULT hr = CRfcType::CreateInstance(&rowType.p);
    if (FAILED(hr)) return hr;
    if (FAILED(hr = ReadType(*rowType, child, depth + 1))) return hr;
    return type.DefineTable(name, rowType);
  }
  return S_OK;
}

HRESULT ReadParameter(Node* node, CRfcParameters& set) {
  CComBSTR name;
  if (const Attribute* a = Find(node, "name")) name = WideOf(a);
  Node* typeNode = node->first_node("type");
  if (!typeNode) return NoType();
  CComPtr<CRfcType> type;
  HRESULT hr = CRfcType::CreateInstance(&type.p);
  if (FAILED(hr)) return hr;
  if (FAILED(hr = ReadType(*type, typeNode, 0))) return hr;
  if (FAILED(hr = set.AddParameter(name, type))) return hr;
  // The parameter just added, by position, so that a numeric name cannot be
  // taken for one.
  CRfcParameter* added = set.LastParameter();
  if (!added) return E_UNEXPECTED;
  const Attribute* optional = Find(node, "optional");
  added->put_Optional(optional && ValueOf(optional) == "X" ? VARIANT_TRUE : VARIANT_FALSE);
  if (const Attribute* a = Find(node, "default")) added->put_DefaultValue(WideOf(a));
  if (const Attribute* a = Find(node, "description")) added->put_Description(WideOf(a));
  return S_OK;
}

HRESULT Failure(const char* what) { return ModelErrorText(CLSID_FunctionCall, Utf8ToWideLossy(what)); }

}  // namespace

HRESULT CallToXml(CFunctionCall& call, BSTR* xml) {
  try {
    Document doc;
    Writer writer(doc);
    Node* root = writer.Element(&doc, "function");
    writer.Wide(root, "name", BstrView(call.FunctionBstr()));
    writer.Wide(root, "doc", BstrView(call.DocumentationBstr()));
    for (int i = 0; i < CFunctionCall::kSetCount; ++i) {
      CRfcParameters& set = call.Set(i);
      for (LONG p = 0; p < set.CollCount(); ++p) {
        HRESULT hr = writer.Parameter(root, kSetNames[i], set.CollAt(static_cast<size_t>(p)));
        if (FAILED(hr)) return hr;
      }
    }
    std::string printed;
    rapidxml::print(std::back_inserter(printed), doc, 0);
    const std::u16string wide = Utf8ToWide(printed);
    *xml = SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
    return *xml ? S_OK : E_OUTOFMEMORY;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (const std::exception& e) {
    return Failure(e.what());
  }
}

HRESULT CallFromXml(CFunctionCall& call, BSTR xml) {
  // FromXML adds and never replaces: the call must not have a name yet.
  if (SysStringLen(call.FunctionBstr()) != 0) return ModelError(CLSID_RfcType, Text::AlreadyInitialized);
  try {
    std::string text = WideToUtf8(BstrView(xml));
    if (ElementDepth(text) > static_cast<size_t>(kMaxTypeDepth))
      return ModelErrorText(CLSID_FunctionCall, u"The document is nested too deeply", E_INVALIDARG);
    Document doc;
    doc.parse<0>(text.data());
    Node* root = nullptr;
    for (Node* n = doc.first_node(); n && !root; n = n->next_sibling())
      if (n->type() == rapidxml::node_element && std::string_view(n->name(), n->name_size()) == "function") root = n;
    if (!root) return E_INVALIDARG;
    if (const Attribute* a = Find(root, "name")) call.put_Function(WideOf(a));
    if (const Attribute* a = Find(root, "doc")) call.put_Documentation(WideOf(a));
    for (int i = 0; i < CFunctionCall::kSetCount; ++i) {
      for (Node* p = root->first_node(kSetNames[i]); p; p = p->next_sibling(kSetNames[i])) {
        HRESULT hr = ReadParameter(p, call.Set(i));
        if (FAILED(hr)) return hr;
      }
    }
    return S_OK;
  } catch (const rapidxml::parse_error& e) {
    return Failure(e.what());
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (const std::exception& e) {
    return Failure(e.what());
  }
}
