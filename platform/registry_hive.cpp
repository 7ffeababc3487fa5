#include "platform/registry_hive.h"

#include <cstdio>
#include <cstring>

#include "platform/unicode.h"
#include "platform/winreg.h"

namespace veltrane::platform::registry {

namespace {

char16_t Fold(char16_t c) { return (c >= u'A' && c <= u'Z') ? char16_t(c + 32) : c; }

bool IsControl(char16_t c) { return c < 0x20 || c == 0x7F; }

// The bytes of a REG_SZ as text, when they are UTF-16 with one terminating
// zero and nothing that would break a line of the file.
bool PrintableString(const std::vector<BYTE>& bytes, std::u16string* text) {
  if (bytes.size() < 2 || bytes.size() % 2 != 0) return false;
  const size_t count = bytes.size() / 2 - 1;
  text->resize(count);
  if (count) std::memcpy(text->data(), bytes.data(), count * 2);
  if (bytes[bytes.size() - 2] != 0 || bytes[bytes.size() - 1] != 0) return false;
  for (char16_t c : *text)
    if (IsControl(c)) return false;
  try {
    WideToUtf8(*text);
  } catch (const std::range_error&) {
    return false;
  }
  return true;
}

void AppendQuoted(std::string& out, std::u16string_view text) {
  out += '"';
  for (char c : WideToUtf8(text)) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  out += '"';
}

void AppendHex(std::string& out, const std::vector<BYTE>& bytes) {
  char digits[4];
  for (size_t i = 0; i < bytes.size(); ++i) {
    std::snprintf(digits, sizeof digits, "%02x", bytes[i]);
    if (i) out += ',';
    out += digits;
  }
}

void AppendValue(std::string& out, std::u16string_view name, const Value& value) {
  if (name.empty())
    out += '@';
  else
    AppendQuoted(out, name);
  out += '=';
  std::u16string text;
  if (value.type == REG_SZ && PrintableString(value.bytes, &text)) {
    AppendQuoted(out, text);
  } else if (value.type == REG_DWORD && value.bytes.size() == 4) {
    DWORD number;
    std::memcpy(&number, value.bytes.data(), 4);
    char digits[16];
    std::snprintf(digits, sizeof digits, "dword:%08x", number);
    out += digits;
  } else if (value.type == REG_BINARY) {
    out += "hex:";
    AppendHex(out, value.bytes);
  } else {
    char prefix[24];
    std::snprintf(prefix, sizeof prefix, "hex(%x):", value.type);
    out += prefix;
    AppendHex(out, value.bytes);
  }
  out += '\n';
}

void AppendPath(std::string& out, const std::vector<std::u16string>& path) {
  for (size_t i = 0; i < path.size(); ++i) {
    if (i) out += '\\';
    out += WideToUtf8(path[i]);
  }
}

void WriteKey(std::string& out, const Key& key, std::vector<std::u16string>& path) {
  out += "\n[";
  AppendPath(out, path);
  out += "]\n";
  for (const auto& [name, value] : key.values) AppendValue(out, name, value);
  for (const auto& [name, sub] : key.subkeys) {
    path.push_back(name);
    WriteKey(out, *sub, path);
    path.pop_back();
  }
}

// Reads the lines of the text form.
class Reader {
 public:
  explicit Reader(std::string_view text) : m_text(text) {}

  Key Read() {
    Key root;
    Key* current = nullptr;
    while (NextLine()) {
      std::string_view line = m_line;
      while (!line.empty() && (line.back() == ' ' || line.back() == '\t')) line.remove_suffix(1);
      while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) line.remove_prefix(1);
      if (line.empty() || line.front() == ';') continue;
      if (line.front() == '[') {
        current = &Section(root, line);
        continue;
      }
      if (!current) Fail("a value before the first [key]");
      ReadValue(*current, line);
    }
    return root;
  }

 private:
  bool NextLine() {
    if (m_pos > m_text.size()) return false;
    const size_t end = m_text.find('\n', m_pos);
    const size_t stop = end == std::string_view::npos ? m_text.size() : end;
    m_line = m_text.substr(m_pos, stop - m_pos);
    if (!m_line.empty() && m_line.back() == '\r') m_line.remove_suffix(1);
    m_pos = stop + 1;
    ++m_number;
    return true;
  }

