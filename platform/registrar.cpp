#include "platform/registrar.h"

#include <atomic>
#include <optional>
#include <vector>

#include "platform/registrar_script.h"
#include "platform/registry_store.h"
#include "platform/winreg.h"

namespace veltrane::platform::registrar {

namespace {

std::atomic<bool> g_perUser{false};

char16_t Fold(char16_t c) { return (c >= u'A' && c <= u'Z') ? char16_t(c + 32) : c; }

bool EqualsNoCase(std::u16string_view a, std::u16string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (Fold(a[i]) != Fold(b[i])) return false;
  return true;
}

bool IsSpace(char16_t c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n'; }

const char16_t* Lookup(const _ATL_REGMAP_ENTRY* map, std::u16string_view name) {
  for (; map && map->szKey; ++map)
    if (EqualsNoCase(map->szKey, name)) return map->szData ? map->szData : u"";
  return nullptr;
}

struct Token {
  std::u16string text;
  bool quoted = false;
  bool Is(std::u16string_view word) const { return !quoted && EqualsNoCase(text, word); }
};

class SyntaxError {};

// Reads and runs a preprocessed script.
class Parser {
 public:
  Parser(std::u16string_view text, bool doRegister) : m_text(text), m_register(doRegister) {}

  HRESULT Run() {
    try {
      while (Peek()) {
        const Token root = Next();
        HKEY key = RootKey(root);
        Expect(u"{");
        Block(key, false);
      }
    } catch (const SyntaxError&) {
      return DISP_E_EXCEPTION;
    }
    return m_failure;
  }

 private:
  // The next token, or none at the end of the text.
  std::optional<Token> Read() {
    while (m_pos < m_text.size() && IsSpace(m_text[m_pos])) ++m_pos;
    if (m_pos >= m_text.size()) return std::nullopt;
    Token token;
    if (m_text[m_pos] == u'\'') {
      token.quoted = true;
      for (++m_pos;; ++m_pos) {
        if (m_pos >= m_text.size()) throw SyntaxError();
        if (m_text[m_pos] == u'\'') {
          if (m_pos + 1 < m_text.size() && m_text[m_pos + 1] == u'\'') {
            token.text += u'\'';
            ++m_pos;
            continue;
          }
          ++m_pos;
          break;
        }
        token.text += m_text[m_pos];
      }
      return token;
    }
    while (m_pos < m_text.size() && !IsSpace(m_text[m_pos])) token.text += m_text[m_pos++];
    return token;
  }

  const std::optional<Token>& Peek() {
    if (!m_peeked) m_peeked = Read();
    return *m_peeked;
  }

  Token Next() {
    Peek();
    std::optional<Token> token = std::move(*m_peeked);
    m_peeked.reset();
    if (!token) throw SyntaxError();
    return *token;
  }

  void Expect(std::u16string_view word) {
    if (!Next().Is(word)) throw SyntaxError();
  }

  static HKEY RootKey(const Token& t) {
    if (t.Is(u"HKCR") || t.Is(u"HKEY_CLASSES_ROOT")) return HKEY_CLASSES_ROOT;
    if (t.Is(u"HKCU") || t.Is(u"HKEY_CURRENT_USER")) return HKEY_CURRENT_USER;
    if (t.Is(u"HKLM") || t.Is(u"HKEY_LOCAL_MACHINE")) return HKEY_LOCAL_MACHINE;
    throw SyntaxError();
  }

  // "= TYPE 'VALUE'" as the type and bytes of a value.
  std::pair<DWORD, std::vector<BYTE>> Assignment() {
    const Token type = Next();
    const Token value = Next();
    std::vector<BYTE> bytes;
    auto text = [&bytes](std::u16string_view s) {
      const BYTE* p = reinterpret_cast<const BYTE*>(s.data());
      bytes.insert(bytes.end(), p, p + s.size() * sizeof(char16_t));
      bytes.push_back(0);
      bytes.push_back(0);
    };
    if (type.Is(u"s")) {
      text(value.text);
      return {REG_SZ, bytes};
    }
    if (type.Is(u"d")) return {REG_DWORD, Number(value.text)};
    if (type.Is(u"b")) return {REG_BINARY, Hex(value.text)};
    if (type.Is(u"m")) {
      std::u16string_view rest = value.text;
      for (;;) {
        const size_t sep = rest.find(u"\\0");
        text(rest.substr(0, sep));
        if (sep == std::u16string_view::npos) break;
        rest.remove_prefix(sep + 2);
      }
      bytes.push_back(0);
      bytes.push_back(0);
      return {REG_MULTI_SZ, bytes};
    }
    throw SyntaxError();
  }

  static std::vector<BYTE> Number(std::u16string_view s) {
    int base = 10;
    if (s.size() > 2 && s[0] == u'0' && (s[1] == u'x' || s[1] == u'X')) {
      base = 16;
      s.remove_prefix(2);
    }
    if (s.empty()) throw SyntaxError();
    uint64_t n = 0;
    for (char16_t c : s) {
      int d = -1;
      if (c >= u'0' && c <= u'9') d = c - u'0';
      if (base == 16 && c >= u'a' && c <= u'f') d = c - u'a' + 10;
      if (base == 16 && c >= u'A' && c <= u'F') d = c - u'A' + 10;
      if (d < 0) throw SyntaxError();
      n = n * static_cast<uint64_t>(base) + static_cast<uint64_t>(d);
      if (n > 0xFFFFFFFFu) throw SyntaxError();
    }
    const DWORD v = static_cast<DWORD>(n);
    const BYTE* p = reinterpret_cast<const BYTE*>(&v);
    return std::vector<BYTE>(p, p + 4);
  }

  static std::vector<BYTE> Hex(std::u16string_view s) {
    if (s.size() % 2) throw SyntaxError();
    std::vector<BYTE> out;
    auto digit = [](char16_t c) {
      if (c >= u'0' && c <= u'9') return c - u'0';
      if (c >= u'a' && c <= u'f') return c - u'a' + 10;
      if (c >= u'A' && c <= u'F') return c - u'A' + 10;
      throw SyntaxError();
    };
    for (size_t i = 0; i < s.size(); i += 2) out.push_back(static_cast<BYTE>(digit(s[i]) * 16 + digit(s[i + 1])));
    return out;
  }

  // Keeps the first failure of the registry; the script is read to its end
  // all the same, so that a syntax error is found.
  void Check(LONG result) {
    if (result != ERROR_SUCCESS && m_failure == S_OK) m_failure = HRESULT_FROM_WIN32(static_cast<uint32_t>(result));
  }
  bool Failed() const { return m_failure != S_OK; }

  static bool HasSubkeys(HKEY key) {
    char16_t name[2];
    DWORD size = 2;
    const LONG r = RegEnumKeyExW(key, 0, name, &size, nullptr, nullptr, nullptr, nullptr);
    return r == ERROR_SUCCESS || r == ERROR_MORE_DATA;
  }

  // The keys and values of a block, up to its closing brace, below parent
  // (null: read only).
  void Block(HKEY parent, bool skip) {
    for (;;) {
      Token token = Next();
      if (token.Is(u"}")) return;
      bool noRemove = false, forceRemove = false, remove = false;
      for (;; token = Next()) {
        if (token.Is(u"NoRemove"))
          noRemove = true;
        else if (token.Is(u"ForceRemove"))
          forceRemove = true;
        else if (token.Is(u"Delete"))
          remove = true;
        else
          break;
      }
      if (token.Is(u"val")) {
        Value(parent, skip || noRemove || forceRemove || remove);
        continue;
      }
      if (token.Is(u"{") || token.Is(u"}") || token.Is(u"=")) throw SyntaxError();
      SubKey(parent, skip, token.text, noRemove, forceRemove, remove);
    }
  }

  void Value(HKEY parent, bool skip) {
    const Token name = Next();
    Expect(u"=");
    const auto [type, bytes] = Assignment();
    if (skip || Failed()) return;
    if (m_register)
      Check(RegSetValueExW(parent, name.text.c_str(), 0, type, bytes.data(), static_cast<DWORD>(bytes.size())));
    else
      RegDeleteValueW(parent, name.text.c_str());
  }

  // An open key, closed when it goes (also when a syntax error unwinds).
  struct OpenKey {
    HKEY key = nullptr;
    ~OpenKey() {
      if (key) RegCloseKey(key);
    }
  };

  void SubKey(HKEY parent, bool skip, const std::u16string& name, bool noRemove, bool forceRemove, bool remove) {
    std::optional<std::pair<DWORD, std::vector<BYTE>>> value;
    if (Peek() && Peek()->Is(u"=")) {
      Next();
      value = Assignment();
    }
    const bool block = Peek() && Peek()->Is(u"{");
    if (block) Next();
    OpenKey open;
    HKEY& key = open.key;
    if (!skip && !Failed()) {
      if (m_register) {
        if (forceRemove || remove) {
          const LONG r = RegDeleteTreeW(parent, name.c_str());
          if (r != ERROR_FILE_NOT_FOUND) Check(r);
        }
        if (!remove && !Failed()) {
          Check(RegCreateKeyExW(parent, name.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr));
          if (key && value)
            Check(RegSetValueExW(key, nullptr, 0, value->first, value->second.data(),
                                 static_cast<DWORD>(value->second.size())));
        }
      } else if (forceRemove) {
        const LONG r = RegDeleteTreeW(parent, name.c_str());
        if (r != ERROR_FILE_NOT_FOUND) Check(r);
      } else if (!remove) {
        if (RegOpenKeyExW(parent, name.c_str(), 0, KEY_ALL_ACCESS, &key) != ERROR_SUCCESS) key = nullptr;
      }
    }
    if (block) Block(key, key == nullptr);
    if (key && !m_register && !noRemove && !Failed() && !HasSubkeys(key)) {
      const LONG r = RegDeleteKeyW(parent, name.c_str());
      if (r != ERROR_FILE_NOT_FOUND) Check(r);
    }
  }

  std::u16string_view m_text;
  size_t m_pos = 0;
  std::optional<std::optional<Token>> m_peeked;
  bool m_register;
  HRESULT m_failure = S_OK;
};

}  // namespace

HRESULT Preprocess(std::u16string_view script, const _ATL_REGMAP_ENTRY* map, bool perUser, std::u16string* out) {
  static constexpr std::u16string_view kUserStart = u"HKCU\r\n{\tSoftware\r\n\t{\r\n\t\tClasses";
  static constexpr std::u16string_view kUserEnd = u"\r\n\t}\r\n}\r\n";
  out->clear();
  const size_t capacity = script.size() * 2;
  out->reserve(capacity < 100 ? 1000 : capacity);
  int depth = 0;
  bool quoted = false;
  bool userBlock = false;
  for (size_t i = 0; i < script.size(); ++i) {
    const char16_t c = script[i];
    if (c == u'%') {
      const size_t close = script.find(u'%', i + 1);
      if (close == std::u16string_view::npos) return DISP_E_EXCEPTION;
      if (close == i + 1) {
        *out += u'%';
      } else {
        const char16_t* value = Lookup(map, script.substr(i + 1, close - i - 1));
        if (!value) return DISP_E_EXCEPTION;
        *out += value;
      }
      i = close;
      continue;
    }
    if (perUser) {
      if (c == u'\'') {
        if (quoted && i + 1 < script.size() && script[i + 1] == u'\'') {
          *out += u"''";
          ++i;
          continue;
        }
        quoted = !quoted;
      } else if (!quoted && c == u'{') {
        ++depth;
      } else if (!quoted && c == u'}') {
        --depth;
        if (depth == 0 && userBlock) {
          *out += c;
          *out += kUserEnd;
          userBlock = false;
          continue;
        }
      } else if (!quoted && depth == 0 && script.size() - i >= 4 && EqualsNoCase(script.substr(i, 4), u"HKCR")) {
        *out += kUserStart;
        userBlock = true;
        i += 3;
        continue;
      }
    }
    *out += c;
  }
  return S_OK;
}

HRESULT Run(std::u16string_view script, bool doRegister) { return Parser(script, doRegister).Run(); }

}  // namespace veltrane::platform::registrar

extern "C" {

HRESULT AtlSetPerUserRegistration(bool bEnable) {
  veltrane::platform::registrar::g_perUser = bEnable;
  return S_OK;
}

HRESULT AtlGetPerUserRegistration(bool* pbEnabled) {
  if (!pbEnabled) return E_POINTER;
  *pbEnabled = veltrane::platform::registrar::g_perUser;
  return S_OK;
}

HRESULT AtlUpdateRegistryFromScript(LPCOLESTR script, BOOL bRegister, const _ATL_REGMAP_ENTRY* map) {
  namespace registrar = veltrane::platform::registrar;
  if (!script) return E_INVALIDARG;
  std::u16string text;
  HRESULT hr = registrar::Preprocess(script, map, registrar::g_perUser, &text);
  if (FAILED(hr)) return hr;
  veltrane::platform::RegistryTransaction transaction;
  hr = registrar::Run(text, bRegister != FALSE);
  if (FAILED(hr)) return hr;
  const LONG committed = transaction.Commit();
  return committed == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(static_cast<uint32_t>(committed));
}

}  // extern "C"
