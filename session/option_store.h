// A store of string options: an ordered map from name to value, compared by
// UTF-16 code units (case-sensitive). Names are not checked; a null value is
// kept as null. Sessions, logon data and table readers each own one.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "platform/atlbase.h"

class OptionStore {
 public:
  // Stores value under name (null name: the empty name), replacing an old value.
  HRESULT Put(BSTR name, BSTR value);

  // The stored value as a new string. An unknown name gives an empty string,
  // or null when nullForUnknown is set. A stored null stays null.
  HRESULT Get(BSTR name, BSTR* value, bool nullForUnknown = false) const;

  // The value as text; unknown or null reads as empty.
  std::u16string Value(std::u16string_view name) const;
  // True when the name has been stored (even with a null value).
  bool Contains(std::u16string_view name) const;

 private:
  std::map<std::u16string, CComBSTR, std::less<>> m_values;
};