  [[noreturn]] void Fail(const std::string& what) const { throw HiveSyntaxError(m_number, what); }

  std::u16string Wide(std::string_view utf8) const {
    try {
      return Utf8ToWide(utf8);
    } catch (const std::range_error&) {
      Fail("text that is not UTF-8");
    }
  }

  Key& Section(Key& root, std::string_view line) {
    if (line.size() < 2 || line.back() != ']') Fail("a key line reads [path]");
    const std::u16string path = Wide(line.substr(1, line.size() - 2));
    if (path.empty()) return root;
    std::vector<std::u16string> names;
    if (!SplitKeyPath(path, &names)) Fail("an empty key name in the path, or a path of more than 512 keys");
    for (const auto& n : names)
      for (char16_t c : n)
        if (IsControl(c)) Fail("a control character in a key name");
    return root.Create(names);
  }

  // A quoted text at the start of rest; rest moves behind it.
  std::u16string Quoted(std::string_view& rest) const {
    if (rest.empty() || rest.front() != '"') Fail("a quoted text was expected");
    std::string out;
    size_t i = 1;
    for (;; ++i) {
      if (i >= rest.size()) Fail("a quoted text without its closing quote");
      const char c = rest[i];
      if (c == '"') break;
      if (c == '\\') {
        if (i + 1 >= rest.size() || (rest[i + 1] != '\\' && rest[i + 1] != '"'))
          Fail("a backslash inside quotes stands before \\ or \"");
        out += rest[++i];
        continue;
      }
      out += c;
    }
    rest.remove_prefix(i + 1);
    return Wide(out);
  }

  std::vector<BYTE> HexList(std::string_view text) const {
    std::vector<BYTE> bytes;
    auto digit = [&](char c) -> int {
      if (c >= '0' && c <= '9') return c - '0';
      if (c >= 'a' && c <= 'f') return c - 'a' + 10;
      if (c >= 'A' && c <= 'F') return c - 'A' + 10;
      Fail("a byte is written as two hexadecimal digits");
    };
    size_t i = 0;
    while (i < text.size()) {
      if (i + 2 > text.size()) Fail("a byte is written as two hexadecimal digits");
      bytes.push_back(static_cast<BYTE>(digit(text[i]) * 16 + digit(text[i + 1])));
      i += 2;
      if (i == text.size()) break;
      if (text[i] != ',' || i + 1 == text.size()) Fail("bytes are separated by single commas");
      ++i;
    }
    return bytes;
  }

  void ReadValue(Key& key, std::string_view line) {
    std::u16string name;
    if (line.front() == '@') {
      line.remove_prefix(1);
    } else {
      name = Quoted(line);
      if (name.empty()) Fail("the default value is written @");
    }
    if (line.empty() || line.front() != '=') Fail("a value line reads NAME=DATA");
    line.remove_prefix(1);
    Value value;
    if (!line.empty() && line.front() == '"') {
      const std::u16string text = Quoted(line);
      if (!line.empty()) Fail("text behind the closing quote");
      value.type = REG_SZ;
      value.bytes.resize((text.size() + 1) * 2, 0);
      if (!text.empty()) std::memcpy(value.bytes.data(), text.data(), text.size() * 2);
    } else if (line.substr(0, 6) == "dword:") {
      const std::string_view digits = line.substr(6);
      if (digits.size() != 8 || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string_view::npos)
        Fail("dword: takes eight hexadecimal digits");
      const DWORD number = static_cast<DWORD>(std::stoul(std::string(digits), nullptr, 16));
      value.type = REG_DWORD;
      value.bytes.resize(4);
      std::memcpy(value.bytes.data(), &number, 4);
    } else if (line.substr(0, 4) == "hex:") {
      value.type = REG_BINARY;
      value.bytes = HexList(line.substr(4));
    } else if (line.substr(0, 4) == "hex(") {
      const size_t close = line.find("):");
      const std::string_view digits = close == std::string_view::npos ? std::string_view() : line.substr(4, close - 4);
      if (digits.empty() || digits.size() > 8 ||
          digits.find_first_not_of("0123456789abcdefABCDEF") != std::string_view::npos)
        Fail("hex(TYPE): takes the type in hexadecimal");
      value.type = static_cast<DWORD>(std::stoul(std::string(digits), nullptr, 16));
      value.bytes = HexList(line.substr(close + 2));
    } else {
      Fail("the data is \"text\", dword:, hex: or hex(TYPE):");
    }
    auto it = key.values.find(name);
    if (it != key.values.end())
      it->second = std::move(value);
    else
      key.values.emplace(std::move(name), std::move(value));
  }

