#include "rfc_protocol/messages.h"

#include <unistd.h>

#include <cstring>

namespace vsim::proto {

namespace {

constexpr size_t kMaxText = 1u << 20;  // messages, texts and attribute values

WireType readType(Reader& r) { return r.type(); }

std::uint32_t readU32(Reader& r) {
  const std::uint64_t v = r.varint();
  if (v > 0xffffffffu) throw ProtocolError("number out of range");
  return static_cast<std::uint32_t>(v);
}

void checkRef(std::uint32_t ref, size_t known) {
  if (ref > known) throw ProtocolError("reference to an unknown type");
}

void writeType(Writer& w, const TypeInfo& t) {
  w.text(t.name);
  w.varint(t.nucLength);
  w.varint(t.ucLength);
  w.varint(t.fields.size());
  for (const FieldInfo& f : t.fields) {
    w.text(f.name);
    w.type(f.type);
    w.varint(f.nucLength);
    w.varint(f.nucOffset);
    w.varint(f.ucLength);
    w.varint(f.ucOffset);
    w.varint(f.decimals);
    w.varint(f.typeRef);
  }
}

TypeInfo readType(Reader& r, size_t known) {
  TypeInfo t;
  t.name = readShortText(r);
  t.nucLength = readU32(r);
  t.ucLength = readU32(r);
  t.fields.resize(r.count(8));
  for (FieldInfo& f : t.fields) {
    f.name = readShortText(r);
    f.type = readType(r);
    f.nucLength = readU32(r);
    f.nucOffset = readU32(r);
    f.ucLength = readU32(r);
    f.ucOffset = readU32(r);
    f.decimals = readU32(r);
    f.typeRef = readU32(r);
    checkRef(f.typeRef, known);
  }
  return t;
}

}  // namespace

std::string readShortText(Reader& r, size_t max) {
  const std::string_view s = r.text();
  if (s.size() > max) throw ProtocolError("text of " + std::to_string(s.size()) + " bytes is too long here");
  return std::string(s);
}

std::string pairValue(const Pairs& pairs, std::string_view name) {
  for (const auto& [k, v] : pairs)
    if (k == name) return v;
  return {};
}

void writePairs(Writer& w, const Pairs& pairs) {
  w.varint(pairs.size());
  for (const auto& [k, v] : pairs) {
    w.text(k);
    w.text(v);
  }
}

Pairs readPairs(Reader& r) {
  Pairs pairs(r.count(2));
  for (auto& [k, v] : pairs) {
    k = readShortText(r);
    v = readShortText(r, kMaxText);
  }
  return pairs;
}

void writeOpen(Writer& w, const OpenRequest& m) {
  w.u32(kMagic);
  w.u16(m.version);
  writePairs(w, m.params);
}

OpenRequest readOpen(Reader& r) {
  if (r.u32() != kMagic) throw ProtocolError("not an RFC logon: the magic number is missing");
  OpenRequest m;
  m.version = r.u16();
  m.params = readPairs(r);
  r.expectEnd();
  return m;
}

void writeOpenReply(Writer& w, const OpenReply& m) {
  w.u16(m.version);
  writePairs(w, m.attributes);
}

OpenReply readOpenReply(Reader& r) {
  OpenReply m;
  m.version = r.u16();
  m.attributes = readPairs(r);
  r.expectEnd();
  return m;
}

void writeError(Writer& w, const ErrorInfo& e) {
  w.u8(e.rc);
  w.u8(e.group);
  w.text(e.key);
  w.text(e.message);
  w.text(e.msgClass);
  w.text(e.msgType);
  w.text(e.msgNumber);
  for (const auto& v : e.msgVars) w.text(v);
  w.boolean(e.closes);
}

ErrorInfo readError(Reader& r) {
  ErrorInfo e;
  e.rc = r.u8();
  e.group = r.u8();
  e.key = readShortText(r);
  e.message = readShortText(r, kMaxText);
  e.msgClass = readShortText(r);
  e.msgType = readShortText(r);
  e.msgNumber = readShortText(r);
  for (auto& v : e.msgVars) v = readShortText(r);
  e.closes = r.boolean();
  return e;
}

void writeTypeList(Writer& w, const std::vector<TypeInfo>& types) {
  w.varint(types.size());
  for (const TypeInfo& t : types) writeType(w, t);
}

std::vector<TypeInfo> readTypeList(Reader& r) {
  std::vector<TypeInfo> types(r.count(4));
  for (size_t i = 0; i < types.size(); ++i) types[i] = readType(r, i);
  return types;
}

void writeFunctionInfo(Writer& w, const FunctionInfo& f) {
  w.text(f.name);
  writeTypeList(w, f.types);
  w.varint(f.parameters.size());
  for (const ParameterInfo& p : f.parameters) {
    w.text(p.name);
    w.type(p.type);
    w.u8(static_cast<std::uint8_t>(p.direction));
    w.varint(p.nucLength);
    w.varint(p.ucLength);
    w.varint(p.decimals);
    w.varint(p.typeRef);
    w.text(p.defaultValue);
    w.text(p.text);
    w.boolean(p.optional);
  }
  w.varint(f.exceptions.size());
  for (const ExceptionInfo& e : f.exceptions) {
    w.text(e.key);
    w.text(e.text);
  }
}

FunctionInfo readFunctionInfo(Reader& r) {
  FunctionInfo f;
  f.name = readShortText(r);
  f.types = readTypeList(r);
  f.parameters.resize(r.count(12));
  for (ParameterInfo& p : f.parameters) {
    p.name = readShortText(r);
    p.type = readType(r);
    const std::uint8_t d = r.u8();
    if (d != 1 && d != 2 && d != 3 && d != 7) throw ProtocolError("unknown parameter direction " + std::to_string(d));
    p.direction = static_cast<Direction>(d);
    p.nucLength = readU32(r);
    p.ucLength = readU32(r);
    p.decimals = readU32(r);
    p.typeRef = readU32(r);
    checkRef(p.typeRef, f.types.size());
    p.defaultValue = readShortText(r);
    p.text = readShortText(r);
    p.optional = r.boolean();
  }
  f.exceptions.resize(r.count(2));
  for (ExceptionInfo& e : f.exceptions) {
    e.key = readShortText(r);
    e.text = readShortText(r);
  }
  r.expectEnd();
  return f;
}

void writeInvokeHead(Writer& w, const InvokeHead& m) {
  w.text(m.function);
  w.varint(m.inactive.size());
  for (const auto& n : m.inactive) w.text(n);
}

InvokeHead readInvokeHead(Reader& r) {
  InvokeHead m;
  m.function = readShortText(r);
  m.inactive.resize(r.count(1));
  for (auto& n : m.inactive) n = readShortText(r);
  return m;
}

void writeTransactionHead(Writer& w, const TransactionHead& m) {
  w.text(m.tid);
  w.text(m.queue);
  w.varint(m.count);
}

TransactionHead readTransactionHead(Reader& r) {
  TransactionHead m;
  m.tid = readShortText(r);
  m.queue = readShortText(r);
  m.count = static_cast<std::uint32_t>(r.count(2));
  return m;
}

void writeCallHead(Writer& w, const CallHead& m) {
  w.u8(static_cast<std::uint8_t>(m.type));
  w.text(m.tid);
  w.text(m.function);
  writePairs(w, m.attributes);
}

CallHead readCallHead(Reader& r) {
  CallHead m;
  const std::uint8_t t = r.u8();
  if (t > 1) throw ProtocolError("unknown call type " + std::to_string(t));
  m.type = static_cast<CallType>(t);
  m.tid = readShortText(r);
  m.function = readShortText(r);
  m.attributes = readPairs(r);
  return m;
}

void writeCallResultHead(Writer& w, bool executedBefore) { w.boolean(executedBefore); }

bool readCallResultHead(Reader& r) { return r.boolean(); }

std::string programName() {
  char buf[256] = {};
  const ssize_t n = ::readlink("/proc/self/exe", buf, sizeof buf - 1);
  if (n <= 0) return "unknown";
  const char* slash = std::strrchr(buf, '/');
  return slash ? slash + 1 : buf;
}

}  // namespace vsim::proto
