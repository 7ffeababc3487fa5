#include "runtime/wformat.h"

#include <cstdio>
#include <stdexcept>

#include "platform/unicode.h"

namespace {

[[noreturn]] void FormatError(const char* what) { throw std::invalid_argument(std::string("FormatW: ") + what); }

struct Field {
  bool left = false, plus = false, blank = false, alt = false, zero = false;
  int width = -1;
  int precision = -1;
  int intSize = 0;          // 1 or 2 for hh and h; 0: the argument's own size
  bool narrowFlag = false;  // h on s/c
};

void Pad(std::u16string& out, std::u16string_view body, const Field& field) {
  size_t len = body.size();
  size_t pad = field.width > 0 && static_cast<size_t>(field.width) > len ? field.width - len : 0;
  if (!field.left) out.append(pad, u' ');
  out.append(body);
  if (field.left) out.append(pad, u' ');
}

void AppendAscii(std::u16string& out, const char* text, int len) {
  for (int k = 0; k < len; ++k) out.push_back(static_cast<unsigned char>(text[k]));
}

// Runs the C library's conversion on one value; the result is ASCII.
template <class V>
void Numeric(std::u16string& out, const Field& field, const char* length, char conv, V value) {
  char fmt[32];
  char* f = fmt;
  *f++ = '%';
  if (field.left) *f++ = '-';
  if (field.plus) *f++ = '+';
  if (field.blank) *f++ = ' ';
  if (field.alt) *f++ = '#';
  if (field.zero) *f++ = '0';
  if (field.width >= 0) f += std::snprintf(f, 12, "%d", field.width);
  if (field.precision >= 0) f += std::snprintf(f, 13, ".%d", field.precision);
  for (const char* l = length; *l; ++l) *f++ = *l;
  *f++ = conv;
  *f = 0;
  char small[128];
  int n = std::snprintf(small, sizeof small, fmt, value);
  if (n < 0) FormatError("conversion failed");
  if (n < static_cast<int>(sizeof small)) {
    AppendAscii(out, small, n);
    return;
  }
  std::string big(static_cast<size_t>(n) + 1, '\0');
  std::snprintf(big.data(), big.size(), fmt, value);
  AppendAscii(out, big.data(), n);
}

long long SignedValue(const FormatArg& a, int intSize) {
  long long v;
  if (a.kind == FormatArg::Signed)
    v = a.i;
  else if (a.kind == FormatArg::Unsigned) {
    // Reinterpret in the argument's own width, as printf would.
    switch (a.size) {
      case 1: v = static_cast<int8_t>(a.u); break;
      case 2: v = static_cast<int16_t>(a.u); break;
      case 4: v = static_cast<int32_t>(a.u); break;
      default: v = static_cast<long long>(a.u); break;
    }
  } else {
    FormatError("integer conversion with an argument that is not an integer");
  }
  if (intSize == 1)
    v = static_cast<signed char>(v);
  else if (intSize == 2)
    v = static_cast<short>(v);
  return v;
}

unsigned long long UnsignedValue(const FormatArg& a, int intSize) {
  unsigned long long v;
  if (a.kind == FormatArg::Unsigned)
    v = a.u;
  else if (a.kind == FormatArg::Signed) {
    switch (a.size) {
      case 1: v = static_cast<uint8_t>(a.i); break;
      case 2: v = static_cast<uint16_t>(a.i); break;
      case 4: v = static_cast<uint32_t>(a.i); break;
      default: v = static_cast<unsigned long long>(a.i); break;
    }
  } else {
    FormatError("integer conversion with an argument that is not an integer");
  }
  if (intSize == 1)
    v = static_cast<unsigned char>(v);
  else if (intSize == 2)
    v = static_cast<unsigned short>(v);
  return v;
}

void String(std::u16string& out, const Field& field, const FormatArg& a) {
  std::u16string converted;
  std::u16string_view body;
  if (a.kind == FormatArg::Wide) {
    body = a.null ? std::u16string_view(u"(null)") : a.wide;
  } else if (a.kind == FormatArg::Narrow) {
    if (a.null) {
      body = u"(null)";
    } else {
      converted = Utf8ToWideLossy(a.narrow);
      body = converted;
    }
  } else {
    FormatError("%s with an argument that is not a string");
  }
  if (field.precision >= 0 && static_cast<size_t>(field.precision) < body.size())
    body = body.substr(0, field.precision);
  Pad(out, body, field);
}

void Character(std::u16string& out, const Field& field, const FormatArg& a) {
  if (a.kind != FormatArg::Signed && a.kind != FormatArg::Unsigned)
    FormatError("%c with an argument that is not a character");
  unsigned long long cp = a.kind == FormatArg::Signed ? static_cast<unsigned long long>(a.i) : a.u;
  if (field.narrowFlag || (a.kind == FormatArg::Signed && a.size == 1)) cp &= 0xFF;
  std::u16string body;
  if (cp < 0x10000) {
    body.push_back(static_cast<char16_t>(cp));
  } else if (cp <= 0x10FFFF) {
    cp -= 0x10000;
    body.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
    body.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
  } else {
    FormatError("%c with a value beyond U+10FFFF");
  }
  Pad(out, body, field);
}

}  // namespace

