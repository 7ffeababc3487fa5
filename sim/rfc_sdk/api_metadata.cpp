// Entry points for descriptions: a function's interface as a table, a structure's flat fields,
// installed structures and type letters.
#include <cstdlib>
#include <cstring>

#include "rfc_sdk/api.h"
#include "rfc_sdk/structures.h"

namespace rfcsdk {

namespace proto = vsim::proto;

namespace {

// A describe request that the system refused with an ABAP exception: RFC_EXCEPTION with the
// exception's name in *exception, valid until the next call on the handle.
template <class F>
RFC_RC described(Connection& c, rfc_char_t** exception, const char* notFound, F&& body) {
  c.exceptionText.clear();
  if (exception) *exception = nullptr;
  try {
    body();
    return RFC_OK;
  } catch (const Failure& f) {
    if (f.record().group != RFC_ERROR_APPLICATION_EXCEPTION) throw;
    ErrorRecord r = f.record();
    if (notFound && r.key == "NOT_FOUND") r.key = notFound;
    setLastError(r);
    c.exceptionText = utf16Of(r.key);
    if (exception) *exception = c.exceptionText.data();
    return RFC_EXCEPTION;
  }
}

char16_t letterOf(proto::WireType t, const std::vector<proto::TypeInfo>& types, std::uint32_t typeRef);

bool isDeep(const std::vector<proto::TypeInfo>& types, const proto::TypeInfo& t) {
  for (const proto::FieldInfo& f : t.fields) {
    if (f.type == proto::WireType::Table || f.type == proto::WireType::String || f.type == proto::WireType::XString)
      return true;
    if (f.type == proto::WireType::Structure && f.typeRef && isDeep(types, types.at(f.typeRef - 1))) return true;
  }
  return false;
}

char16_t letterOf(proto::WireType t, const std::vector<proto::TypeInfo>& types, std::uint32_t typeRef) {
  switch (t) {
    case proto::WireType::Structure: return typeRef && isDeep(types, types.at(typeRef - 1)) ? u'v' : u'u';
    case proto::WireType::Table: return u'h';
    case proto::WireType::DecF16: return u'a';
    case proto::WireType::DecF34: return u'e';
    case proto::WireType::Int8: return u'8';
    case proto::WireType::UtcLong: return u'p';
    default: return letterOfType(static_cast<RFCTYPE>(t));
  }
}

// Bytes of a field in the four-byte layout.
unsigned c4Length(proto::WireType t, unsigned ucLength) {
  switch (t) {
    case proto::WireType::Char:
    case proto::WireType::Num:
    case proto::WireType::Date:
    case proto::WireType::Time: return ucLength * 2;
    default: return ucLength;
  }
}

unsigned c4Alignment(proto::WireType t) {
  switch (t) {
    case proto::WireType::Char:
    case proto::WireType::Num:
    case proto::WireType::Date:
    case proto::WireType::Time:
    case proto::WireType::Int: return 4;
    case proto::WireType::Int2: return 2;
    case proto::WireType::Float: return 8;
    default: return 1;
  }
}

RFC_U_FUNINT funintRow(const proto::ParameterInfo& p, const std::vector<proto::TypeInfo>& types, int position) {
  RFC_U_FUNINT row;
  std::memset(&row, 0, sizeof row);
  static constexpr char16_t kClass[] = {u'?', u'I', u'E', u'C', u'?', u'?', u'?', u'T'};
  const auto d = static_cast<unsigned>(p.direction);
  row.Paramclass[0] = d < std::size(kClass) ? kClass[d] : u'?';
  putPadded(row.Parameter, 30, utf16Of(p.name));
  putPadded(row.Tabname, 30, utf16Of(p.typeRef ? types.at(p.typeRef - 1).name : std::string()));
  putPadded(row.Fieldname, 30, u"");
  // A table parameter names the structure of its rows.
  row.Exid[0] = p.direction == proto::Direction::Tables ? u'u' : letterOf(p.type, types, p.typeRef);
  row.Position = position;
  row.Length_b1 = static_cast<SAP_INT>(p.nucLength);
  row.Length_b2 = static_cast<SAP_INT>(p.ucLength);
  row.Length_b4 = static_cast<SAP_INT>(c4Length(p.type, p.ucLength));
  row.Decimals = static_cast<SAP_INT>(p.decimals);
  putPadded(row.Default, 21, utf16Of(p.defaultValue));
  putPadded(row.Paramtext, 79, utf16Of(p.text));
  row.Optional[0] = p.optional ? u'X' : u' ';
  return row;
}

InternalTable& outputTable(ITAB_H* out, const char16_t* name, unsigned rowLength) {
  if (!*out) *out = new InternalTable(name, rowLength, 0);
  auto* t = static_cast<InternalTable*>(*out);
  if (t->rowLength() != rowLength)
    fail(RFC_INVALID_PARAMETER, RFC_ERROR_PROGRAM,
         "The table for the answer has rows of " + std::to_string(t->rowLength()) + " bytes, not " +
             std::to_string(rowLength));
  t->clear();
  return *t;
}

struct FlatField {
  std::string name;
  proto::FieldInfo info;
  unsigned c4Offset = 0;
};

// The fields of a flat structure, nested structures inlined; RFC_CALL_NOT_SUPPORTED if deep.
void flatten(const std::vector<proto::TypeInfo>& types, const proto::TypeInfo& t, unsigned nucBase, unsigned ucBase,
             std::vector<FlatField>& out) {
  for (const proto::FieldInfo& f : t.fields) {
    if (f.type == proto::WireType::Structure && f.typeRef) {
      flatten(types, types.at(f.typeRef - 1), nucBase + f.nucOffset, ucBase + f.ucOffset, out);
      continue;
    }
    if (f.type == proto::WireType::Table || f.type == proto::WireType::String || f.type == proto::WireType::XString ||
        f.type == proto::WireType::Structure)
      fail(RFC_CALL_NOT_SUPPORTED, RFC_ERROR_PROGRAM, "Structure " + t.name + " is deep (field " + f.name + ")");
    FlatField ff{f.name, f, 0};
    ff.info.nucOffset += nucBase;
    ff.info.ucOffset += ucBase;
    out.push_back(std::move(ff));
  }
}

void typeId(const std::string& name, RFC_BYTE* id) {
  std::uint64_t h1 = 1469598103934665603ull, h2 = 1099511628211ull;
  for (unsigned char ch : name) {
    h1 = (h1 ^ ch) * 1099511628211ull;
    h2 = (h2 ^ ch) * 6364136223846793005ull + 1;
  }
  std::memcpy(id, &h1, 8);
  std::memcpy(id + 8, &h2, 8);
}

// The system describes a table type by its row: a description under another
// name than the one asked for is that of a table type's row.
RFCTYPE kindOf(const std::string& requested, const proto::TypeInfo& described) {
  return described.name == requested ? RFCTYPE_STRUCTURE : RFCTYPE_ITAB;
}

RFC_TYPEHANDLE installFlat(const std::string& name, const std::vector<FlatField>& fields, const proto::TypeInfo& t) {
  Structure s;
  s.name = name;
  for (const FlatField& f : fields) {
    Field field;
    field.name = f.name;
    field.slot = slotOf(static_cast<RFCTYPE>(f.info.type), f.info.ucLength, static_cast<int>(f.info.decimals));
    field.offset = f.info.ucOffset;
    field.c1Length = f.info.nucLength;
    field.c1Offset = f.info.nucOffset;
    s.alignment = std::max(s.alignment, alignmentOf(field.slot));
    s.fields.push_back(std::move(field));
  }
  s.length = t.ucLength;
  s.c1Length = t.nucLength;
  return installStructure(std::move(s));
}

// Elements and their names in one block that RfcReleaseStructInfo frees.
RFC_UNICODE_TYPE_ELEMENT* elementsOf(const std::vector<FlatField>& fields) {
  size_t names = 0;
  for (const FlatField& f : fields) names += utf16Of(f.name).size() + 1;
  const size_t bytes = fields.size() * sizeof(RFC_UNICODE_TYPE_ELEMENT) + names * sizeof(SAP_UC);
  auto* block = static_cast<RFC_UNICODE_TYPE_ELEMENT*>(std::calloc(1, bytes ? bytes : 1));
  if (!block) throw std::bad_alloc();
  auto* text = reinterpret_cast<SAP_UC*>(block + fields.size());
  for (size_t i = 0; i < fields.size(); ++i) {
    const FlatField& f = fields[i];
    RFC_UNICODE_TYPE_ELEMENT& e = block[i];
    const std::u16string n = utf16Of(f.name);
    std::copy(n.begin(), n.end(), text);
    text[n.size()] = 0;
    e.name = text;
    text += n.size() + 1;
    e.type = static_cast<RFC_TYPEHANDLE>(f.info.type);
    e.decimals = f.info.decimals;
    e.c1_length = f.info.nucLength;
    e.c1_offset = f.info.nucOffset;
    e.c2_length = f.info.ucLength;
    e.c2_offset = f.info.ucOffset;
    e.c4_length = c4Length(f.info.type, f.info.ucLength);
    e.c4_offset = f.c4Offset;
  }
  return block;
}

unsigned layOutC4(std::vector<FlatField>& fields) {
  unsigned offset = 0, alignment = 1;
  for (FlatField& f : fields) {
    const unsigned a = c4Alignment(f.info.type);
    alignment = std::max(alignment, a);
    offset = (offset + a - 1) / a * a;
    f.c4Offset = offset;
    offset += c4Length(f.info.type, f.info.ucLength);
  }
  return (offset + alignment - 1) / alignment * alignment;
}

Structure structureOfElements(const std::string& name, const RFC_UNICODE_TYPE_ELEMENT* elements, unsigned entries) {
  Structure s;
  s.name = name;
  for (unsigned i = 0; i < entries; ++i) {
    const RFC_UNICODE_TYPE_ELEMENT& e = elements[i];
    Field f;
    f.name = upperAscii(utf8Of(terminated(e.name)));
    f.slot = slotOf(e.type, e.c2_length, static_cast<int>(e.decimals));
    f.offset = e.c2_offset;
    f.c1Length = e.c1_length;
    f.c1Offset = e.c1_offset;
    s.alignment = std::max(s.alignment, alignmentOf(f.slot));
    s.length = std::max(s.length, f.offset + f.slot.length);
    s.c1Length = std::max(s.c1Length, f.c1Offset + f.c1Length);
    s.fields.push_back(std::move(f));
  }
  s.length = (s.length + s.alignment - 1) / s.alignment * s.alignment;
  return s;
}

}  // namespace

}  // namespace rfcsdk

