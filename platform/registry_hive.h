// The registry's keys and values in memory, and their text form in the
// files of the registry store (registry_store.h).
//
// Key and value names compare without regard to ASCII case and keep the
// case they were created with. A value holds its type and its bytes as the
// registry functions were given them.
//
// The text form, in UTF-8, one key per section, keys in name order:
//
//   ; comment
//   [Software\Classes\Veltrane.SoapSession]
//   @="SoapSession Class"                 the default value, REG_SZ
//   "ThreadingModel"="Apartment"          a named REG_SZ value
//   "Flags"=dword:00000001                REG_DWORD
//   "Data"=hex:01,ff                      REG_BINARY
//   "Other"=hex(7):61,00,00,00            any type, as its bytes
//
// A section names the path below the hive's root ("[]" is the root); every
// key stands in a section of its own, with or without values. Inside quotes
// "\\" and "\"" stand for themselves. A string value is written in quotes
// when its bytes are UTF-16 text with one terminating zero and no control
// characters; otherwise as hex(1).
#pragma once

#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/wtypes.h"

namespace veltrane::platform::registry {

struct NameLess {
  using is_transparent = void;
  bool operator()(std::u16string_view a, std::u16string_view b) const noexcept;
};

struct Value {
  DWORD type = 0;
  std::vector<BYTE> bytes;
  bool operator==(const Value&) const = default;
};

struct Key {
  std::map<std::u16string, Value, NameLess> values;  // "" is the default value
  std::map<std::u16string, std::unique_ptr<Key>, NameLess> subkeys;

  // The key below this one at the path, or null.
  Key* Find(const std::vector<std::u16string>& path);
  const Key* Find(const std::vector<std::u16string>& path) const;
  // The key at the path, created with its parents where missing; created
  // tells whether the last one was new.
  Key& Create(const std::vector<std::u16string>& path, bool* created = nullptr);
  // Removes the subkey at the path with everything below it; false if none.
  bool Remove(const std::vector<std::u16string>& path);

  bool operator==(const Key& other) const;
  Key Clone() const;
};

// A registry text that cannot be read: its line and what is wrong there.
class HiveSyntaxError : public std::runtime_error {
 public:
  HiveSyntaxError(size_t line, const std::string& what)
      : std::runtime_error("line " + std::to_string(line) + ": " + what), m_line(line) {}
  size_t line() const { return m_line; }

 private:
  size_t m_line;
};

// Keys lie at most this many levels below the root of a hive.
inline constexpr size_t kMaxKeyDepth = 512;

// Splits "A\B\C" into its names; empty names (a doubled, leading or trailing
// backslash) and more than kMaxKeyDepth names make it invalid: false.
bool SplitKeyPath(std::u16string_view path, std::vector<std::u16string>* names);

// The text form of a hive, with a comment line first.
std::string WriteHive(const Key& root, std::string_view comment);
// Reads the text form; throws HiveSyntaxError.
Key ReadHive(std::string_view text);

}  // namespace veltrane::platform::registry