std::u16string FormatWArgs(std::u16string_view format, const FormatArg* args, size_t count) {
  std::u16string out;
  out.reserve(format.size() + 16 * count);
  size_t next = 0;
  auto take = [&]() -> const FormatArg& {
    if (next >= count) FormatError("too few arguments for the format");
    return args[next++];
  };
  auto takeInt = [&]() -> int {
    const FormatArg& a = take();
    long long v = SignedValue(a, 0);
    if (v > 100000 || v < -100000) FormatError("width or precision out of range");
    return static_cast<int>(v);
  };
  size_t i = 0;
  const size_t n = format.size();
  while (i < n) {
    size_t pct = format.find(u'%', i);
    if (pct == std::u16string_view::npos) {
      out.append(format.substr(i));
      break;
    }
    out.append(format.substr(i, pct - i));
    i = pct + 1;
    if (i >= n) FormatError("format ends in '%'");
    if (format[i] == u'%') {
      out.push_back(u'%');
      ++i;
      continue;
    }
    Field field;
    for (; i < n; ++i) {
      char16_t c = format[i];
      if (c == u'-')
        field.left = true;
      else if (c == u'+')
        field.plus = true;
      else if (c == u' ')
        field.blank = true;
      else if (c == u'#')
        field.alt = true;
      else if (c == u'0')
        field.zero = true;
      else
        break;
    }
    if (i < n && format[i] == u'*') {
      field.width = takeInt();
      if (field.width < 0) {
        field.left = true;
        field.width = -field.width;
      }
      ++i;
    } else {
      int w = -1;
      while (i < n && format[i] >= u'0' && format[i] <= u'9') {
        w = (w < 0 ? 0 : w) * 10 + (format[i] - u'0');
        if (w > 100000) FormatError("width out of range");
        ++i;
      }
      if (i < n && format[i] == u'$') FormatError("positional arguments are not supported");
      field.width = w;
    }
    if (i < n && format[i] == u'.') {
      ++i;
      if (i < n && format[i] == u'*') {
        field.precision = takeInt();
        if (field.precision < 0) field.precision = -1;
        ++i;
      } else {
        int p = 0;
        while (i < n && format[i] >= u'0' && format[i] <= u'9') {
          p = p * 10 + (format[i] - u'0');
          if (p > 100000) FormatError("precision out of range");
          ++i;
        }
        field.precision = p;
      }
    }
    // Length modifiers.
    bool wideFlag = false;
    while (i < n) {
      char16_t c = format[i];
      if (c == u'h') {
        field.intSize = field.intSize == 2 ? 1 : 2;
        field.narrowFlag = true;
        ++i;
      } else if (c == u'l' || c == u'w') {
        wideFlag = true;
        ++i;
      } else if (c == u'L' || c == u'j' || c == u'z' || c == u't' || c == u'q') {
        ++i;
      } else if (c == u'I') {
        ++i;
        if (format.substr(i, 2) == u"32" || format.substr(i, 2) == u"64") i += 2;
      } else {
        break;
      }
    }
    if (i >= n) FormatError("incomplete conversion");
    char16_t conv = format[i++];
    switch (conv) {
      case u'd':
      case u'i': Numeric(out, field, "ll", 'd', SignedValue(take(), field.intSize)); break;
      case u'u':
      case u'o':
      case u'x':
      case u'X': Numeric(out, field, "ll", static_cast<char>(conv), UnsignedValue(take(), field.intSize)); break;
      case u'f':
      case u'F':
      case u'e':
      case u'E':
      case u'g':
      case u'G':
      case u'a':
      case u'A': {
        const FormatArg& a = take();
        double d;
        if (a.kind == FormatArg::Float)
          d = a.d;
        else if (a.kind == FormatArg::Signed)
          d = static_cast<double>(a.i);
        else if (a.kind == FormatArg::Unsigned)
          d = static_cast<double>(a.u);
        else
          FormatError("floating-point conversion with an argument that is not a number");
        Numeric(out, field, "", static_cast<char>(conv), d);
        break;
      }
      case u'p': {
        const FormatArg& a = take();
        if (a.kind != FormatArg::Pointer) FormatError("%p with an argument that is not a pointer");
        Field p = field;
        p.precision = 16;
        p.alt = p.plus = p.blank = p.zero = false;
        Numeric(out, p, "ll", 'X', static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(a.p)));
        break;
      }
      case u's':
      case u'S': String(out, field, take()); break;
      case u'c':
      case u'C':
        if (conv == u'C' && !wideFlag) field.narrowFlag = true;
        Character(out, field, take());
        break;
      case u'n': FormatError("%n is not supported");
      default: FormatError("unknown conversion");
    }
  }
  return out;
}