namespace veltrane::sdk::rfc {

using namespace rfcsdk;

RFC_RC RfcGetFunctionInfoAsTableU(RFC_HANDLE handle, SAP_CHAR* function, ITAB_H* funint, rfc_char_t** exception) {
  return guard(
      [&]() -> RFC_RC {
        auto c = client(handle);
        requireArgument(funint, "funint");
        const std::string name = objectName(function, "function");
        c->trace(Entry::RfcGetFunctionInfoAsTableU, name);
        return described(*c, exception, nullptr, [&] {
          const proto::FunctionInfo& info = c->describeFunction(name);
          InternalTable& t = outputTable(funint, u"funcinfo", sizeof(RFC_U_FUNINT));
          int position = 0;
          for (const proto::ParameterInfo& p : info.parameters) {
            const RFC_U_FUNINT row = funintRow(p, info.types, ++position);
            std::memcpy(t.append(), &row, sizeof row);
          }
          for (const proto::ExceptionInfo& e : info.exceptions) {
            RFC_U_FUNINT row;
            std::memset(&row, 0, sizeof row);
            row.Paramclass[0] = u'X';
            putPadded(row.Parameter, 30, utf16Of(e.key));
            putPadded(row.Tabname, 30, u"");
            putPadded(row.Fieldname, 30, u"");
            row.Exid[0] = u' ';
            row.Position = ++position;
            putPadded(row.Default, 21, u"");
            putPadded(row.Paramtext, 79, utf16Of(e.text));
            row.Optional[0] = u' ';
            std::memcpy(t.append(), &row, sizeof row);
          }
        });
      },
      [](RFC_RC rc) { return rc; });
}

RFC_RC RfcGetStructureInfoAsTableU(RFC_HANDLE handle, SAP_CHAR* name, ITAB_H* fields, ITAB_H* heads, RFCTYPE* kind,
                                   unsigned* b1Length, unsigned* b2Length, unsigned* b4Length,
                                   RFC_STRUCT_TYPE_ID typeIdOut, rfc_char_t** exception) {
  return guard(
      [&]() -> RFC_RC {
        auto c = client(handle);
        requireArgument(fields, "fields");
        const std::string n = objectName(name, "structure");
        return described(*c, exception, "TABLE_NOT_ACTIVE", [&] {
          const auto types = c->describeType(n);
          std::vector<FlatField> flat;
          flatten(types, types.back(), 0, 0, flat);
          const unsigned b4 = layOutC4(flat);
          InternalTable& t = outputTable(fields, u"fields", sizeof(RFC_U_FIELDS));
          int position = 0;
          for (const FlatField& f : flat) {
            RFC_U_FIELDS row;
            std::memset(&row, 0, sizeof row);
            putPadded(row.Tabname, 30, utf16Of(n));
            putPadded(row.Fieldname, 30, utf16Of(f.name));
            row.Position = ++position;
            row.Exid[0] = letterOfType(static_cast<RFCTYPE>(f.info.type));
            row.Decimals = static_cast<SAP_INT>(f.info.decimals);
            row.Offset_b1 = static_cast<SAP_INT>(f.info.nucOffset);
            row.Length_b1 = static_cast<SAP_INT>(f.info.nucLength);
            row.Offset_b2 = static_cast<SAP_INT>(f.info.ucOffset);
            row.Length_b2 = static_cast<SAP_INT>(f.info.ucLength);
            row.Offset_b4 = static_cast<SAP_INT>(f.c4Offset);
            row.Length_b4 = static_cast<SAP_INT>(c4Length(f.info.type, f.info.ucLength));
            std::memcpy(t.append(), &row, sizeof row);
          }
          if (heads) *heads = nullptr;
          if (kind) *kind = kindOf(n, types.back());
          if (b1Length) *b1Length = types.back().nucLength;
          if (b2Length) *b2Length = types.back().ucLength;
          if (b4Length) *b4Length = b4;
          if (typeIdOut) typeId(n, typeIdOut);
        });
      },
      [](RFC_RC rc) { return rc; });
}

RFC_RC RfcGetStructureInfoFlatU(RFC_HANDLE handle, SAP_CHAR* name, int install, unsigned* headCount,
                                RFC_TYPE_HEAD** heads, unsigned* fieldCount, RFC_UNICODE_TYPE_ELEMENT** fields,
                                RFCTYPE* kind, unsigned* b1Length, unsigned* b2Length, unsigned* b4Length,
                                RFC_STRUCT_TYPE_ID typeIdOut, RFC_TYPEHANDLE* typeHandle, rfc_char_t** exception) {
  if (fieldCount) *fieldCount = 0;
  if (fields) *fields = nullptr;
  if (headCount) *headCount = 0;
  if (heads) *heads = nullptr;
  return guard(
      [&]() -> RFC_RC {
        auto c = client(handle);
        requireArgument(fields, "fields");
        requireArgument(fieldCount, "fieldCount");
        const std::string n = objectName(name, "structure");
        c->trace(Entry::RfcGetStructureInfoFlatU, n);
        return described(*c, exception, "TABLE_NOT_ACTIVE", [&] {
          const auto types = c->describeType(n);
          const proto::TypeInfo& t = types.back();
          std::vector<FlatField> flat;
          flatten(types, t, 0, 0, flat);
          const unsigned b4 = layOutC4(flat);
          if (install && typeHandle) *typeHandle = installFlat(n, flat, t);
          *fields = elementsOf(flat);
          *fieldCount = static_cast<unsigned>(flat.size());
          if (kind) *kind = kindOf(n, t);
          if (b1Length) *b1Length = t.nucLength;
          if (b2Length) *b2Length = t.ucLength;
          if (b4Length) *b4Length = b4;
          if (typeIdOut) typeId(n, typeIdOut);
        });
      },
      [](RFC_RC rc) { return rc; });
}

void RfcReleaseStructInfoU(RFC_TYPE_HEAD* heads, RFC_UNICODE_TYPE_ELEMENT* fields) {
  std::free(heads);
  std::free(fields);
}

RFC_RC RfcInstallUnicodeStructureU(rfc_char_t* name, RFC_UNICODE_TYPE_ELEMENT* elements, unsigned entries,
                                   unsigned flag, RFC_STRUCT_TYPE_ID typeIdIn, RFC_TYPEHANDLE* typeHandle) {
  (void)typeIdIn;
  return guardRc([&] {
    requireArgument(typeHandle, "typeHandle");
    if (entries) requireArgument(elements, "elements");
    if (flag != 0) fail(RFC_INVALID_PARAMETER, RFC_ERROR_PROGRAM, "The flag of RfcInstallUnicodeStructure must be 0");
    const std::string n = objectName(name, "structure");
    if (RFC_TYPEHANDLE known = installedHandle(n)) {
      *typeHandle = known;
      return;
    }
    *typeHandle = installStructure(structureOfElements(n, elements, entries));
  });
}

RFC_RC RfcInstallStructureU(rfc_char_t* name, RFC_TYPE_ELEMENT* elements, unsigned entries,
                            RFC_TYPEHANDLE* typeHandle) {
  return guardRc([&] {
    requireArgument(typeHandle, "typeHandle");
    if (entries) requireArgument(elements, "elements");
    const std::string n = objectName(name, "structure");
    if (RFC_TYPEHANDLE known = installedHandle(n)) {
      *typeHandle = known;
      return;
    }
    Structure s;
    s.name = n;
    for (unsigned i = 0; i < entries; ++i) {
      Field f;
      f.name = upperAscii(utf8Of(terminated(elements[i].name)));
      f.slot = slotOf(elements[i].type, elements[i].length, static_cast<int>(elements[i].decimals));
      s.fields.push_back(std::move(f));
    }
    layOut(s);
    *typeHandle = installStructure(std::move(s));
  });
}

RFC_RC RfcExidToRfcTypeU(SAP_CHAR exid, RFCTYPE* rfcType) {
  return guardRc([&] {
    requireArgument(rfcType, "rfcType");
    if (!typeOfLetter(exid, *rfcType))
      fail(RFC_INVALID_PARAMETER, RFC_ERROR_PROGRAM,
           "'" + utf8Of(std::u16string(1, exid)) + "' is no ABAP type letter");
  });
}

}  // namespace veltrane::sdk::rfc
