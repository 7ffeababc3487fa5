// Arbitrary bytes as the values section of an answer, read into parameters of every type and a
// table of a structure: the reader fills them or refuses with ProtocolError or Failure, and
// leaves every buffer within its bounds (the sanitizers watch). Strings it allocated are freed.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "rfc_protocol/values.h"
#include "rfc_sdk/errors.h"
#include "rfc_sdk/itab.h"
#include "rfc_sdk/parameters.h"
#include "rfc_sdk/structures.h"
#include "rfc_sdk/values.h"

namespace {

using namespace rfcsdk;

RFC_TYPEHANDLE rowType() {
  static const RFC_TYPEHANDLE handle = [] {
    Structure s;
    s.name = "ZFUZZ_ROW";
    const std::pair<const char*, Slot> fields[] = {
        {"C", {RFCTYPE_CHAR, 8, 0, nullptr}},   {"N", {RFCTYPE_NUM, 6, 0, nullptr}},
        {"P", {RFCTYPE_BCD, 4, 2, nullptr}},    {"I", {RFCTYPE_INT, 4, 0, nullptr}},
        {"S", {RFCTYPE_STRING, 8, 0, nullptr}}, {"X", {RFCTYPE_XSTRING, 16, 0, nullptr}}};
    for (const auto& [name, slot] : fields) s.fields.push_back({name, slot, 0, 0, 0});
    layOut(s);
    return installStructure(std::move(s));
  }();
  return handle;
}

std::u16string name(const char* n) { return std::u16string(n, n + std::strlen(n)); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::u16string names[] = {name("C"), name("N"), name("D"), name("T"), name("P"), name("B"),   name("I"),
                                         name("S"), name("F"), name("G"), name("Y"), name("R"), name("ROWS")};
  SAP_UC c[5], n[4], d[8], t[6];
  unsigned char p[6] = {}, b[3], row[64];
  short s = 0;
  int i = 0;
  double f = 0;
  RFC_STRING g = nullptr;
  RFC_XSTRING y{0, nullptr};
  const RFC_TYPEHANDLE type = rowType();
  const unsigned rowLength = installedStructure(type)->length;
  RFC_PARAMETER params[] = {{const_cast<SAP_UC*>(names[0].data()), 1, RFCTYPE_CHAR, sizeof c, c},
                            {const_cast<SAP_UC*>(names[1].data()), 1, RFCTYPE_NUM, sizeof n, n},
                            {const_cast<SAP_UC*>(names[2].data()), 1, RFCTYPE_DATE, sizeof d, d},
                            {const_cast<SAP_UC*>(names[3].data()), 1, RFCTYPE_TIME, sizeof t, t},
                            {const_cast<SAP_UC*>(names[4].data()), 1, RFCTYPE_BCD, sizeof p, p},
                            {const_cast<SAP_UC*>(names[5].data()), 1, RFCTYPE_BYTE, sizeof b, b},
                            {const_cast<SAP_UC*>(names[6].data()), 1, RFCTYPE_INT, sizeof i, &i},
                            {const_cast<SAP_UC*>(names[7].data()), 1, RFCTYPE_INT2, sizeof s, &s},
                            {const_cast<SAP_UC*>(names[8].data()), 1, RFCTYPE_FLOAT, sizeof f, &f},
                            {const_cast<SAP_UC*>(names[9].data()), 1, RFCTYPE_STRING, 0, &g},
                            {const_cast<SAP_UC*>(names[10].data()), 1, RFCTYPE_XSTRING, 0, &y},
                            {const_cast<SAP_UC*>(names[11].data()), 1, type, rowLength, row},
                            {}};
  RFC_TABLE tables[] = {{const_cast<SAP_UC*>(names[12].data()), 4, type, rowLength, nullptr, RFC_ITMODE_BYREFERENCE, 0},
                        {}};
  initialize(slotOf(type, rowLength), row);
  vsim::proto::Reader r(reinterpret_cast<const char*>(data), size);
  try {
    readSection(r, {params, nullptr, tables}, nullptr);
  } catch (const vsim::proto::ProtocolError&) {
  } catch (const Failure&) {}
  const auto freeRow = [](unsigned char* p) {
    std::free(*reinterpret_cast<RFC_STRING*>(p + installedStructure(rowType())->fields[4].offset));
    resizeXString(*reinterpret_cast<RFC_XSTRING*>(p + installedStructure(rowType())->fields[5].offset), 0);
  };
  std::free(g);
  resizeXString(y, 0);
  freeRow(row);
  if (auto* table = static_cast<InternalTable*>(tables[0].ithandle)) {
    for (unsigned k = 1; k <= table->fill(); ++k) freeRow(table->row(k));
    delete table;
  }
  return 0;
}
