#include "rfc_sdk/parameters.h"

#include "rfc_protocol/values.h"
#include "rfc_sdk/errors.h"
#include "rfc_sdk/text.h"
#include "rfc_sdk/values.h"

namespace rfcsdk {

namespace proto = vsim::proto;

std::string entryName(const RFC_CHAR* name, unsigned nlen) {
  return upperAscii(utf8Of(nlen ? bounded(name, nlen) : terminated(name)));
}

InternalTable& tableOf(RFC_TABLE& t) {
  if (!t.ithandle) {
    t.ithandle = new InternalTable(utf16Of(entryName(t.name, t.nlen)), t.leng, 0);
    t.newitab = 1;
  }
  auto* table = static_cast<InternalTable*>(t.ithandle);
  if (table->rowLength() != t.leng)
    fail(RFC_INVALID_PARAMETER, RFC_ERROR_PROGRAM,
         "Table " + entryName(t.name, t.nlen) + " has rows of " + std::to_string(table->rowLength()) +
             " bytes, the entry says " + std::to_string(t.leng));
  return *table;
}

namespace {

template <class Entry>
size_t count(const Entry* a) {
  size_t n = 0;
  while (a && a[n].name) ++n;
  return n;
}

Slot parameterSlot(const RFC_PARAMETER& p, const std::string& name, const DecimalsOf& decimals) {
  if (!p.addr) fail(RFC_INVALID_PARAMETER, RFC_ERROR_PROGRAM, "Parameter " + name + " has no address");
  return slotOf(p.type, p.leng, p.type == RFCTYPE_BCD && decimals ? decimals(name) : -1);
}

void writeParameters(proto::Writer& w, const RFC_PARAMETER* a, const DecimalsOf& decimals) {
  for (size_t i = 0; a && a[i].name; ++i) {
    const std::string name = entryName(a[i].name, a[i].nlen);
    w.text(name);
    writeValue(w, parameterSlot(a[i], name, decimals), static_cast<const unsigned char*>(a[i].addr));
  }
}

RFC_PARAMETER* findParameter(RFC_PARAMETER* a, std::string_view name) {
  for (size_t i = 0; a && a[i].name; ++i)
    if (entryName(a[i].name, a[i].nlen) == name) return &a[i];
  return nullptr;
}

RFC_TABLE* findTable(RFC_TABLE* a, std::string_view name) {
  for (size_t i = 0; a && a[i].name; ++i)
    if (entryName(a[i].name, a[i].nlen) == name) return &a[i];
  return nullptr;
}

}  // namespace

void writeSection(proto::Writer& w, const Outgoing& out, const DecimalsOf& decimals) {
  const size_t tables = out.withTables ? count(out.tables) : 0;
  w.varint(count(out.first) + count(out.second) + tables);
  writeParameters(w, out.first, decimals);
  writeParameters(w, out.second, decimals);
  for (size_t i = 0; i < tables; ++i) {
    auto& t = const_cast<RFC_TABLE&>(out.tables[i]);
    w.text(entryName(t.name, t.nlen));
    writeTable(w, slotOf(t.type, t.leng), t.ithandle ? &tableOf(t) : nullptr);
  }
}

void readSection(proto::Reader& r, const Incoming& in, const DecimalsOf& decimals) {
  const size_t n = r.count(2);
  for (size_t i = 0; i < n; ++i) {
    const std::string name = upperAscii(r.text());
    const proto::WireType type = r.type();
    RFC_PARAMETER* p = findParameter(in.first, name);
    if (!p) p = findParameter(in.second, name);
    if (p) {
      readInto(r, type, parameterSlot(*p, name, decimals), static_cast<unsigned char*>(p->addr));
    } else if (RFC_TABLE* t = findTable(in.tables, name)) {
      readTable(r, type, slotOf(t->type, t->leng), tableOf(*t));
    } else {
      proto::skipBody(r, type, 0);
    }
  }
}

}  // namespace rfcsdk
