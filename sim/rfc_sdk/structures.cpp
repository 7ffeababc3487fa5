#include "rfc_sdk/structures.h"

#include <algorithm>
#include <map>
#include <mutex>

#include "rfc_sdk/errors.h"

namespace rfcsdk {

namespace {

struct Registry {
  std::mutex mutex;
  std::vector<std::shared_ptr<const Structure>> structures;  // by handle - kFirstStructureHandle
  std::map<std::string, RFC_TYPEHANDLE> byName;
};

Registry& registry() {
  static Registry* r = new Registry();
  return *r;
}

unsigned roundUp(unsigned n, unsigned to) { return (n + to - 1) / to * to; }

}  // namespace

RFC_TYPEHANDLE installStructure(Structure s) {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  if (auto it = r.byName.find(s.name); it != r.byName.end()) return it->second;
  const auto handle = static_cast<RFC_TYPEHANDLE>(kFirstStructureHandle + r.structures.size());
  r.byName[s.name] = handle;
  r.structures.push_back(std::make_shared<const Structure>(std::move(s)));
  return handle;
}

std::shared_ptr<const Structure> installedStructure(RFC_TYPEHANDLE handle) {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  if (handle < kFirstStructureHandle || handle - kFirstStructureHandle >= r.structures.size()) return nullptr;
  return r.structures[handle - kFirstStructureHandle];
}

RFC_TYPEHANDLE installedHandle(const std::string& name) {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  auto it = r.byName.find(name);
  return it == r.byName.end() ? 0 : it->second;
}

bool isCharacterLike(RFCTYPE t) {
  return t == RFCTYPE_CHAR || t == RFCTYPE_NUM || t == RFCTYPE_DATE || t == RFCTYPE_TIME;
}

unsigned alignmentOf(const Slot& s) {
  if (s.structure) return s.structure->alignment;
  switch (s.type) {
    case RFCTYPE_INT: return 4;
    case RFCTYPE_FLOAT:
    case RFCTYPE_STRING:
    case RFCTYPE_XSTRING: return 8;
    case RFCTYPE_INT2: return 2;
    default: return isCharacterLike(s.type) ? 2 : 1;
  }
}

Slot slotOf(RFC_TYPEHANDLE type, unsigned length, int decimals) {
  Slot s;
  if (type >= kFirstStructureHandle) {
    s.structure = installedStructure(type);
    if (!s.structure)
      fail(RFC_INVALID_PARAMETER, RFC_ERROR_PROGRAM, "Type handle " + std::to_string(type) + " is not installed");
    s.type = RFCTYPE_STRUCTURE;
    s.length = s.structure->length;
    if (length && length < s.length)
      fail(RFC_INVALID_PARAMETER, RFC_ERROR_PROGRAM,
           "Structure " + s.structure->name + " needs " + std::to_string(s.length) + " bytes, not " +
               std::to_string(length));
    return s;
  }
  s.type = static_cast<RFCTYPE>(type);
  s.length = length;
  s.decimals = decimals;
  unsigned needed = 1;
  switch (s.type) {
    case RFCTYPE_INT: needed = 4; break;
    case RFCTYPE_INT2: needed = 2; break;
    case RFCTYPE_FLOAT: needed = 8; break;
    case RFCTYPE_STRING:  // the entry points to the handle; its length is not read
      s.length = sizeof(RFC_STRING);
      return s;
    case RFCTYPE_XSTRING: s.length = sizeof(RFC_XSTRING); return s;
    case RFCTYPE_DATE: needed = 16; break;
    case RFCTYPE_TIME: needed = 12; break;
    case RFCTYPE_CHAR:
    case RFCTYPE_NUM: needed = 2; break;
    case RFCTYPE_BCD:
    case RFCTYPE_BYTE:
    case RFCTYPE_INT1: break;
    default:
      fail(RFC_INVALID_PARAMETER, RFC_ERROR_PROGRAM,
           "Type " + std::to_string(type) + " is not supported by this library");
  }
  if (length < needed)
    fail(RFC_INVALID_PARAMETER, RFC_ERROR_PROGRAM,
         "A value of type " + std::to_string(type) + " needs " + std::to_string(needed) + " bytes, not " +
             std::to_string(length));
  if (s.type == RFCTYPE_BCD && length > 16)
    fail(RFC_INVALID_PARAMETER, RFC_ERROR_PROGRAM,
         "A packed number has at most 16 bytes, not " + std::to_string(length));
  return s;
}

void layOut(Structure& s) {
  unsigned offset = 0, c1 = 0;
  s.alignment = 1;
  for (Field& f : s.fields) {
    const unsigned a = alignmentOf(f.slot);
    s.alignment = std::max(s.alignment, a);
    offset = roundUp(offset, a);
    f.offset = offset;
    offset += f.slot.length;
    const bool chars = isCharacterLike(f.slot.type);
    f.c1Length = chars ? f.slot.length / 2 : f.slot.structure ? f.slot.structure->c1Length : f.slot.length;
    c1 = roundUp(c1, chars ? 1 : a);
    f.c1Offset = c1;
    c1 += f.c1Length;
  }
  s.length = roundUp(offset, s.alignment);
  s.c1Length = roundUp(c1, s.alignment);
}

namespace {

struct Letter {
  char16_t letter;
  RFCTYPE type;
};
// The ABAP type letters; 'u' and 'v' are flat and deep structures, 'h' a table type.
constexpr Letter kLetters[] = {
    {u'C', RFCTYPE_CHAR},   {u'N', RFCTYPE_NUM},       {u'P', RFCTYPE_BCD},       {u'D', RFCTYPE_DATE},
    {u'T', RFCTYPE_TIME},   {u'I', RFCTYPE_INT},       {u'F', RFCTYPE_FLOAT},     {u'X', RFCTYPE_BYTE},
    {u'g', RFCTYPE_STRING}, {u'y', RFCTYPE_XSTRING},   {u's', RFCTYPE_INT2},      {u'b', RFCTYPE_INT1},
    {u'h', RFCTYPE_ITAB},   {u'u', RFCTYPE_STRUCTURE}, {u'v', RFCTYPE_STRUCTURE},
};

}  // namespace

bool typeOfLetter(char16_t letter, RFCTYPE& out) {
  for (const Letter& l : kLetters)
    if (l.letter == letter) {
      out = l.type;
      return true;
    }
  return false;
}

char16_t letterOfType(RFCTYPE type) {
  for (const Letter& l : kLetters)
    if (l.type == type) return l.letter;
  return u'?';
}

}  // namespace rfcsdk
