// CRfcStringList: a list of strings behind IStringList, positions counted
// from 1. The table reader keeps its Query and Fields in two of them.
#pragma once

#include <string>
#include <vector>

#include "platform/atlbase.h"
#include "platform/com_object.h"
#include "platform/dispatch_impl.h"
#include "veltrane_decl.h"
#include "veltrane_tlb.h"

class CRfcStringList : public CComObjectBase<CRfcStringList, CoClassRfcStringList<CRfcStringList>> {
 public:
  VELTRANE_DECL_ISTRINGLIST
  // Appends; duplicates are kept, a null string is the empty one.
  // Below 1 or above Count: E_INVALIDARG.
  // Position of the first exact, case-sensitive match, or -1.
  // Below 1: E_INVALIDARG; above Count: E_FAIL.
  // An enumerator over copies of the strings as they are now.

  const std::vector<std::u16string>& Items() const { return m_items; }
  void Append(std::u16string item) { m_items.push_back(std::move(item)); }
  void Clear() { m_items.clear(); }

 private:
  std::vector<std::u16string> m_items;
};