  std::string_view m_text;
  std::string_view m_line;
  size_t m_pos = 0;
  size_t m_number = 0;
};

}  // namespace

bool NameLess::operator()(std::u16string_view a, std::u16string_view b) const noexcept {
  const size_t n = std::min(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    const char16_t x = Fold(a[i]), y = Fold(b[i]);
    if (x != y) return x < y;
  }
  return a.size() < b.size();
}

Key* Key::Find(const std::vector<std::u16string>& path) {
  Key* key = this;
  for (const auto& name : path) {
    auto it = key->subkeys.find(name);
    if (it == key->subkeys.end()) return nullptr;
    key = it->second.get();
  }
  return key;
}

const Key* Key::Find(const std::vector<std::u16string>& path) const { return const_cast<Key*>(this)->Find(path); }

Key& Key::Create(const std::vector<std::u16string>& path, bool* created) {
  Key* key = this;
  bool made = false;
  for (const auto& name : path) {
    auto it = key->subkeys.find(name);
    made = it == key->subkeys.end();
    if (made) it = key->subkeys.emplace(name, std::make_unique<Key>()).first;
    key = it->second.get();
  }
  if (created) *created = made;
  return *key;
}

bool Key::Remove(const std::vector<std::u16string>& path) {
  if (path.empty()) return false;
  Key* parent = Find(std::vector<std::u16string>(path.begin(), path.end() - 1));
  return parent && parent->subkeys.erase(path.back()) > 0;
}

bool Key::operator==(const Key& other) const {
  if (values.size() != other.values.size() || subkeys.size() != other.subkeys.size()) return false;
  for (auto a = values.begin(), b = other.values.begin(); a != values.end(); ++a, ++b)
    if (a->first != b->first || !(a->second == b->second)) return false;
  for (auto a = subkeys.begin(), b = other.subkeys.begin(); a != subkeys.end(); ++a, ++b)
    if (a->first != b->first || !(*a->second == *b->second)) return false;
  return true;
}

Key Key::Clone() const {
  Key copy;
  copy.values = values;
  for (const auto& [name, sub] : subkeys) copy.subkeys.emplace(name, std::make_unique<Key>(sub->Clone()));
  return copy;
}

bool SplitKeyPath(std::u16string_view path, std::vector<std::u16string>* names) {
  names->clear();
  if (path.empty()) return true;
  size_t start = 0;
  for (;;) {
    const size_t sep = path.find(u'\\', start);
    const std::u16string_view name = path.substr(start, sep == std::u16string_view::npos ? sep : sep - start);
    if (name.empty()) return false;
    names->emplace_back(name);
    if (names->size() > kMaxKeyDepth) return false;
    if (sep == std::u16string_view::npos) return true;
    start = sep + 1;
  }
}

std::string WriteHive(const Key& root, std::string_view comment) {
  std::string out = "; ";
  out += comment;
  out += '\n';
  if (!root.values.empty()) {
    out += "\n[]\n";
    for (const auto& [name, value] : root.values) AppendValue(out, name, value);
  }
  std::vector<std::u16string> path;
  for (const auto& [name, sub] : root.subkeys) {
    path.assign(1, name);
    WriteKey(out, *sub, path);
  }
  return out;
}

Key ReadHive(std::string_view text) { return Reader(text).Read(); }

}  // namespace veltrane::platform::registry
