#include "nwrfc_sdk/containers.h"

#include <cstring>

#include "nwrfc_sdk/text.h"

namespace nwrfc {

namespace {

std::uint64_t refOf(const unsigned char* ref) {
  std::uint64_t v;
  std::memcpy(&v, ref, sizeof v);
  return v;
}

void setRef(unsigned char* ref, std::uint64_t v) { std::memcpy(ref, &v, sizeof v); }

}  // namespace

Store::Store() = default;
Store::~Store() = default;

Store::Item* Store::item(const unsigned char* ref) {
  const std::uint64_t v = refOf(ref);
  if (v == 0 || v > items_.size()) return nullptr;
  return &items_[v - 1];
}

Store::Item& Store::put(unsigned char* ref, Item value) {
  if (Item* existing = item(ref)) {
    *existing = std::move(value);
    return *existing;
  }
  std::uint64_t index;
  if (!free_.empty()) {
    index = free_.back();
    free_.pop_back();
    items_[index] = std::move(value);
  } else {
    index = items_.size();
    items_.push_back(std::move(value));
  }
  setRef(ref, index + 1);
  return items_[index];
}

void Store::release(unsigned char* ref) {
  const std::uint64_t v = refOf(ref);
  if (v == 0 || v > items_.size()) return;
  items_[v - 1] = std::monostate{};
  free_.push_back(static_cast<std::uint32_t>(v - 1));
  setRef(ref, 0);
}

void Store::clear() {
  items_.clear();
  free_.clear();
}

Container::~Container() = default;

unsigned Container::slotOf(const SAP_UC* name) {
  const Layout& l = *record().layout;
  const int i = name ? l.find(ucView(name)) : -1;
  if (i < 0) fail(RFC_INVALID_PARAMETER, "field '" + toUtf8(ucView(name)) + "' not found");
  return static_cast<unsigned>(i);
}

void Container::touch(unsigned) {
  if (touched_) *touched_ = 1;
}

Container& Container::structure(unsigned slot) {
  const Record r = record();
  const Slot& s = r.slot(slot);
  if (s.type != RFCTYPE_STRUCTURE) fail(RFC_INVALID_PARAMETER, "field '" + s.utf8Name + "' is not a structure");
  touch(slot);
  auto& view = views_[slot];
  char* flag = touched_;
  if (auto* f = dynamic_cast<FunctionContainer*>(this)) flag = f->suppliedFlag(slot);
  if (!view) view = std::make_unique<StructView>(*this, slot, s.sub, flag);
  return *view;
}

TableContainer& Container::table(unsigned slot) {
  const Record r = record();
  const Slot& s = r.slot(slot);
  if (s.type != RFCTYPE_TABLE) fail(RFC_INVALID_PARAMETER, "field '" + s.utf8Name + "' is not a table");
  touch(slot);
  if (Store::Item* it = r.store->item(r.at(s)))
    if (auto* t = std::get_if<std::unique_ptr<TableContainer>>(it)) return **t;
  char* flag = touched_;
  if (auto* f = dynamic_cast<FunctionContainer*>(this)) flag = f->suppliedFlag(slot);
  auto& item = r.store->put(r.at(s), std::make_unique<TableContainer>(s.sub, flag));
  return *std::get<std::unique_ptr<TableContainer>>(item);
}

FunctionContainer::FunctionContainer(FunctionPtr desc)
    : Container(ObjectKind::Function), desc_(std::move(desc)), layout_(&desc_->layout()) {
  data_ = layout_->initial;
  active_.assign(layout_->slots.size(), 1);
  supplied_.assign(layout_->slots.size(), 0);
}

void FunctionContainer::resetSupplied() { std::fill(supplied_.begin(), supplied_.end(), 0); }

StructureContainer::StructureContainer(TypePtr type)
    : Container(ObjectKind::Structure), type_(std::move(type)), layout_(&type_->layout()) {
  data_ = layout_->initial;
}

StructView::StructView(Container& parent, unsigned slot, TypePtr type, char* touched)
    : Container(ObjectKind::Structure), parent_(&parent), type_(std::move(type)) {
  offset_ = parent.record().slot(slot).offset;
  touched_ = touched;
  type_->layout();
}

StructView::StructView(TableContainer& table, size_t row, char* touched)
    : Container(ObjectKind::Structure), table_(&table), row_(row), type_(table.rowType()) {
  touched_ = touched;
}

Record StructView::record() {
  if (table_) return table_->row(row_);
  const Record p = parent_->record();
  return {&type_->layout(), p.data + offset_, p.store};
}

TableContainer::TableContainer(TypePtr rowType, char* touched)
    : Container(ObjectKind::Table), rowType_(std::move(rowType)), layout_(&rowType_->layout()) {
  rowSize_ = layout_->size;
  touched_ = touched;
}

TableContainer::~TableContainer() = default;

Record TableContainer::record() {
  if (cursor_ < 0 || static_cast<size_t>(cursor_) >= count_)
    fail(RFC_ILLEGAL_STATE, RFC_ERROR_GROUP::EXTERNAL_APPLICATION_FAILURE, "The table has no current row");
  return row(static_cast<size_t>(cursor_));
}

void TableContainer::touch(unsigned) { markTouched(); }

StructView& TableContainer::rowView(size_t i) {
  if (rowViews_.size() <= i) rowViews_.resize(std::max(i + 1, count_));
  auto& v = rowViews_[i];
  if (!v) v = std::make_unique<StructView>(*this, i, touched_);
  return *v;
}

void TableContainer::dropViews() { rowViews_.clear(); }

size_t TableContainer::append(size_t n) {
  markTouched();
  const size_t first = count_;
  if (n == 0) return first;
  const unsigned char* init = layout_->initial.data();
  data_.resize((count_ + n) * rowSize_);
  if (rowSize_) {
    unsigned char* p = data_.data() + count_ * rowSize_;
    for (size_t i = 0; i < n; ++i, p += rowSize_) std::memcpy(p, init, rowSize_);
  }
  count_ += n;
  return first;
}

size_t TableContainer::insert(size_t at) {
  markTouched();
  if (at > count_) at = count_;
  dropViews();
  data_.insert(data_.begin() + static_cast<std::ptrdiff_t>(at * rowSize_), layout_->initial.begin(),
               layout_->initial.end());
  ++count_;
  return at;
}

void TableContainer::erase(size_t at) {
  markTouched();
  if (at >= count_) return;
  dropViews();
  releaseRecord(*layout_, data_.data() + at * rowSize_, store_);
  data_.erase(data_.begin() + static_cast<std::ptrdiff_t>(at * rowSize_),
              data_.begin() + static_cast<std::ptrdiff_t>((at + 1) * rowSize_));
  --count_;
}

void TableContainer::clear() {
  markTouched();
  dropViews();
  views_.clear();
  data_.clear();
  store_.clear();
  count_ = 0;
  cursor_ = -1;
}

void TableContainer::assign(TableContainer& other) {
  if (&other == this) return;
  if (!sameLayout(*layout_, *other.layout_))
    fail(RFC_INVALID_PARAMETER, "The table's rows have another type than the field's rows");
  clear();
  append(other.count_);
  for (size_t i = 0; i < count_; ++i) {
    Record from = other.row(i), to = row(i);
    copyRecord(*layout_, from.data, *from.store, to.data, *to.store);
  }
  cursor_ = count_ ? 0 : -1;
}

void releaseRecord(const Layout& layout, unsigned char* data, Store& store) {
  for (const Layout::Aside& a : layout.aside) store.release(data + a.offset);
}

void copyRecord(const Layout& layout, const unsigned char* from, Store& fromStore, unsigned char* to, Store& toStore) {
  if (from == to && &fromStore == &toStore) return;
  releaseRecord(layout, to, toStore);
  std::memcpy(to, from, layout.size);
  for (const Layout::Aside& a : layout.aside) {
    std::memset(to + a.offset, 0, 8);
    Store::Item* src = fromStore.item(from + a.offset);
    if (!src) continue;
    if (auto* s = std::get_if<std::u16string>(src)) {
      toStore.put(to + a.offset, *s);
    } else if (auto* b = std::get_if<std::string>(src)) {
      toStore.put(to + a.offset, *b);
    } else if (auto* t = std::get_if<std::unique_ptr<TableContainer>>(src)) {
      auto copy = std::make_unique<TableContainer>((*t)->rowType(), nullptr);
      copy->assign(**t);
      toStore.put(to + a.offset, std::move(copy));
    }
  }
}

bool sameLayout(const Layout& a, const Layout& b) {
  if (&a == &b) return true;
  if (a.size != b.size || a.slots.size() != b.slots.size()) return false;
  for (size_t i = 0; i < a.slots.size(); ++i) {
    const Slot &x = a.slots[i], &y = b.slots[i];
    if (x.type != y.type || x.offset != y.offset || x.length != y.length) return false;
    if (x.sub && y.sub && !sameLayout(x.sub->layout(), y.sub->layout())) return false;
  }
  return true;
}

}  // namespace nwrfc
