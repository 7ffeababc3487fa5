#include "nwrfc_sdk/descriptions.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "nwrfc_sdk/text.h"

namespace nwrfc {

bool storedAside(RFCTYPE type) {
  switch (type) {
    case RFCTYPE_STRING:
    case RFCTYPE_XSTRING:
    case RFCTYPE_TABLE:
    case RFCTYPE_DECF16:
    case RFCTYPE_DECF34:
    case RFCTYPE_UTCLONG: return true;
    default: return false;
  }
}

bool supported(RFCTYPE t) {
  switch (t) {
    case RFCTYPE_CHAR:
    case RFCTYPE_DATE:
    case RFCTYPE_BCD:
    case RFCTYPE_TIME:
    case RFCTYPE_BYTE:
    case RFCTYPE_TABLE:
    case RFCTYPE_NUM:
    case RFCTYPE_FLOAT:
    case RFCTYPE_INT:
    case RFCTYPE_INT2:
    case RFCTYPE_INT1:
    case RFCTYPE_STRUCTURE:
    case RFCTYPE_DECF16:
    case RFCTYPE_DECF34:
    case RFCTYPE_STRING:
    case RFCTYPE_XSTRING:
    case RFCTYPE_INT8:
    case RFCTYPE_UTCLONG: return true;
    default: return false;
  }
}

namespace {

// The longest record this library lays out: a length beyond it (an unset
// length of -1 given as it stands) is refused rather than allocated.
constexpr std::uint64_t kMaxRecordLength = 1u << 24;

void checkRecordLength(std::uint64_t length, const std::string& owner) {
  if (length > kMaxRecordLength)
    fail(RFC_INVALID_PARAMETER, "The " + owner + " has a length of " + std::to_string(length) +
                                    " bytes; records of at most " + std::to_string(kMaxRecordLength) +
                                    " bytes can be laid out");
}

unsigned naturalLength(RFCTYPE t) {
  switch (t) {
    case RFCTYPE_FLOAT:
    case RFCTYPE_INT8: return 8;
    case RFCTYPE_INT: return 4;
    case RFCTYPE_INT2: return 2;
    case RFCTYPE_INT1: return 1;
    default: return storedAside(t) ? 8 : 0;
  }
}

void putUnits(std::vector<unsigned char>& image, unsigned offset, unsigned units, char16_t c) {
  for (unsigned i = 0; i < units; ++i) std::memcpy(image.data() + offset + 2 * i, &c, 2);
}

// Checks a slot against the record size and fills in what follows from its type.
void completeSlot(Slot& s, unsigned recordSize, const std::string& owner) {
  if (!supported(s.type))
    fail(RFC_NOT_SUPPORTED, "Field " + s.utf8Name + " of " + owner + " has type " + std::to_string(s.type) +
                                ", which this library does not support");
  if ((s.type == RFCTYPE_STRUCTURE || s.type == RFCTYPE_TABLE) && !s.sub)
    fail(RFC_INVALID_PARAMETER, "Field " + s.utf8Name + " of " + owner + " has no type description");
  const unsigned natural = naturalLength(s.type);
  if (s.type == RFCTYPE_STRUCTURE) {
    const unsigned need = s.sub->layout().size;
    if (s.length < need) s.length = need;
  } else if (natural && s.length < natural) {
    s.length = natural;
  }
  const bool chars =
      s.type == RFCTYPE_CHAR || s.type == RFCTYPE_NUM || s.type == RFCTYPE_DATE || s.type == RFCTYPE_TIME;
  s.chars = chars ? s.length / 2 : s.length;
  if (s.type == RFCTYPE_DATE && s.chars < 8) fail(RFC_INVALID_PARAMETER, "Date field " + s.utf8Name + " is too short");
  if (s.type == RFCTYPE_TIME && s.chars < 6) fail(RFC_INVALID_PARAMETER, "Time field " + s.utf8Name + " is too short");
  if (static_cast<std::uint64_t>(s.offset) + s.length > recordSize)
    fail(RFC_INVALID_PARAMETER, "Field " + s.utf8Name + " (offset " + std::to_string(s.offset) + ", length " +
                                    std::to_string(s.length) + ") exceeds the length " + std::to_string(recordSize) +
                                    " of " + owner);
}

}  // namespace

int Layout::find(std::u16string_view name) const {
  if (auto it = index.find(name); it != index.end()) return static_cast<int>(it->second);
  const std::string n = toUtf8(name);
  for (size_t i = 0; i < slots.size(); ++i)
    if (equalsIgnoringCase(slots[i].utf8Name, n)) return static_cast<int>(i);
  return -1;
}

void Layout::finish() {
  initial.assign(size, 0);
  aside.clear();
  index.clear();
  for (size_t i = 0; i < slots.size(); ++i) {
    const Slot& s = slots[i];
    index.emplace(s.name, static_cast<unsigned>(i));
    switch (s.type) {
      case RFCTYPE_CHAR: putUnits(initial, s.offset, s.chars, u' '); break;
      case RFCTYPE_NUM:
      case RFCTYPE_DATE:
      case RFCTYPE_TIME: putUnits(initial, s.offset, s.chars, u'0'); break;
      case RFCTYPE_BCD:
        if (s.length) initial[s.offset + s.length - 1] = 0x0C;
        break;
      case RFCTYPE_STRUCTURE: {
        const Layout& sub = s.sub->layout();
        std::copy_n(sub.initial.begin(), sub.size, initial.begin() + s.offset);  // an empty one copies nothing
        for (const Aside& a : sub.aside) aside.push_back({s.offset + a.offset, a.type, a.rowType});
        break;
      }
      default:
        if (storedAside(s.type)) aside.push_back({s.offset, s.type, s.type == RFCTYPE_TABLE ? s.sub.get() : nullptr});
        break;
    }
  }
}

void TypeDescription::addField(const RFC_FIELD_DESC& field) {
  std::lock_guard lock(mutex_);
  if (locked_) fail(RFC_ILLEGAL_STATE, "Type description " + toUtf8(name_) + " is in use and cannot be changed");
  const std::u16string name(ucView(field.name, std::size(field.name)));
  if (findField(name) >= 0 && !name.empty())
    fail(RFC_INVALID_PARAMETER, "Field " + toUtf8(name) + " is already defined in " + toUtf8(name_));
  TypePtr sub;
  if (field.typeDescHandle) sub = typeOf(field.typeDescHandle);
  if ((field.type == RFCTYPE_STRUCTURE || field.type == RFCTYPE_TABLE) && !sub)
    fail(RFC_INVALID_PARAMETER, "Field " + toUtf8(name) + " of type structure or table needs a type description");
  if (sub.get() == this) fail(RFC_INVALID_PARAMETER, "Type " + toUtf8(name_) + " cannot contain itself");
  fields_.push_back(field);
  subtypes_.push_back(std::move(sub));
}

void TypeDescription::setLength(unsigned nucLength, unsigned ucLength) {
  std::lock_guard lock(mutex_);
  if (locked_) fail(RFC_ILLEGAL_STATE, "Type description " + toUtf8(name_) + " is in use and cannot be changed");
  nucLength_ = nucLength;
  ucLength_ = ucLength;
  lengthSet_ = true;
}

int TypeDescription::findField(std::u16string_view name) const {
  for (size_t i = 0; i < fields_.size(); ++i)
    if (ucView(fields_[i].name, std::size(fields_[i].name)) == name) return static_cast<int>(i);
  return -1;
}

const Layout& TypeDescription::layout() {
  if (locked_) return layout_;
  std::lock_guard lock(mutex_);
  if (locked_) return layout_;
  const std::string owner = "type " + toUtf8(name_);
  if (!lengthSet_ && !fields_.empty())
    fail(RFC_ILLEGAL_STATE, "Type description " + toUtf8(name_) + " has no length: call RfcSetTypeLength first");
  checkRecordLength(ucLength_, owner);
  Layout l;
  l.size = ucLength_;
  for (size_t i = 0; i < fields_.size(); ++i) {
    const RFC_FIELD_DESC& f = fields_[i];
    Slot s;
    s.name = std::u16string(ucView(f.name, std::size(f.name)));
    s.utf8Name = toUtf8(s.name);
    s.type = f.type;
    s.offset = f.ucOffset;
    s.length = f.ucLength;
    s.decimals = f.decimals;
    s.sub = subtypes_[i];
    completeSlot(s, l.size, owner);
    l.slots.push_back(std::move(s));
  }
  l.finish();
  layout_ = std::move(l);
  locked_ = true;
  return layout_;
}

void FunctionDescription::addParameter(const RFC_PARAMETER_DESC& p) {
  std::lock_guard lock(mutex_);
  if (locked_) fail(RFC_ILLEGAL_STATE, "Function description " + toUtf8(name_) + " is in use and cannot be changed");
  const std::u16string name(ucView(p.name, std::size(p.name)));
  if (findParameter(name) >= 0)
    fail(RFC_INVALID_PARAMETER, "Parameter " + toUtf8(name) + " is already defined in " + toUtf8(name_));
  if (p.direction != RFC_IMPORT && p.direction != RFC_EXPORT && p.direction != RFC_CHANGING &&
      p.direction != RFC_TABLES)
    fail(RFC_INVALID_PARAMETER, "Parameter " + toUtf8(name) + " has an unknown direction");
  TypePtr sub;
  if (p.typeDescHandle) sub = typeOf(p.typeDescHandle);
  if ((p.type == RFCTYPE_STRUCTURE || p.type == RFCTYPE_TABLE) && !sub)
    fail(RFC_INVALID_PARAMETER, "Parameter " + toUtf8(name) + " of type structure or table needs a type description");
  params_.push_back(p);
  subtypes_.push_back(std::move(sub));
}

void FunctionDescription::addException(const RFC_EXCEPTION_DESC& e) {
  std::lock_guard lock(mutex_);
  if (locked_) fail(RFC_ILLEGAL_STATE, "Function description " + toUtf8(name_) + " is in use and cannot be changed");
  exceptions_.push_back(e);
}

int FunctionDescription::findParameter(std::u16string_view name) const {
  for (size_t i = 0; i < params_.size(); ++i)
    if (ucView(params_[i].name, std::size(params_[i].name)) == name) return static_cast<int>(i);
  return -1;
}

int FunctionDescription::findException(std::u16string_view key) const {
  for (size_t i = 0; i < exceptions_.size(); ++i)
    if (ucView(exceptions_[i].key, std::size(exceptions_[i].key)) == key) return static_cast<int>(i);
  return -1;
}

const Layout& FunctionDescription::layout() {
  if (locked_) return layout_;
  std::lock_guard lock(mutex_);
  if (locked_) return layout_;
  Layout l;
  std::uint64_t offset = 0;
  std::vector<Slot> slots;
  for (size_t i = 0; i < params_.size(); ++i) {
    const RFC_PARAMETER_DESC& p = params_[i];
    Slot s;
    s.name = std::u16string(ucView(p.name, std::size(p.name)));
    s.utf8Name = toUtf8(s.name);
    s.type = p.type;
    s.direction = p.direction;
    s.decimals = p.decimals;
    s.sub = subtypes_[i];
    s.length = p.type == RFCTYPE_TABLE ? 8 : p.ucLength;
    if (s.length == 0 && (p.type == RFCTYPE_CHAR || p.type == RFCTYPE_NUM)) s.length = 2 * p.nucLength;
    if (p.type == RFCTYPE_DATE) s.length = std::max(s.length, 16u);
    if (p.type == RFCTYPE_TIME) s.length = std::max(s.length, 12u);
    if (p.type == RFCTYPE_STRUCTURE && s.sub) s.length = s.sub->layout().size;
    if (naturalLength(p.type)) s.length = std::max(s.length, naturalLength(p.type));
    if ((p.type == RFCTYPE_BCD || p.type == RFCTYPE_BYTE) && s.length == 0) s.length = p.nucLength;
    s.offset = static_cast<unsigned>(offset);
    offset = (offset + s.length + 7) / 8 * 8;
    checkRecordLength(offset, "function " + toUtf8(name_));
    slots.push_back(std::move(s));
  }
  l.size = static_cast<unsigned>(offset);
  for (Slot& s : slots) completeSlot(s, l.size, "function " + toUtf8(name_));
  l.slots = std::move(slots);
  l.finish();
  layout_ = std::move(l);
  locked_ = true;
  return layout_;
}

TypePtr typeOf(RFC_TYPE_DESC_HANDLE handle) {
  return resolve<TypeDescription>(handle, "RFC_TYPE_DESC_HANDLE").shared_from_this();
}

FunctionPtr functionOf(RFC_FUNCTION_DESC_HANDLE handle) {
  return resolve<FunctionDescription>(handle, "RFC_FUNCTION_DESC_HANDLE").shared_from_this();
}

Descriptions& descriptions() {
  static Descriptions* d = new Descriptions();
  return *d;
}

TypePtr Descriptions::createType(std::u16string name) {
  auto t = std::make_shared<TypeDescription>(std::move(name));
  std::lock_guard lock(mutex_);
  owned_.push_back(t);
  return t;
}

FunctionPtr Descriptions::createFunction(std::u16string name) {
  auto f = std::make_shared<FunctionDescription>(std::move(name));
  std::lock_guard lock(mutex_);
  owned_.push_back(f);
  return f;
}

namespace {

template <class Ptr>
void destroyOwned(std::mutex& mutex, std::vector<std::shared_ptr<Object>>& owned, Ptr p, const char* what) {
  std::lock_guard lock(mutex);
  auto it = std::find_if(owned.begin(), owned.end(), [&](const auto& o) { return o.get() == p.get(); });
  if (it == owned.end())
    fail(RFC_ILLEGAL_STATE, std::string("The ") + what + " belongs to a repository and cannot be destroyed");
  // One reference here, one in the list, one in `p`: more means a container or another description uses it.
  if (p.use_count() > 2) fail(RFC_ILLEGAL_STATE, std::string("The ") + what + " is still in use");
  owned.erase(it);
}

}  // namespace

void Descriptions::destroy(RFC_TYPE_DESC_HANDLE h) { destroyOwned(mutex_, owned_, typeOf(h), "type description"); }

void Descriptions::destroy(RFC_FUNCTION_DESC_HANDLE h) {
  destroyOwned(mutex_, owned_, functionOf(h), "function description");
}

FunctionPtr Descriptions::cachedFunction(const std::u16string& sysId, std::u16string_view name) {
  std::lock_guard lock(mutex_);
  auto r = functions_.find(sysId);
  if (r == functions_.end()) return nullptr;
  auto it = r->second.find(name);
  return it == r->second.end() ? nullptr : it->second;
}

TypePtr Descriptions::cachedType(const std::u16string& sysId, std::u16string_view name) {
  std::lock_guard lock(mutex_);
  auto r = types_.find(sysId);
  if (r == types_.end()) return nullptr;
  auto it = r->second.find(name);
  return it == r->second.end() ? nullptr : it->second;
}

void Descriptions::cache(const std::u16string& sysId, FunctionPtr f) {
  std::lock_guard lock(mutex_);
  functions_[sysId][f->name()] = std::move(f);
}

void Descriptions::cache(const std::u16string& sysId, TypePtr t) {
  std::lock_guard lock(mutex_);
  types_[sysId][t->name()] = std::move(t);
}

void Descriptions::clear(const std::u16string* sysId) {
  std::lock_guard lock(mutex_);
  if (sysId) {
    functions_.erase(*sysId);
    types_.erase(*sysId);
  } else {
    functions_.clear();
    types_.clear();
  }
}

}  // namespace nwrfc
